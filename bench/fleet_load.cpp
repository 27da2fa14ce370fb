// A part of a fleet: hosts whose records have changed, each at its own time, each as the real command goes
// about it: a connection with a token and the record, and another one with the token's renewal.
//
// usage: fleet-load ADDRESS AUTHORITY_PEM AGENTS THREADS START <SCHEDULE >UPDATES
// START is a pipe with a name: once the hosts are ready the second of the monotonic clock at which they start
// is read from it. A line of SCHEDULE is a host's place in AGENTS (from 0) and its milliseconds after START,
// in ascending order; a host with no free thread at its time starts late, and its times count from when it
// should have. Prints a line for each update: {"doneMs", "tokenMs", "recordMs", "renewalMs"}, all from the
// host's time on, or {"failed": TEXT}.

#include "bench/agent.h"
#include "bench/failure.h"
#include "bench/host_text.h"
#include "bench/https_client.h"
#include "bench/statistics.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <jansson.h>
#include <mutex>
#include <thread>

namespace {

constexpr const char* TOKENS = "/torquenix/security/tokens";

struct Update {
    std::size_t agent;
    double time; ///< seconds after the start, and once that is known of the monotonic clock
};

void sleepUntil(double time)
{
    if (const double left = time - bench::now(); left > 0)
        std::this_thread::sleep_for(std::chrono::duration<double>(left));
}

std::string requireSuccess(const bench::HttpReply& reply)
{
    if (reply.status < 200 || reply.status > 299)
        throw bench::Failure("status " + std::to_string(reply.status) + ": " + reply.body);
    return reply.body;
}

/// The token of a reply of the token service.
std::string tokenIn(const std::string& body)
{
    json_error_t error;
    json_t* object = json_loads(body.c_str(), 0, &error);
    const char* text = json_string_value(json_object_get(object, "token"));
    std::string token = text != nullptr ? text : "";
    json_decref(object);
    return token;
}

class Fleet {
public:
    Fleet(const std::string& address, const std::string& authority, const std::string& agents)
        : address_(address), context_(bench::makeClientContext(authority)), agents_(bench::readAgents(agents))
    {
    }

    void readSchedule()
    {
        double milliseconds = 0;
        for (Update update{}; std::cin >> update.agent >> milliseconds;) {
            update.time = milliseconds / 1e3;
            if (update.agent >= agents_.size())
                throw bench::Failure("the schedule names a host that is not there");
            updates_.push_back(update);
        }
    }

    void run(std::size_t threads, double start)
    {
        for (Update& update : updates_)
            update.time += start;
        std::vector<std::thread> workers;
        for (std::size_t i = 0; i < threads; ++i)
            workers.emplace_back([this] { work(); });
        for (std::thread& worker : workers)
            worker.join();
    }

private:
    void work()
    {
        for (std::size_t number = next_++; number < updates_.size(); number = next_++) {
            sleepUntil(updates_[number].time);
            try {
                play(updates_[number]);
            } catch (const std::exception& failure) {
                printFailure(failure.what());
            }
        }
    }

    void play(const Update& update)
    {
        bench::Agent& agent = agents_[update.agent];
        const auto elapsed = [&] { return (bench::now() - update.time) * 1e3; };
        double token = 0;
        double record = 0;
        {
            bench::HttpsConnection connection(*context_, address_, &agent);
            connection.setToken(tokenIn(requireSuccess(connection.ask({"POST", TOKENS, "{}", false}))));
            token = elapsed();
            const auto change = static_cast<std::uint64_t>(update.time * 1e3);
            requireSuccess(
                connection.ask({"PUT", agent.path(), bench::recordOf(update.agent, change), false}));
            record = elapsed();
        }
        requireSuccess(
            bench::HttpsConnection(*context_, address_, &agent).ask({"POST", TOKENS, "{}", false}));
        const std::lock_guard lock(printing_);
        std::printf("{\"doneMs\": %.3f, \"tokenMs\": %.3f, \"recordMs\": %.3f, \"renewalMs\": %.3f}\n",
                    elapsed(), token, record - token, elapsed() - record);
    }

    void printFailure(const char* text)
    {
        json_t* object = json_pack("{s:s}", "failed", text);
        const std::lock_guard lock(printing_);
        json_dumpf(object, stdout, JSON_COMPACT);
        std::putchar('\n');
        json_decref(object);
    }

    std::string address_;
    bench::TlsContext context_;
    std::vector<bench::Agent> agents_;
    std::vector<Update> updates_;
    std::atomic<std::size_t> next_ = 0;
    std::mutex printing_;
};

} // namespace

int main(int argc, char* argv[])
{
    return bench::runProgram("fleet-load", [&] {
        if (argc != 6)
            throw bench::Failure("usage: fleet-load ADDRESS AUTHORITY_PEM AGENTS THREADS START");
        Fleet fleet(argv[1], argv[2], argv[3]);
        fleet.readSchedule();
        double start = 0;
        if (!(std::ifstream(argv[5]) >> start))
            throw bench::Failure("nobody said when to start");
        fleet.run(std::strtoul(argv[4], nullptr, 10), start);
    });
}
