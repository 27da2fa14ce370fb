/// Calls of the system that fail when a test wants them to. accept4(), flock(), rename() and fsync() are
/// wrapped by the linker (CMakeLists.txt here), operator new is replaced.
#pragma once

#include <atomic>
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

/// Makes operator new fail in this thread while it lives.
class FailingAllocation {
public:
    FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
    ~FailingAllocation();
};

} // namespace tests
