/// Runs one external command line and hands out what it printed, line by line.
#pragma once

#include <cstdint>
#include <cstdio>
#include <list>
#include <memory>
#include <string>

namespace SYSINFO_NAMESPACE {

/// One command, run once: build, Execute, read, destroy. Its standard input is empty; its output and errors
/// go into two temporary files in the product directory, which the destructor deletes.
class SystemCmd {
public:
    /// Runs nothing. Both texts are pasted into the shell line as they are, unquoted. The whole line is cut
    /// to 2047 bytes. `forceCLocale` puts LC_ALL=C in front.
    SystemCmd(const char* program, const char* arguments, bool forceCLocale);
    SystemCmd(const SystemCmd&) = delete;
    SystemCmd& operator=(const SystemCmd&) = delete;
    ~SystemCmd();

    /// Runs the command and waits for it, within the limits of external commands. When it ends with an exit
    /// code other than 0 and `errorLines` is given, the plain command and then every line of its standard
    /// error are appended there.
    /// Returns 0, or 11 when the shell could not be started.
    int Execute(std::list<std::string>* errorLines);

    /// The command's exit code (0 after a death by a signal), -1 when the shell could not be started; 0
    /// before Execute.
    [[nodiscard]] std::int32_t status() const { return status_; }

    /// Next line of standard output, with its line end; a line longer than the buffer comes in pieces.
    /// Null at the end, and when there is no output file.
    char* GetStdOutLine(char* buffer, int size);

    /// Next line of standard error, likewise, but without its line end. Null at the end or without a file.
    char* GetStdErrLine(char* buffer, int size);

private:
    struct CloseFile {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    using FileHandle = std::unique_ptr<std::FILE, CloseFile>;

    static char* readLine(FileHandle& stream, const std::string& path, char* buffer, int size);

    std::string plainCommand_;
    std::string redirectedCommand_;
    std::string stdOutPath_;
    std::string stdErrPath_;
    FileHandle stdOut_; ///< null until the first read
    FileHandle stdErr_; ///< null until the first read
    std::int32_t status_ = 0;
};

} // namespace SYSINFO_NAMESPACE
