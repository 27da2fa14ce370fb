#include "platform/lockfile.h"

#include "tests/fakes/log/recording_log.h"
#include "tests/unit/test_files.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

using fakes::countRecorded;
using fakes::recordedLog;

namespace {

class LockFile : public testing::Test {
protected:
    LockFile() { recordedLog().clear(); }

    const std::string directory = tests::freshDirectory("/tmp/lock");
    const std::string path = directory + "/some.lock";
};

/// A child process that holds a lock until it is killed.
class Holder {
public:
    explicit Holder(const std::string& path)
    {
        int ready[2];
        if (pipe(ready) != 0)
            throw std::runtime_error("pipe");
        process_ = fork();
        if (process_ == 0) {
            const TQLockFile lock(path, 1, 0);
            const char held = lock.fd >= 0 ? 'y' : 'n';
            if (write(ready[1], &held, 1) != 1)
                _exit(1);
            pause();
            _exit(0);
        }
        char held = 'n';
        if (read(ready[0], &held, 1) != 1 || held != 'y')
            throw std::runtime_error("the child has no lock");
        close(ready[0]);
        close(ready[1]);
    }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    ~Holder() { end(); }

    void stop() const
    {
        kill(process_, SIGSTOP);
        waitpid(process_, nullptr, WUNTRACED);
    }

    void end()
    {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
        process_ = -1;
    }

private:
    pid_t process_ = -1;
};

/// Milliseconds that a busy lock takes to be reported: the shortest of several, since other work of the
/// machine may hold up one.
int shortestRefusal(const std::string& path)
{
    using std::chrono::steady_clock;
    auto shortest = steady_clock::duration::max();
    for (int i = 0; i < 10; ++i) {
        const auto begin = steady_clock::now();
        const int descriptor = TQLockFile(path, 10, 5).fd;
        shortest = std::min(shortest, steady_clock::now() - begin);
        EXPECT_EQ(descriptor, -1);
    }
    return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(shortest).count());
}

} // namespace

TEST_F(LockFile, DescriptorIsTheFirstMember)
{
    static_assert(std::is_standard_layout_v<TQLockFile>);
    EXPECT_EQ(offsetof(TQLockFile, fd), 0U);
    static_assert(!std::is_copy_constructible_v<TQLockFile> && !std::is_copy_assignable_v<TQLockFile>);
}

TEST_F(LockFile, MakesAFileOfMode0600ThatStaysWhenTheLockGoes)
{
    {
        const TQLockFile lock(path, 10, 5);
        ASSERT_GE(lock.fd, 0);
        EXPECT_EQ(tests::modeOf(path), 0600U);
    }
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_GE(TQLockFile(path, 1, 0).fd, 0);
    EXPECT_THAT(recordedLog(), testing::ElementsAre());
}

TEST_F(LockFile, NoChildInheritsIt)
{
    const TQLockFile lock(path, 1, 0);
    EXPECT_NE(fcntl(lock.fd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(LockFile, SecondHolderInTheSameProcessIsRefused)
{
    const TQLockFile first(path, 1, 0);
    EXPECT_EQ(TQLockFile(path, 1, 0).fd, -1);
    EXPECT_GE(first.fd, 0);
}

TEST_F(LockFile, BusyLockIsReportedAfterAllTriesAndWithin50Milliseconds)
{
    const Holder holder(path);
    EXPECT_THAT(shortestRefusal(path), testing::AllOf(testing::Ge(44), testing::Le(50)));
}

TEST_F(LockFile, StoppedHolderKeepsItsLockAndIsReportedAsQuickly)
{
    const Holder holder(path);
    holder.stop();
    EXPECT_LE(shortestRefusal(path), 50);
}

TEST_F(LockFile, KilledHolderFreesItAtOnce)
{
    Holder holder(path);
    holder.end();
    EXPECT_GE(TQLockFile(path, 1, 0).fd, 0);
}

TEST_F(LockFile, LockThatIsFreedDuringTheTriesIsTaken)
{
    auto first = std::make_unique<TQLockFile>(path, 1, 0);
    const pid_t child = fork();
    if (child == 0) {
        usleep(20000);
        _exit(0); // the last descriptor of the lock goes with the child
    }
    first.reset();
    const TQLockFile second(path, 1000, 5);
    waitpid(child, nullptr, 0);
    EXPECT_GE(second.fd, 0);
    EXPECT_EQ(second.error, 0);
}

TEST_F(LockFile, TakingItSetsTheFilesTime)
{
    tests::writeText(path, "", 0600);
    const timespec longAgo[2] = {{1000, 0}, {1000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), longAgo, 0), 0);
    const TQLockFile lock(path, 1, 0);
    struct stat status {};
    ASSERT_EQ(fstat(lock.fd, &status), 0);
    EXPECT_LE(std::time(nullptr) - status.st_mtime, 5);
}

TEST_F(LockFile, BusyAttemptLeavesTheFilesTime)
{
    const Holder holder(path);
    const timespec longAgo[2] = {{1000, 0}, {1000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), longAgo, 0), 0);
    EXPECT_EQ(TQLockFile(path, 2, 1).fd, -1);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mtime, 1000);
}

