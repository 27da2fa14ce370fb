#include "cmd/cmd_exit.h"

#include "cmd/process_values.h"
#include "platform/status.h"
#include "tests/unit/cmd/child_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using fakes::ChildRun;
using fakes::LogEntry;
using testing::ElementsAre;

ChildRun exitWith(int status)
{
    fakes::reset();
    return fakes::runInChild([status]() -> int {
        TQCLNTDB::progname = "tqhostdbcmd";
        TQCLNTDB::CmdExit(status);
    });
}

TEST(CmdExit, AStatusOf0HasOneEntry)
{
    const ChildRun run = exitWith(0);
    EXPECT_EQ(run.status, 0);
    EXPECT_FALSE(run.returned);
    EXPECT_THAT(run.log, ElementsAre(LogEntry{2, "EXIT STATUS 0: " + getECmsg(0), "tqhostdbcmd"}));
}

TEST(CmdExit, TheErrorEntryRepeatsTheFirstOneBecauseTheStreamIsNotEmptied)
{
    for (const int status : {1, 12, 20, 36, 111, 255}) {
        const ChildRun run = exitWith(status);
        EXPECT_EQ(run.status, status);
        const std::string first = "EXIT STATUS " + std::to_string(status) + ": " + getECmsg(status);
        EXPECT_THAT(run.log, ElementsAre(LogEntry{2, first, "tqhostdbcmd"},
                                         LogEntry{16, first + getECmsgl(status, ""), "tqhostdbcmd"}));
    }
}

TEST(CmdExit, AStatusBeyondAByteOrNegativeEndsWith252)
{
    for (const int status : {256, 7500, 30036, INT32_MAX, -1, INT32_MIN}) {
        const ChildRun run = exitWith(status);
        EXPECT_EQ(run.status, 252) << status;
        const std::string number = std::to_string(status);
        const std::string first = "EXIT STATUS " + number + ": " + getECmsg(status);
        EXPECT_THAT(
            run.log,
            ElementsAre(LogEntry{2, first, "tqhostdbcmd"},
                        LogEntry{16, first + "EXIT STATUS " + number + ": " + getECmsgl(status, "") + "\n",
                                 "tqhostdbcmd"}));
    }
}

TEST(CmdExit, WritesNothingToStandardOutputAndError)
{
    const ChildRun run = exitWith(7500);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
}

TEST(CmdExit, WorksWithoutAProgramName)
{
    fakes::reset();
    const ChildRun run = fakes::runInChild([]() -> int { TQCLNTDB::CmdExit(36); });
    EXPECT_EQ(run.status, 36);
    ASSERT_EQ(run.log.size(), 2U);
    EXPECT_EQ(run.log[0].context, "") << "the context is null";
}

TEST(CmdExit, RunsWhatTheProcessHasToDoAtItsEnd)
{
    fakes::reset();
    const ChildRun run = fakes::runInChild([]() -> int {
        std::atexit([] { fakes::platform().calls.push_back("at exit"); });
        TQCLNTDB::CmdExit(5);
    });
    EXPECT_EQ(run.status, 5);
    EXPECT_THAT(run.calls, ElementsAre("at exit"));
}

} // namespace
