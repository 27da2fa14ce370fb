/// Whole runs of the command on the fakes.
#pragma once

#include "cmd/driver.h"
#include "tests/unit/cmd/child_run.h"
#include "tests/unit/cmd/recorded_waits.h"
#include "tests/unit/hostdb/test_host.h"

#include <string>
#include <vector>

namespace command_run {

inline constexpr const char* PROGRAM = "/usr/torqv/torquenix/bin/tqhostdbcmd";

/// A host with two master servers, of which "m1" is the configured one, mapped for both identities.
inline void reset()
{
    test_host::reset();
    fakes::platform().masterConfig.serverNames = {"m1", "m2"};
    fakes::platform().mappedServers[CERT_TYPE_HOST] = {"m1", "m2"};
    fakes::platform().mappedServers[CERT_TYPE_CLUSTER] = {"m1"};
    fakes::waits().clear();
    std::filesystem::remove_all("/usr/torqv/torquenix/logs");
}

/// Runs the driver in a child with argument zero as given.
inline fakes::ChildRun runAs(const std::string& program, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), program);
    return fakes::runInChild([&arguments] {
        std::vector<char*> argv;
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        return TQCLNTDB::runHostDatabaseCommand(static_cast<int>(arguments.size()), argv.data());
    });
}

inline fakes::ChildRun run(std::vector<std::string> arguments)
{
    return runAs(PROGRAM, std::move(arguments));
}

inline void answer(std::int64_t httpStatus, const std::string& body)
{
    fakes::platform().replies.push_back({0, httpStatus, body});
}

inline void answerNothing(int result)
{
    fakes::platform().replies.push_back({result, 0, ""});
}

inline void beActiveClusterNode()
{
    fakes::platform().nodeClustered = 1;
    fakes::platform().clustered = 1;
    fakes::platform().active = 1;
}

} // namespace command_run