TEST_F(LockFile, FileThatWasReplacedWhileHeldDoesNotLockTheOldOne)
{
    // Whoever waited for the deleted file holds nothing: the name leads to another file by now.
    const int old = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(old, LOCK_EX), 0);
    const pid_t waiter = fork();
    if (waiter == 0) {
        close(old);
        const TQLockFile lock(path, 200, 5);
        struct stat locked {};
        struct stat named {};
        const bool same = lock.fd >= 0 && fstat(lock.fd, &locked) == 0 && stat(path.c_str(), &named) == 0 &&
                          locked.st_ino == named.st_ino;
        _exit(same ? 0 : 1);
    }
    usleep(50000); // the child has the old file open by now
    unlink(path.c_str());
    tests::writeText(path, "", 0600);
    close(old);
    int status = -1;
    ASSERT_EQ(waitpid(waiter, &status, 0), waiter);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(LockFile, WhatIsNoRegularFileIsRefusedWithOneEntry)
{
    std::filesystem::create_symlink("/tmp/elsewhere", path);
    EXPECT_EQ(TQLockFile(path, 10, 5).fd, -1);
    EXPECT_EQ(countRecorded(16, path + ": it is a symbolic link"), 1U);
    EXPECT_FALSE(std::filesystem::exists("/tmp/elsewhere"));

    tests::freshDirectory(directory);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(TQLockFile(path, 10, 5).fd, -1);
    EXPECT_EQ(countRecorded(16, path + ": it is not a regular file"), 1U);

    tests::freshDirectory(path);
    EXPECT_EQ(TQLockFile(path, 10, 5).fd, -1);
    EXPECT_EQ(TQLockFile("/dev/null", 10, 5).fd, -1);
    EXPECT_EQ(recordedLog().size(), 4U);
}

TEST_F(LockFile, TellsABusyLockFromOneThatFailed)
{
    const TQLockFile held(path, 1, 0);
    EXPECT_EQ(held.error, 0);
    EXPECT_EQ(TQLockFile(path, 2, 1).error, EWOULDBLOCK);
    EXPECT_EQ(TQLockFile(path, 0, 1).error, EWOULDBLOCK);
    std::filesystem::create_symlink(path, directory + "/link");
    EXPECT_EQ(TQLockFile(directory + "/link", 1, 0).error, ELOOP);
    EXPECT_EQ(TQLockFile(directory + "/none/some.lock", 1, 0).error, ENOENT);
}

TEST_F(LockFile, MissingFolderIsRefusedWithOneEntry)
{
    EXPECT_EQ(TQLockFile(directory + "/none/some.lock", 10, 5).fd, -1);
    EXPECT_EQ(countRecorded(16, "No such file or directory"), 1U);
    EXPECT_EQ(recordedLog().size(), 1U);
}

TEST_F(LockFile, NoTriesTakeNothing)
{
    EXPECT_EQ(TQLockFile(path, 0, 5).fd, -1);
    EXPECT_EQ(TQLockFile(path, -1, -1).fd, -1);
    EXPECT_GE(TQLockFile(path, 2, -1).fd, 0);
}
