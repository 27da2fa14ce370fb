// The reply of a full read of a made-up fleet.
//
// usage: make-hosts NUMBER >FILE

#include "bench/failure.h"
#include "bench/host_text.h"

#include <cstdio>
#include <cstdlib>

namespace {

void print(const std::string& text)
{
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size())
        throw bench::systemFailure("cannot write to standard output");
}

} // namespace

int main(int argc, char* argv[])
{
    return bench::runProgram("make-hosts", [&] {
        if (argc != 2)
            throw bench::Failure("usage: make-hosts NUMBER");
        const std::uint64_t count = std::strtoull(argv[1], nullptr, 10);
        print("{\"hosts\":[");
        for (std::uint64_t host = 0; host < count; ++host)
            print((host == 0 ? "" : ",") + bench::listedRecordOf(host));
        print("]}");
        if (std::fflush(stdout) != 0)
            throw bench::systemFailure("cannot write to standard output");
    });
}
