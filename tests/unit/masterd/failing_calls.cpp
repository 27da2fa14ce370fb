#include "tests/unit/masterd/failing_calls.h"

#include <cerrno>
#include <cstdlib>
#include <new>
#include <sys/socket.h>
#include <sys/stat.h>

namespace {

thread_local bool isAllocationFailing = false;

} // namespace

namespace tests {

FailingAllocation::FailingAllocation()
{
    isAllocationFailing = true;
}

FailingAllocation::~FailingAllocation()
{
    isAllocationFailing = false;
}

} // namespace tests

void* operator new(std::size_t size)
{
    void* memory = isAllocationFailing ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

/// Without it a sanitizer's own would go with the operator delete of here.
void* operator new(std::size_t size, const std::nothrow_t& /*unused*/) noexcept
{
    return isAllocationFailing ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}

extern "C" {

int __real_accept4(int socket, sockaddr* address, socklen_t* length, int flags);
int __real_flock(int descriptor, int operation);
int __real_rename(const char* from, const char* to);
int __real_fsync(int descriptor);

int __wrap_accept4(int socket, sockaddr* address, socklen_t* length, int flags)
{
    if (const int fault = tests::acceptFault.exchange(0); fault != 0) {
        errno = fault;
        return -1;
    }
    return __real_accept4(socket, address, length, flags);
}

int __wrap_flock(int descriptor, int operation)
{
    if (const int fault = tests::lockFault; fault != 0) {
        errno = fault;
        return -1;
    }
    return __real_flock(descriptor, operation);
}

int __wrap_rename(const char* from, const char* to)
{
    tests::lastRenamed = from;
    return __real_rename(from, to);
}

int __wrap_fsync(int descriptor)
{
    struct stat status {};
    if (fstat(descriptor, &status) == 0)
        tests::synced.insert(status.st_ino);
    return __real_fsync(descriptor);
}
}
