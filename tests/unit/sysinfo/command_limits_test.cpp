// Commands of probes under limits of one second and one mebibyte.
#include "sysinfo/host_info.h"
#include "sysinfo/system_cmd.h"
#include "tests/unit/sysinfo/faked_host.h"

#include <csignal>
#include <gmock/gmock.h>

namespace {

using fakes::LogEntry;
using fakes::platform;
using SYSINFO_NAMESPACE::SystemCmd;
using SYSINFO_NAMESPACE::UnixHostInfo;
using testing::ElementsAre;

constexpr const char* CONTEXT = "SystemCmd::Execute";
constexpr std::size_t LIMIT_BYTES = std::size_t{1} << 20;

class CommandLimits : public testing::Test {
protected:
    void SetUp() override { faked_host::reset(); }

    /// The first line of standard output.
    static std::string firstLine(SystemCmd& command)
    {
        char buffer[2048] = "";
        return command.GetStdOutLine(buffer, sizeof buffer) ? buffer : "no line";
    }
};

TEST_F(CommandLimits, CutOutputHasExitCodeZeroWhetherTheShellOrItsChildWasEnded)
{
    const std::string endless = "echo first; exec head -c 2000000 /dev/zero";
    // The shell becomes the command, or waits for it and says exit code 153.
    for (const std::string& program : {"{ " + endless + "; }", "{ (" + endless + "); exit $?; }"}) {
        SCOPED_TRACE(program);
        faked_host::reset();
        SystemCmd command(program.c_str(), "", false);
        std::list<std::string> errorLines;
        EXPECT_EQ(command.Execute(&errorLines), 0);
        EXPECT_EQ(command.status(), 0);
        EXPECT_TRUE(platform().logged(2, "Command status: " + std::to_string(SIGXFSZ), CONTEXT));
        EXPECT_THAT(platform().texts(CONTEXT, 16),
                    ElementsAre("output of external command cut at 1048576 bytes: " + program + " "));
        EXPECT_EQ(errorLines.front(), program + " ");
        EXPECT_EQ(firstLine(command), "first\n");
    }
}

TEST_F(CommandLimits, TimeLimitHasExitCodeZeroAndWhatWasPrintedIsRead)
{
    SystemCmd command("{ echo printed; sleep 1000; }", "", false);
    EXPECT_EQ(command.Execute(nullptr), 0);
    EXPECT_EQ(command.status(), 0);
    EXPECT_EQ(firstLine(command), "printed\n");
    EXPECT_THAT(platform().texts(CONTEXT, 16),
                ElementsAre("external command ended after 1 s: { echo printed; sleep 1000; } "));
}

TEST_F(CommandLimits, NameInTheFirstLineOfAConfigurationOverTheLimitIsFound)
{
    faked_host::setConfiguration("CLIENT_NAME = H1\n" + std::string(2 * LIMIT_BYTES, '#') + "\n");
    EXPECT_EQ(UnixHostInfo().getTquClientName(), "h1");
    EXPECT_THAT(platform().texts(CONTEXT, 16), testing::SizeIs(1));
    EXPECT_EQ(platform().log.back(), (LogEntry{2, "TquClientName: h1", "UnixHostInfo::getTquClientName"}));
}

} // namespace
