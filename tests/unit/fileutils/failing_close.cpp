#include "tests/unit/fileutils/failing_close.h"

#include <cerrno>
#include <cstdio>
#include <dlfcn.h>
#include <utility>

namespace fakes {
namespace {

bool failing = false;

} // namespace

void failNextClose()
{
    failing = true;
}

} // namespace fakes

extern "C" int fclose(FILE* file)
{
    using Close = int (*)(FILE*);
    static const auto realClose = reinterpret_cast<Close>(dlsym(RTLD_NEXT, "fclose"));
    const int result = realClose(file);
    if (!std::exchange(fakes::failing, false))
        return result;
    errno = EIO;
    return EOF;
}
