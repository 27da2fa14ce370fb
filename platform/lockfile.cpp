#include "platform/lockfile.h"

#include "platform/debuglog.h"
#include "platform/file_io.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <utility>

namespace {

constexpr const char* CONTEXT = "TQLockFile";

enum class Attempt { taken, busy, replaced, failed };

/// Whether the path still leads to this file: who deletes or replaces a lock file while it is held would
/// otherwise let two holders in.
bool isStillAt(const std::string& path, int descriptor)
{
    struct stat locked {};
    struct stat named {};
    return fstat(descriptor, &locked) == 0 && lstat(path.c_str(), &named) == 0 &&
           locked.st_dev == named.st_dev && locked.st_ino == named.st_ino;
}

/// `error` receives the cause of an attempt that failed.
Attempt tryLock(const std::string& path, tq::FileDescriptor& file, int& error)
{
    if (!file) {
        file = tq::openOwnFile(path, O_RDWR | O_CREAT, 0600, CONTEXT);
        if (!file) {
            error = errno;
            if (error == ENOENT) // only a missing folder gives it here
                LogLine(LogLevel::error, CONTEXT)
                    << "Unable to open " << path << ": " << tq::errorText(error);
            return Attempt::failed;
        }
    }
    if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK || errno == EINTR)
            return Attempt::busy;
        error = errno;
        LogLine(LogLevel::error, CONTEXT) << "Unable to lock " << path << ": " << tq::errorText(error);
        return Attempt::failed;
    }
    return isStillAt(path, file.get()) ? Attempt::taken : Attempt::replaced;
}

void addMilliseconds(timespec& time, int milliseconds)
{
    constexpr long NANOSECONDS = 1'000'000'000;
    time.tv_sec += milliseconds / 1000;
    time.tv_nsec += milliseconds % 1000 * 1'000'000L;
    if (time.tv_nsec >= NANOSECONDS) {
        time.tv_nsec -= NANOSECONDS;
        ++time.tv_sec;
    }
}

} // namespace

TQLockFile::TQLockFile(const std::string& path, int tries, int waitMs)
{
    // Attempts have fixed times, so that a slow one does not put off the answer.
    timespec next{};
    clock_gettime(CLOCK_MONOTONIC, &next);
    tq::FileDescriptor file;
    error = EWOULDBLOCK;
    for (int attempt = 0; attempt < tries; ++attempt) {
        const Attempt result = tryLock(path, file, error);
        if (result == Attempt::failed)
            return;
        if (result == Attempt::taken) {
            error = 0;
            futimens(file.get(), nullptr);
            fd = file.release();
            return;
        }
        if (result == Attempt::replaced) {
            file.reset();
            continue;
        }
        if (attempt + 1 == tries || waitMs <= 0)
            continue;
        addMilliseconds(next, waitMs);
        while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr) == EINTR) {
        }
    }
}

TQLockFile::~TQLockFile()
{
    tq::FileDescriptor(std::exchange(fd, -1)).reset();
}
