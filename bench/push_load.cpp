// Hosts that push their records as fast as the server takes them.
//
// usage: push-load ADDRESS AUTHORITY_PEM AGENTS AT_ONCE SECONDS CONNECTION SERVER_PID
// AT_ONCE agents of the file AGENTS push side by side, each a changed record every time. CONNECTION is "new"
// (a full handshake for each push) or "kept". Prints {"pushes", "perSecond", "p50Ms", "p99Ms", "failed",
// "cpuMs": <of the server for one push>}.

#include "bench/agent.h"
#include "bench/failure.h"
#include "bench/host_text.h"
#include "bench/https_client.h"
#include "bench/statistics.h"

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <thread>

namespace {

/// A server ends a connection after its thousandth request; this side ends it before.
constexpr int REQUESTS_ON_A_CONNECTION = 900;
constexpr int HTTP_OK = 200;

struct Order {
    std::string address;
    std::string authority;
    std::string agents;
    std::size_t atOnce;
    double seconds;
    bool isKept;
    pid_t server;
};

struct Outcome {
    std::vector<double> milliseconds;
    std::size_t failed = 0;
    std::string fault;
};

class Pusher {
public:
    Pusher(SSL_CTX& context, const Order& order, const bench::Agent& agent, std::size_t number)
        : context_(context), order_(order), agent_(agent), number_(number)
    {
    }

    Outcome run(double end)
    {
        while (bench::now() < end && outcome_.failed < 100) {
            const double begin = bench::now();
            try {
                push();
                outcome_.milliseconds.push_back((bench::now() - begin) * 1e3);
            } catch (const bench::Failure& failure) {
                ++outcome_.failed;
                outcome_.fault = failure.what();
                connection_.reset();
            }
        }
        return std::move(outcome_);
    }

private:
    void push()
    {
        // Changes begin at the time, so that no run of the load pushes what an earlier one has stored.
        static const auto FIRST_CHANGE = static_cast<std::uint64_t>(bench::now() * 1e3);
        const std::string record = bench::recordOf(number_, FIRST_CHANGE + ++pushes_);
        if (!connection_)
            connection_.emplace(context_, order_.address, &agent_);
        const bool isLast = !order_.isKept || pushes_ % REQUESTS_ON_A_CONNECTION == 0;
        const bench::HttpReply reply = connection_->ask({"PUT", agent_.path(), record, isLast});
        if (reply.status != HTTP_OK)
            throw bench::Failure("status " + std::to_string(reply.status) + ": " + reply.body);
        if (isLast)
            connection_.reset();
    }

    SSL_CTX& context_;
    const Order& order_;
    const bench::Agent& agent_;
    std::size_t number_;
    std::uint64_t pushes_ = 0;
    std::optional<bench::HttpsConnection> connection_;
    Outcome outcome_;
};

Outcome pushAll(const Order& order, const std::vector<bench::Agent>& agents, SSL_CTX& context)
{
    std::vector<Outcome> outcomes(order.atOnce);
    std::vector<std::thread> threads;
    const double end = bench::now() + order.seconds;
    for (std::size_t number = 0; number < order.atOnce; ++number) {
        threads.emplace_back(
            [&, number] { outcomes[number] = Pusher(context, order, agents[number], number).run(end); });
    }
    for (std::thread& thread : threads)
        thread.join();
    Outcome all;
    for (Outcome& outcome : outcomes) {
        all.milliseconds.insert(all.milliseconds.end(), outcome.milliseconds.begin(),
                                outcome.milliseconds.end());
        all.failed += outcome.failed;
        all.fault = outcome.fault.empty() ? all.fault : outcome.fault;
    }
    return all;
}

void report(const Order& order)
{
    const std::vector<bench::Agent> agents = bench::readAgents(order.agents);
    if (agents.size() < order.atOnce)
        throw bench::Failure("there are fewer agents than push at once");
    const bench::TlsContext context = bench::makeClientContext(order.authority);
    const double cpu = bench::cpuSecondsOf(order.server);
    const double begin = bench::now();
    Outcome outcome = pushAll(order, agents, *context);
    const double seconds = bench::now() - begin;
    const auto pushes = static_cast<double>(outcome.milliseconds.size());
    if (outcome.milliseconds.empty())
        throw bench::Failure("no push went through: " + outcome.fault);
    std::printf("{\"pushes\": %.0f, \"perSecond\": %.2f, \"p50Ms\": %.3f, \"p99Ms\": %.3f, \"failed\": %zu, "
                "\"cpuMs\": %.4f}\n",
                pushes, pushes / seconds, bench::percentile(outcome.milliseconds, 0.5),
                bench::percentile(outcome.milliseconds, 0.99), outcome.failed,
                (bench::cpuSecondsOf(order.server) - cpu) * 1e3 / pushes);
    if (outcome.failed != 0)
        std::fprintf(stderr, "push-load: %zu pushes failed, the last: %s\n", outcome.failed,
                     outcome.fault.c_str());
}

} // namespace

int main(int argc, char* argv[])
{
    return bench::runProgram("push-load", [&] {
        if (argc != 8)
            throw bench::Failure(
                "usage: push-load ADDRESS AUTHORITY_PEM AGENTS AT_ONCE SECONDS CONNECTION SERVER_PID");
        report({argv[1], argv[2], argv[3], std::strtoul(argv[4], nullptr, 10), std::strtod(argv[5], nullptr),
                std::string(argv[6]) == "kept", static_cast<pid_t>(std::strtol(argv[7], nullptr, 10))});
    });
}
