/// Exclusive locks between processes.
#pragma once

#include <string>

/// Holds an exclusive lock on a file from construction to destruction. The file is made with mode 0600 when
/// absent and stays; the lock goes with this object or with the process, and no child inherits it.
class TQLockFile {
public:
    /// Tries up to `tries` times, `waitMs` milliseconds apart. A link, fifo, device or folder at the path is
    /// refused (one level-16 entry). Taking the lock sets the file's modification time to now.
    TQLockFile(const std::string& path, int tries, int waitMs);
    TQLockFile(const TQLockFile&) = delete;
    TQLockFile& operator=(const TQLockFile&) = delete;
    ~TQLockFile();

    int fd = -1; ///< descriptor of the locked file, -1 when the lock was not taken

    /// Why it was not taken: EWOULDBLOCK when another held it at every try, else the number that
    /// tq::fileFault() has words for. 0 when it was.
    int error = 0;
};
