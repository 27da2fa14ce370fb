/// Calls of the system that fail when a test wants them to. accept4() and flock() are wrapped by the linker
/// (CMakeLists.txt here), operator new is replaced.
#pragma once

#include <atomic>

namespace tests {

/// What the next accept4() fails with, once; 0: it does not.
inline std::atomic<int> acceptFault = 0;

/// What every flock() fails with; 0: it does not.
inline std::atomic<int> lockFault = 0;

/// Makes operator new fail in this thread while it lives.
class FailingAllocation {
public:
    FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
    ~FailingAllocation();
};

} // namespace tests
