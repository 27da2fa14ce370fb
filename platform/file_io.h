/// Opening and writing the files that the system itself keeps.
#pragma once

#include <cstddef>
#include <dirent.h>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace tq {

/// Owns a descriptor.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : fd_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    ~FileDescriptor() { reset(); }

    [[nodiscard]] int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release();
    void reset(int descriptor = -1);

private:
    int fd_ = -1;
};

struct DirectoryRelease {
    void operator()(DIR* directory) const { closedir(directory); }
};

/// Owns an open directory.
using DirectoryHandle = std::unique_ptr<DIR, DirectoryRelease>;

/// Largest cache or status file that is read; a larger one counts as one that cannot be opened.
inline constexpr std::size_t OWN_FILE_MAX_BYTES = std::size_t{16} << 20;

/// Opens a file that the system itself writes, with O_CLOEXEC, O_NOFOLLOW and O_NONBLOCK added to `flags`.
/// It must be a regular file under one name; O_TRUNC takes effect only after that is known. Not open on
/// failure, with errno set (a link gives ELOOP, a file with a second hard link EMLINK, anything else that is
/// not regular EINVAL) and one level-16 entry with path and cause, except for a file that is simply absent
/// (ENOENT), which is the caller's to report. With a null context the caller reports every failure.
FileDescriptor openOwnFile(const std::string& path, int flags, mode_t mode, const char* context);

/// Whole text of a file that the system only reads: links are followed, but it must lead to a regular file.
/// Absent with errno set when it cannot be opened or is larger than `maxBytes` (EFBIG); `readFailed` (may
/// be null) tells a file that was opened but could not be read.
std::optional<std::string> readFile(const std::string& path, std::size_t maxBytes, bool* readFailed);

/// Most that readFileStart reads of a file.
inline constexpr std::size_t FILE_START_BYTES = std::size_t{16} << 20;

/// Text of a file that describes the host, as far as it can be had: links are followed, but it must lead to a
/// regular file. Of a larger file the first FILE_START_BYTES, and after a read error what was read before it.
/// Absent with errno set when it cannot be opened.
std::optional<std::string> readFileStart(const std::string& path);

/// The rest of an open file. Absent with errno set when it cannot be read or is larger than `maxBytes`
/// (EFBIG).
std::optional<std::string> readRest(int descriptor, std::size_t maxBytes);

/// Why openOwnFile, readFile, readRest or open_debug_log failed, in words: those of the rules above for the
/// numbers that they give, else errorText().
std::string fileFault(int error);

/// The system's words for an error number, for whatever else failed.
std::string errorText(int error);

/// Writes all of `text`. False with errno set when it could not.
[[nodiscard]] bool writeAll(int descriptor, std::string_view text);

/// What the temporary names of replaceFile begin with; short, so that any base name has room beside it.
inline constexpr const char* TEMPORARY_PREFIX = ".tq-new.";

/// Removes temporary files of replaceFile that killed processes left in a directory over a minute ago.
void removeStaleTemporaries(const std::string& directory);

/// Replaces a file whole: a temporary name in the same directory, write, sync, checked close, rename, sync of
/// the directory. After a crash the file is the complete old or the complete new one; temporary files that a
/// killed process left are removed by the first call that finds them a minute old. False with errno set and
/// one level-16 entry with path and cause; the old file is then untouched.
[[nodiscard]] bool replaceFile(const std::string& path, std::string_view text, mode_t mode,
                               const char* context);

/// Names in a directory but "." and "..", in no order; none when it cannot be read.
std::vector<std::string> listDirectory(const std::string& directory);

/// Makes what was created, renamed or removed in a directory last through a power cut. False with errno set;
/// a file system that cannot do it counts as done.
bool syncDirectory(const std::string& directory);

} // namespace tq
