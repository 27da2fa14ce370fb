/// A system file read the way all probes read them: through /bin/cat, a line at a time.
#pragma once

#include "platform/debuglog.h"
#include "sysinfo/system_cmd.h"

#include <string>

namespace SYSINFO_NAMESPACE {

class CatFile {
public:
    /// Runs /bin/cat on the file and waits for it.
    explicit CatFile(const char* path);
    /// The same, and logs a failure without its status.
    CatFile(const char* path, const char* context, LogLevel failureLevel = LogLevel::progress);

    /// 0, or why there is nothing to read: cat's exit code, or -1 when it could not be started.
    [[nodiscard]] int status() const { return command_.status(); }

    /// Next line, with its line end, up to a NUL if it holds one; a line of 2048 bytes or more comes in
    /// pieces of 2047. False at the end, and where the status is not 0.
    bool nextLine(std::string& line);

private:
    SystemCmd command_;
};

} // namespace SYSINFO_NAMESPACE
