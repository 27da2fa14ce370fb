// Enrols hosts at a real master server, each with a key of its own, and asks a token for each.
//
// usage: enrol-agents ADDRESS AUTHORITY_PEM THREADS <INVITATIONS >AGENTS
// A line of INVITATIONS is a host's name, a blank and its invitation.

#include "bench/agent.h"
#include "bench/failure.h"
#include "bench/https_client.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <jansson.h>
#include <mutex>
#include <thread>

namespace {

struct Invited {
    std::string hostName;
    std::string invitation;
};

std::string requireText(const bench::HttpReply& reply, const char* key)
{
    json_error_t error;
    json_t* object = json_loads(reply.body.c_str(), 0, &error);
    const char* text = json_string_value(json_object_get(object, key));
    std::string found = text != nullptr ? text : "";
    json_decref(object);
    if (found.empty())
        throw bench::Failure("status " + std::to_string(reply.status) + ": " + reply.body);
    return found;
}

std::string enrolmentBody(const Invited& host, const std::string& request)
{
    json_t* object =
        json_pack("{s:s, s:s}", "invitation", host.invitation.c_str(), "certificateRequest", request.c_str());
    char* text = json_dumps(object, JSON_COMPACT);
    std::string body(text);
    std::free(text);
    json_decref(object);
    return body;
}

bench::Agent enrol(SSL_CTX& context, const std::string& address, const Invited& host)
{
    bench::Agent agent;
    agent.hostName = host.hostName;
    agent.key = bench::makeKey();
    const std::string body = enrolmentBody(host, bench::makeCertificateRequest(*agent.key, host.hostName));
    const bench::HttpReply enrolled = bench::HttpsConnection(context, address, nullptr)
                                          .ask({"POST", "/torquenix/security/enrollments", body});
    agent.hostId = requireText(enrolled, "hostId");
    agent.certificate = bench::parseCertificate(requireText(enrolled, "certificate"));
    agent.token = requireText(
        bench::HttpsConnection(context, address, &agent).ask({"POST", "/torquenix/security/tokens", "{}"}),
        "token");
    return agent;
}

std::vector<Invited> readInvitations()
{
    std::vector<Invited> hosts;
    for (Invited host; std::cin >> host.hostName >> host.invitation;)
        hosts.push_back(host);
    return hosts;
}

void enrolAll(const std::string& address, const std::string& authority, std::size_t threads)
{
    const bench::TlsContext context = bench::makeClientContext(authority);
    const std::vector<Invited> hosts = readInvitations();
    std::atomic<std::size_t> next = 0;
    std::atomic<bool> failed = false;
    std::mutex printing;
    const auto work = [&] {
        for (std::size_t number = next++; number < hosts.size() && !failed; number = next++) {
            const int status = bench::runProgram("enrol-agents", [&] {
                const std::string line = bench::toLine(enrol(*context, address, hosts[number]));
                const std::lock_guard lock(printing);
                std::puts(line.c_str());
            });
            failed = failed || status != 0;
        }
    };
    std::vector<std::thread> workers;
    for (std::size_t i = 0; i < threads; ++i)
        workers.emplace_back(work);
    for (std::thread& worker : workers)
        worker.join();
    if (failed)
        throw bench::Failure("not all hosts were enrolled");
}

} // namespace

int main(int argc, char* argv[])
{
    return bench::runProgram("enrol-agents", [&] {
        if (argc != 4)
            throw bench::Failure("usage: enrol-agents ADDRESS AUTHORITY_PEM THREADS");
        enrolAll(argv[1], argv[2], std::strtoul(argv[3], nullptr, 10));
    });
}
