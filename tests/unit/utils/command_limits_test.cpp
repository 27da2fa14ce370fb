// Captured commands under limits of one second and one mebibyte.
#include "utils/tqclntdb_utils.h"

#include "tests/fakes/platform/fake_platform.h"

#include <gmock/gmock.h>

namespace {

using fakes::LogEntry;
using fakes::platform;
using testing::ElementsAre;
using tqclntdb_utils::run_command_and_capture_output;

constexpr const char* CONTEXT = "tqclntdb_utils::run_command_and_capture_output";

const LogEntry LOST{16, "Unable to successfully finish command execution.", CONTEXT};

class CommandLimits : public testing::Test {
protected:
    void SetUp() override { fakes::reset(); }

    int run(const std::string& command, int retries = 0)
    {
        return run_command_and_capture_output(command.c_str(), output, &status, retries, 0);
    }

    static LogEntry endedAfterOneSecond(const std::string& command)
    {
        return {16, "external command ended after 1 s: " + command, CONTEXT};
    }

    std::string output;
    int status = 42;
};

TEST_F(CommandLimits, TimeLimitIs7250WithStatusMinusOneAndThePartPrintedBefore)
{
    EXPECT_EQ(run("echo printed; sleep 1000", 3), 7250);
    EXPECT_EQ(status, -1);
    EXPECT_EQ(output, "printed\n") << "and it is not run again";
    EXPECT_THAT(platform().log, ElementsAre(LOST, endedAfterOneSecond("echo printed; sleep 1000")));
}

TEST_F(CommandLimits, TimeLimitAfterTheCommandHasClosedItsOutputIs7250Too)
{
    const std::string command = "echo printed; exec >&-; sleep 1000";
    EXPECT_EQ(run(command), 7250);
    EXPECT_EQ(status, -1);
    EXPECT_EQ(output, "printed\n");
    EXPECT_THAT(platform().log, ElementsAre(LogEntry{2, "Command execution finished.", CONTEXT}, LOST,
                                            endedAfterOneSecond(command)));
}

TEST_F(CommandLimits, OutputBeyondTheLimitIs7250WithStatusMinusOne)
{
    const std::string command = "head -c 2000000 /dev/zero; sleep 1000";
    EXPECT_EQ(run(command), 7250);
    EXPECT_EQ(status, -1);
    EXPECT_LE(output.size(), 1U << 20);
    EXPECT_GT(output.size() + 127, 1U << 20);
    EXPECT_THAT(platform().log,
                ElementsAre(LOST, LogEntry{16, "output of external command cut at 1048576 bytes: " + command,
                                           CONTEXT}));
}

} // namespace
