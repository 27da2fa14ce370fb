// Reads all hosts from a master server and looks at nothing but the clock.
//
// usage: fetch-list ADDRESS AUTHORITY_PEM AGENTS SERVER_PID
// Prints {"ms": <from the reply's first byte to its last>, "firstMs": <from the request to the first byte>,
// "bytes": <of the reply>, "cpuMs": <of the server>, "ownCpuMs": <of this program>}.

#include "bench/agent.h"
#include "bench/failure.h"
#include "bench/https_client.h"
#include "bench/statistics.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

int main(int argc, char* argv[])
{
    return bench::runProgram("fetch-list", [&] {
        if (argc != 5)
            throw bench::Failure("usage: fetch-list ADDRESS AUTHORITY_PEM AGENTS SERVER_PID");
        const auto server = static_cast<pid_t>(std::strtol(argv[4], nullptr, 10));
        const bench::TlsContext context = bench::makeClientContext(argv[2]);
        const std::vector<bench::Agent> agents = bench::readAgents(argv[3]);
        bench::HttpsConnection connection(*context, argv[1], &agents.front());
        std::vector<char> part(std::size_t{1} << 18);
        const double cpu = bench::cpuSecondsOf(server);
        const double ownCpu = bench::cpuSecondsOf(getpid());
        const double asked = bench::now();
        connection.send({"GET", "/torquenix/config/hosts/", "", true});
        std::size_t bytes = connection.read(part.data(), part.size());
        const double first = bench::now();
        if (std::string_view(part.data(), bytes).substr(0, 12) != "HTTP/1.1 200")
            throw bench::Failure("the list of hosts was refused");
        while (const std::size_t got = connection.read(part.data(), part.size()))
            bytes += got;
        const double last = bench::now();
        std::printf(
            "{\"ms\": %.3f, \"firstMs\": %.3f, \"bytes\": %zu, \"cpuMs\": %.3f, \"ownCpuMs\": %.3f}\n",
            (last - first) * 1e3, (first - asked) * 1e3, bytes, (bench::cpuSecondsOf(server) - cpu) * 1e3,
            (bench::cpuSecondsOf(getpid()) - ownCpu) * 1e3);
    });
}
