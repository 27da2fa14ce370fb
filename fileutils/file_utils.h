/// Destroys files so that their contents do not linger readable on disk.
#pragma once

#include <string>

/// Holds no data; its operation is static.
class FileUtils {
public:
    /// Overwrites a file seven times with as many bytes as it holds, then removes it. Meant for small files:
    /// the whole size is held in memory. Opening the file empties it, whatever happens afterwards. Only a
    /// regular file is touched, never the target of a link or a file that has another name too.
    ///
    /// Returns 0; 142 when the file's attributes cannot be read (it is absent, or a link that leads nowhere);
    /// 12 when it cannot be opened for writing, with any other link, a file with a second hard link, a fifo,
    /// device or folder included; 14 when overwriting or closing fails or memory is short; 11 when it was
    /// overwritten but cannot be removed. Each failure has one entry in the log; nothing is thrown.
    static int shredFile(const std::string& path) noexcept;
};
