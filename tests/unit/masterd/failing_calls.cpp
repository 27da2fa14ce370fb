#include "tests/unit/masterd/failing_calls.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <new>
#include <sqlite3.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

thread_local bool isAllocationFailing = false;

std::mutex heldSyncsMutex;
tests::HeldSyncs* heldSyncs = nullptr;

/// SQLite's names for the call that it writes with; which one depends on how it was built.
constexpr std::array<const char*, 2> WRITE_CALLS{"pwrite", "pwrite64"};

ssize_t refuseToWrite(int /*descriptor*/, const void* /*data*/, std::size_t /*size*/, off_t /*offset*/)
{
    errno = ENOSPC;
    return -1;
}

/// Null: SQLite's own calls again.
void setWriteCalls(ssize_t (*call)(int, const void*, std::size_t, off_t))
{
    sqlite3_vfs* const system = sqlite3_vfs_find(nullptr);
    for (const char* name : WRITE_CALLS)
        system->xSetSystemCall(system, name, reinterpret_cast<sqlite3_syscall_ptr>(call));
}

} // namespace

namespace tests {

HeldSyncs::HeldSyncs()
{
    const std::lock_guard lock(heldSyncsMutex);
    heldSyncs = this;
}

HeldSyncs::~HeldSyncs()
{
    {
        const std::lock_guard lock(heldSyncsMutex);
        heldSyncs = nullptr;
    }
    std::unique_lock lock(mutex_);
    isOver_ = true;
    changed_.notify_all();
    changed_.wait(lock, [this] { return held_ == 0; });
}

bool HeldSyncs::await()
{
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(60), [this] { return held_ > mayGo_; });
}

void HeldSyncs::letOneGo()
{
    const std::lock_guard lock(mutex_);
    ++mayGo_;
    changed_.notify_all();
}

void HeldSyncs::waitWhileHeld()
{
    std::unique_lock owner(heldSyncsMutex);
    if (heldSyncs == nullptr)
        return;
    HeldSyncs& held = *heldSyncs;
    std::unique_lock lock(held.mutex_); // before the other is free: it lives until this one has gone
    owner.unlock();
    ++held.held_;
    held.changed_.notify_all();
    held.changed_.wait(lock, [&] { return held.isOver_ || held.mayGo_ > 0; });
    if (!held.isOver_)
        --held.mayGo_;
    --held.held_;
    held.changed_.notify_all();
}

FullDisk::FullDisk()
{
    setWriteCalls(refuseToWrite);
}

FullDisk::~FullDisk()
{
    setWriteCalls(nullptr);
}

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

int fdatasync(int descriptor)
{
    ++tests::syncs;
    tests::HeldSyncs::waitWhileHeld();
    if (const int fault = tests::syncFault; fault != 0) {
        errno = fault;
        return -1;
    }
    return static_cast<int>(syscall(SYS_fdatasync, descriptor));
}

int __wrap_fsync(int descriptor)
{
    struct stat status {};
    if (fstat(descriptor, &status) == 0)
        tests::synced.insert(status.st_ino);
    return __real_fsync(descriptor);
}
}
