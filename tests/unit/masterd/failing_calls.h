/// Calls of the system that fail, or wait, when a test wants them to. accept4(), flock(), rename() and
/// fsync() are wrapped by the linker (CMakeLists.txt here); operator new and fdatasync(), which SQLite calls,
/// are replaced; SQLite lets its writing be replaced by itself.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <sys/types.h>

namespace tests {

/// What the next accept4() fails with, once; 0: it does not.
inline std::atomic<int> acceptFault = 0;

/// What every flock() fails with; 0: it does not.
inline std::atomic<int> lockFault = 0;

/// The name that the last rename() began with.
inline std::string lastRenamed;

/// Inode numbers of what fsync() was called for.
inline std::set<ino_t> synced;

/// How often fdatasync() was called: SQLite's syncs.
inline std::atomic<int> syncs = 0;

/// What every fdatasync() fails with; 0: it does not.
inline std::atomic<int> syncFault = 0;

/// Holds every fdatasync() up while it lives.
class HeldSyncs {
public:
    HeldSyncs();
    HeldSyncs(const HeldSyncs&) = delete;
    HeldSyncs& operator=(const HeldSyncs&) = delete;
    ~HeldSyncs();

    /// Returns when a sync is held up; false when none comes for a long time.
    [[nodiscard]] bool await();
    /// Lets one go on: the one that is held up, or the next that comes.
    void letOneGo();

    /// What fdatasync() does first.
    static void waitWhileHeld();

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int held_ = 0;
    int mayGo_ = 0;
    bool isOver_ = false;
};

/// Makes every write of SQLite to a file fail for want of room while it lives.
class FullDisk {
public:
    FullDisk();
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
    ~FullDisk();
};

/// Makes operator new fail in this thread while it lives.
class FailingAllocation {
public:
    FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
    ~FailingAllocation();
};

} // namespace tests
