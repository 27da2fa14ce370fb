/// What this program writes into files, byte for byte. The two system calls behind a file stream are replaced
/// by recording ones, which still write.
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

    std::vector<RecordedWrite> writes;
};

} // namespace fakes
