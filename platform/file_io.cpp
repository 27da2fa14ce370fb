#include "platform/file_io.h"

#include "platform/debuglog.h"
#include "platform/stale_files.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tq {
namespace {

constexpr std::size_t READ_BLOCK = 16384;

std::string directoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

/// Whether an open descriptor is a file that the system may take for its own; errno tells why not.
bool isOwnFile(int descriptor)
{
    struct stat status {};
    if (fstat(descriptor, &status) != 0)
        return false;
    if (!S_ISREG(status.st_mode))
        errno = EINVAL;
    else if (status.st_nlink > 1)
        errno = EMLINK; // writing here would write into a file elsewhere
    else
        return true;
    return false;
}

FileDescriptor openRegular(const std::string& path, int flags, mode_t mode)
{
    const int safeFlags = (flags & ~O_TRUNC) | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    FileDescriptor file(open(path.c_str(), safeFlags, mode));
    if (!file) {
        if (errno == ENXIO || errno == EISDIR)
            errno = EINVAL; // how open() puts it that a fifo, socket or folder stands there
        return file;
    }
    if (isOwnFile(file.get()) && ((flags & O_TRUNC) == 0 || ftruncate(file.get(), 0) == 0))
        return file;
    const int cause = errno;
    file.reset();
    errno = cause;
    return file;
}

/// Opens a file that the system only reads; a link to a regular file is one.
FileDescriptor openForReading(const std::string& path, struct stat& status)
{
    FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file)
        return file;
    int cause = fstat(file.get(), &status) == 0 ? 0 : errno;
    if (cause == 0 && !S_ISREG(status.st_mode))
        cause = EINVAL;
    if (cause != 0) {
        file.reset();
        errno = cause;
    }
    return file;
}

/// Reads until the file's end or until `text` has `size` bytes. False with errno set when a read fails;
/// `text` then has what was read before.
bool readUpTo(int descriptor, std::size_t size, std::string& text)
{
    while (text.size() < size) {
        const std::size_t length = text.size();
        const std::size_t block = std::min(READ_BLOCK, size - length);
        text.resize(length + block);
        const ssize_t got = read(descriptor, text.data() + length, block);
        text.resize(length + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        if (got == 0)
            return true;
        if (got < 0 && errno != EINTR)
            return false;
    }
    return true;
}

/// Writes a new file completely and syncs it. False with errno set.
bool writeNewFile(const std::string& path, std::string_view text, mode_t mode)
{
    FileDescriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (!file || !writeAll(file.get(), text) || fsync(file.get()) != 0)
        return false;
    // Linux has closed the descriptor even when it says EINTR.
    return close(file.release()) == 0 || errno == EINTR;
}

} // namespace

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept
{
    if (this != &other)
        reset(other.release());
    return *this;
}

int FileDescriptor::release()
{
    return std::exchange(fd_, -1);
}

void FileDescriptor::reset(int descriptor)
{
    if (fd_ >= 0)
        close(fd_);
    fd_ = descriptor;
}

FileDescriptor openOwnFile(const std::string& path, int flags, mode_t mode, const char* context)
{
    FileDescriptor file = openRegular(path, flags, mode);
    if (!file && errno != ENOENT && context) {
        const int cause = errno;
        LogLine(LogLevel::error, context) << "Unable to open " << path << ": " << fileFault(cause);
        errno = cause;
    }
    return file;
}

std::optional<std::string> readFile(const std::string& path, std::size_t maxBytes, bool* readFailed)
{
    if (readFailed)
        *readFailed = false;
    struct stat status {};
    const FileDescriptor file = openForReading(path, status);
    if (!file)
        return std::nullopt;
    if (status.st_size > 0 && static_cast<std::size_t>(status.st_size) > maxBytes) {
        errno = EFBIG;
        return std::nullopt;
    }
    std::optional<std::string> text = readRest(file.get(), maxBytes);
    if (!text && readFailed)
        *readFailed = errno != EFBIG;
    return text;
}

std::optional<std::string> readFileStart(const std::string& path)
{
    struct stat status {};
    const FileDescriptor file = openForReading(path, status);
    if (!file)
        return std::nullopt;
    std::string text;
    // A read that fails only ends the text: the lines before it hold.
    static_cast<void>(readUpTo(file.get(), FILE_START_BYTES, text));
    return text;
}

std::optional<std::string> readRest(int descriptor, std::size_t maxBytes)
{
    std::string text;
    if (!readUpTo(descriptor, maxBytes + 1, text))
        return std::nullopt;
    if (text.size() > maxBytes) {
        errno = EFBIG;
        return std::nullopt;
    }
    return text;
}

std::string fileFault(int error)
{
    switch (error) {
    case ELOOP:
        return "it is a symbolic link";
    case EMLINK:
        return "it has a second hard link";
    case EINVAL:
        return "it is not a regular file";
    case EFBIG:
        return "it is too large";
    default:
        return errorText(error);
    }
}

std::string errorText(int error)
{
    return std::generic_category().message(error);
}

bool writeAll(int descriptor, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = write(descriptor, text.data(), text.size());
        if (written > 0)
            text.remove_prefix(static_cast<std::size_t>(written));
        else if (written == 0 || errno != EINTR) {
            errno = written == 0 ? EIO : errno;
            return false;
        }
    }
    return true;
}

void removeStaleTemporaries(const std::string& directory)
{
    removeStaleFiles(directory, TEMPORARY_PREFIX);
}

bool replaceFile(const std::string& path, std::string_view text, mode_t mode, const char* context)
{
    const std::string directory = directoryOf(path);
    removeStaleTemporaries(directory);
    const std::string temporary = directory + "/" + uniqueFileName(TEMPORARY_PREFIX);
    if (!writeNewFile(temporary, text, mode) || rename(temporary.c_str(), path.c_str()) != 0) {
        const int cause = errno;
        unlink(temporary.c_str());
        LogLine(LogLevel::error, context) << "Unable to write " << path << ": " << errorText(cause);
        errno = cause;
        return false;
    }
    if (!syncDirectory(directory)) // the new file stands, so this is no failure towards the caller
        LogLine(LogLevel::warning, context) << "Unable to sync " << directory << ": " << errorText(errno);
    return true;
}

std::vector<std::string> listDirectory(const std::string& directory)
{
    std::vector<std::string> names;
    const DirectoryHandle entries(opendir(directory.c_str()));
    while (const dirent* entry = entries ? readdir(entries.get()) : nullptr) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
    }
    return names;
}

bool syncDirectory(const std::string& directory)
{
    const FileDescriptor opened(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return opened && (fsync(opened.get()) == 0 || errno == EINVAL || errno == EROFS);
}

} // namespace tq
