/// What this program writes into files, byte for byte, and where it seeks. The calls behind a file stream are
/// replaced by recording ones, which still do their work.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace fakes {

struct RecordedWrite {
    off_t offset; ///< where in the file
    std::string bytes;
};

/// Records while it lives.
class WriteRecorder {
public:
    WriteRecorder();
    WriteRecorder(const WriteRecorder&) = delete;
    WriteRecorder& operator=(const WriteRecorder&) = delete;
    ~WriteRecorder();

    std::vector<RecordedWrite> writes; ///< those of no bytes never reach the system
    int seeksToStart = 0;
};

} // namespace fakes
