#include "tests/unit/fileutils/recorded_writes.h"

#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace fakes {
namespace {

WriteRecorder* active = nullptr;

void record(int descriptor, const void* bytes, std::size_t size)
{
    if (active && descriptor > STDERR_FILENO && size > 0)
        active->writes.push_back({syscall(SYS_lseek, descriptor, 0, SEEK_CUR),
                                  std::string(static_cast<const char*>(bytes), size)});
}

} // namespace

WriteRecorder::WriteRecorder()
{
    active = this;
}

WriteRecorder::~WriteRecorder()
{
    active = nullptr;
}

} // namespace fakes

extern "C" ssize_t write(int descriptor, const void* bytes, size_t size)
{
    fakes::record(descriptor, bytes, size);
    return syscall(SYS_write, descriptor, bytes, size);
}

extern "C" ssize_t writev(int descriptor, const iovec* pieces, int count)
{
    for (int i = 0; i < count; ++i)
        fakes::record(descriptor, pieces[i].iov_base, pieces[i].iov_len);
    return syscall(SYS_writev, descriptor, pieces, count);
}

extern "C" off64_t lseek64(int descriptor, off64_t offset, int whence) noexcept
{
    if (fakes::active && offset == 0 && whence == SEEK_SET)
        ++fakes::active->seeksToStart;
    return syscall(SYS_lseek, descriptor, offset, whence);
}
