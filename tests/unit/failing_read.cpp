#include "tests/unit/failing_read.h"

#include <cerrno>
#include <optional>
#include <sys/types.h>
#include <unistd.h>

namespace {

/// Calls that are still handed on; without a value all are.
std::optional<int> callsLeft;

} // namespace

ReadsFailAfter::ReadsFailAfter(int calls)
{
    callsLeft = calls;
}

ReadsFailAfter::~ReadsFailAfter()
{
    callsLeft.reset();
}

// The linker's names for a call that is wrapped and for what stands behind it.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" ssize_t __real_read(int descriptor, void* buffer, size_t size);

extern "C" ssize_t __wrap_read(int descriptor, void* buffer, size_t size)
{
    if (callsLeft && (*callsLeft)-- <= 0) {
        errno = EIO;
        return -1;
    }
    return __real_read(descriptor, buffer, size);
}
// NOLINTEND(bugprone-reserved-identifier)
