// Counts the syncs of a process into the file that TQ_BENCH_SYNCS names: 8 bytes, the number so far.
//
// A library to be loaded before all others (LD_PRELOAD); the calls themselves go on to the kernel.

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::atomic<std::uint64_t>* counter = nullptr;

/// At load: the program may change its environment later.
__attribute__((constructor)) void openCounter()
{
    const char* path = std::getenv("TQ_BENCH_SYNCS");
    const int file = path != nullptr ? open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600) : -1;
    if (file < 0 || ftruncate(file, sizeof *counter) != 0)
        return;
    void* page = mmap(nullptr, sizeof *counter, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (page != MAP_FAILED)
        counter = static_cast<std::atomic<std::uint64_t>*>(page);
}

int counted(long call, int descriptor)
{
    if (counter != nullptr)
        ++*counter;
    return static_cast<int>(syscall(call, descriptor));
}

} // namespace

extern "C" int fsync(int descriptor)
{
    return counted(SYS_fsync, descriptor);
}

extern "C" int fdatasync(int descriptor)
{
    return counted(SYS_fdatasync, descriptor);
}
