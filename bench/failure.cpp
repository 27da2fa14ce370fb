#include "bench/failure.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <openssl/err.h>

namespace bench {

Failure systemFailure(const std::string& what)
{
    return Failure(what + ": " + std::strerror(errno));
}

Failure tlsFailure(const std::string& what)
{
    std::array<char, 256> text{};
    ERR_error_string_n(ERR_get_error(), text.data(), text.size());
    return Failure(what + ": " + text.data());
}

int runProgram(const char* name, const std::function<void()>& work)
{
    try {
        work();
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", name, failure.what());
        return 1;
    }
}

} // namespace bench
