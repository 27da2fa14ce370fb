#include "sysinfo/system_cmd.h"

#include "tests/unit/sysinfo/faked_host.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <gmock/gmock.h>
#include <optional>
#include <sys/resource.h>

namespace {

using faked_host::host;
using fakes::LogEntry;
using fakes::platform;
using SYSINFO_NAMESPACE::SystemCmd;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr const char* PRODUCT_DIR = "/usr/torqv/torquenix";
constexpr const char* CONTEXT = "SystemCmd::Execute";

class SystemCmdTest : public testing::Test {
protected:
    void SetUp() override { faked_host::reset(); }
    void TearDown() override { EXPECT_THAT(filesLeft(), IsEmpty()) << "both files are deleted"; }

    static std::vector<std::string> filesLeft()
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(PRODUCT_DIR))
            names.push_back(entry.path().filename());
        return names;
    }

    /// All lines of standard output, as the reader gives them.
    static std::vector<std::string> output(SystemCmd& command, int size = 2048)
    {
        std::vector<std::string> lines;
        std::string buffer(static_cast<std::size_t>(size), '#');
        while (command.GetStdOutLine(buffer.data(), size))
            lines.emplace_back(buffer.c_str());
        return lines;
    }
};

TEST_F(SystemCmdTest, RunsACommandWithItsLinesAndEntries)
{
    SystemCmd command("printf", "'one\\ntwo'", true);
    EXPECT_EQ(command.Execute(nullptr), 0);
    EXPECT_EQ(command.status(), 0);
    EXPECT_THAT(output(command), ElementsAre("one\n", "two"));
    EXPECT_THAT(faked_host::log(),
                ElementsAre(LogEntry{2, "Executing cmd (printf 'one\\ntwo')", CONTEXT},
                            LogEntry{2,
                                     "Executing redirected cmd (LC_ALL=C printf 'one\\ntwo' </dev/null >FILE "
                                     "2>FILE)",
                                     CONTEXT},
                            LogEntry{2, "Command status: 0", CONTEXT}));
}

TEST_F(SystemCmdTest, FilesOfTheTwoStreamsStandInTheProductDirectory)
{
    SystemCmd command("true", "", false);
    EXPECT_THAT(filesLeft(), IsEmpty()) << "construction makes none";
    command.Execute(nullptr);
    EXPECT_THAT(filesLeft(), testing::SizeIs(2));
    EXPECT_THAT(filesLeft(), testing::Each(MatchesRegex("SystemCmd[0-9]+\\.[0-9a-f]+")));
    EXPECT_THAT(host().shellLines,
                ElementsAre(MatchesRegex("true  </dev/null >/usr/torqv/torquenix/SystemCmd[0-9]+\\.[0-9a-f]+ "
                                         "2>/usr/torqv/torquenix/SystemCmd[0-9]+\\.[0-9a-f]+")));
    EXPECT_TRUE(platform().logged(2, "Executing cmd (true )", CONTEXT)) << "no arguments: a trailing blank";
}

TEST_F(SystemCmdTest, FirstTemporaryNameIsForTheOutputAndTheSecondForTheErrors)
{
    host().temporaryNames = {"/usr/torqv/torquenix/first", "/usr/torqv/torquenix/second"};
    SystemCmd command("sh", "-c 'echo text; echo error >&2'", false);
    EXPECT_THAT(host().temporaryNameCalls,
                ElementsAre("/usr/torqv/torquenix SystemCmd", "/usr/torqv/torquenix SystemCmd"));
    command.Execute(nullptr);
    EXPECT_THAT(host().shellLines, ElementsAre("sh -c 'echo text; echo error >&2' </dev/null "
                                               ">/usr/torqv/torquenix/first 2>/usr/torqv/torquenix/second"));
    EXPECT_THAT(filesLeft(), testing::UnorderedElementsAre("first", "second"));
    EXPECT_THAT(output(command), ElementsAre("text\n"));
}

TEST_F(SystemCmdTest, WithoutATemporaryNameTheCommandDoesNotRun)
{
    const std::optional<std::string> name = "/usr/torqv/torquenix/name";
    const std::deque<std::optional<std::string>> answers[] = {
        {std::nullopt, std::nullopt}, {std::nullopt, name}, {name, std::nullopt}};
    for (const auto& names : answers) {
        host().temporaryNames = names;
        SystemCmd command("echo", "text", true);
        testing::internal::CaptureStderr();
        EXPECT_EQ(command.Execute(nullptr), 0);
        EXPECT_NE(testing::internal::GetCapturedStderr(), "") << "the shell refuses its line";
        EXPECT_NE(command.status(), 0);
        EXPECT_THAT(output(command), IsEmpty());
        char buffer[16] = "";
        EXPECT_EQ(command.GetStdErrLine(buffer, sizeof buffer), nullptr);
    }
}

TEST_F(SystemCmdTest, LocaleIsForcedOnlyWhenAskedFor)
{
    setenv("LC_ALL", "xx_XX", 1);
    SystemCmd forced("sh", "-c 'echo \"[$LC_ALL]\"'", true);
    forced.Execute(nullptr);
    SystemCmd plain("sh", "-c 'echo \"[$LC_ALL]\"'", false);
    plain.Execute(nullptr);
    unsetenv("LC_ALL");
    EXPECT_THAT(output(forced), ElementsAre("[C]\n"));
    EXPECT_THAT(output(plain), ElementsAre("[xx_XX]\n"));
}

TEST_F(SystemCmdTest, StandardInputIsEmpty)
{
    SystemCmd command("cat", "", true);
    EXPECT_EQ(command.Execute(nullptr), 0);
    EXPECT_THAT(output(command), IsEmpty());
}

TEST_F(SystemCmdTest, CommandThatWritesNothingGivesNullAtTheFirstCall)
{
    SystemCmd command("true", "", true);
    command.Execute(nullptr);
    char buffer[16] = "";
    EXPECT_EQ(command.GetStdOutLine(buffer, sizeof buffer), nullptr);
    EXPECT_EQ(command.GetStdErrLine(buffer, sizeof buffer), nullptr);
}

TEST_F(SystemCmdTest, ExitCode3WithErrorLinesIsStatus3AndResult0)
{
    SystemCmd command("sh", "-c 'echo first >&2; printf \"second\\r\\nthird\" >&2; exit 3'", true);
    std::list<std::string> errorLines{"earlier"};
    EXPECT_EQ(command.Execute(&errorLines), 0);
    EXPECT_EQ(command.status(), 3);
    EXPECT_THAT(errorLines,
                ElementsAre("earlier", "sh -c 'echo first >&2; printf \"second\\r\\nthird\" >&2; exit 3'",
                            "first", "second", "third"));
    EXPECT_TRUE(platform().logged(2, "Command status: 768", CONTEXT)) << "the raw result is logged";
}

TEST_F(SystemCmdTest, SuccessLeavesTheErrorLines)
{
    SystemCmd command("sh", "-c 'echo warning >&2'", true);
    std::list<std::string> errorLines;
    EXPECT_EQ(command.Execute(&errorLines), 0);
    EXPECT_THAT(errorLines, IsEmpty());
}

TEST_F(SystemCmdTest, LongErrorLinesComeInPieces)
{
    SystemCmd command("sh", "-c 'head -c 3000 /dev/zero | tr \"\\\\0\" e >&2; exit 1'", true);
    std::list<std::string> errorLines;
    command.Execute(&errorLines);
    ASSERT_EQ(errorLines.size(), 3U);
    errorLines.pop_front();
    EXPECT_THAT(errorLines, ElementsAre(std::string(2047, 'e'), std::string(953, 'e')));
}

TEST_F(SystemCmdTest, MissingCommandHasTheShellsExitCodeAndNoLines)
{
    SystemCmd command("/no/such/tool", "-vvv", true);
    EXPECT_EQ(command.Execute(nullptr), 0);
    EXPECT_EQ(command.status(), 127);
    EXPECT_THAT(output(command), IsEmpty());
}

TEST_F(SystemCmdTest, DeathByASignalHasExitCodeZeroAndKeepsTheOutput)
{
    SystemCmd command("{ echo printed; kill -9 $$; }", "", false);
    std::list<std::string> errorLines;
    EXPECT_EQ(command.Execute(&errorLines), 0);
    EXPECT_EQ(command.status(), 0);
    EXPECT_TRUE(platform().logged(2, "Command status: 9", CONTEXT));
    EXPECT_THAT(errorLines, ElementsAre("{ echo printed; kill -9 $$; } "));
    EXPECT_THAT(output(command), ElementsAre("printed\n"));
}

TEST_F(SystemCmdTest, ShellThatCannotBeStartedIs11WithStatusMinusOne)
{
    // With SIGCHLD ignored the kernel keeps no exit status, which the call reports as a failure.
    const auto saved = std::signal(SIGCHLD, SIG_IGN);
    SystemCmd command("true", "", true);
    std::list<std::string> errorLines;
    const int result = command.Execute(&errorLines);
    (void)std::signal(SIGCHLD, saved);
    EXPECT_EQ(result, 11);
    EXPECT_EQ(command.status(), -1);
    EXPECT_THAT(errorLines, IsEmpty());
    EXPECT_TRUE(platform().logged(2, "Command status: -1", CONTEXT));
}

TEST_F(SystemCmdTest, WithoutItsDirectoryTheCommandDoesNotRun)
{
    std::filesystem::rename(PRODUCT_DIR, "/usr/torqv/elsewhere");
    {
        SystemCmd command("echo", "text", true);
        testing::internal::CaptureStderr();
        EXPECT_EQ(command.Execute(nullptr), 0);
        EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("SystemCmd"))
            << "the shell says which file it cannot make";
        EXPECT_NE(command.status(), 0);
        char buffer[16] = "a\nb";
        EXPECT_EQ(command.GetStdOutLine(buffer, sizeof buffer), nullptr);
        EXPECT_EQ(command.GetStdErrLine(buffer, sizeof buffer), nullptr);
        EXPECT_STREQ(buffer, "a\nb") << "nothing was opened, nothing is cut";
    }
    std::filesystem::rename("/usr/torqv/elsewhere", PRODUCT_DIR);
}

TEST_F(SystemCmdTest, ReaderOpensTheFileAgainAfterAFailedOpen)
{
    SystemCmd command("echo", "text", true);
    EXPECT_THAT(output(command), IsEmpty());
    command.Execute(nullptr);
    EXPECT_THAT(output(command), ElementsAre("text\n"));
}

TEST_F(SystemCmdTest, LineLongerThanTheBufferComesInPieces)
{
    SystemCmd command("printf", "'abcdefgh\\ni\\n'", true);
    command.Execute(nullptr);
    EXPECT_THAT(output(command, 5), ElementsAre("abcd", "efgh", "\n", "i\n"));
}

TEST_F(SystemCmdTest, OnlyErrorLinesLoseTheirEnd)
{
    SystemCmd command("sh", "-c 'printf \"a\\r\\nb\\rc\\n\"; printf \"a\\r\\nb\\rc\\n\" >&2'", true);
    command.Execute(nullptr);
    EXPECT_THAT(output(command), ElementsAre("a\r\n", "b\rc\n"));
    char buffer[16] = "";
    EXPECT_STREQ(command.GetStdErrLine(buffer, sizeof buffer), "a");
    EXPECT_STREQ(command.GetStdErrLine(buffer, sizeof buffer), "b") << "cut at the first line end character";
}

TEST_F(SystemCmdTest, ErrorBufferIsCutEvenWhenNothingWasRead)
{
    SystemCmd command("true", "", true);
    command.Execute(nullptr);
    char buffer[16] = "abc\rdef";
    EXPECT_EQ(command.GetStdErrLine(buffer, sizeof buffer), nullptr);
    EXPECT_STREQ(buffer, "abc");
}

TEST_F(SystemCmdTest, ErrorBufferIsCutWithinItsSizeOnly)
{
    SystemCmd command("true", "", true);
    command.Execute(nullptr);
    for (const int size : {-1, 0, 3}) {
        char buffer[16] = "abc\ndef";
        EXPECT_EQ(command.GetStdErrLine(buffer, size), nullptr) << size;
        EXPECT_STREQ(buffer, "abc\ndef") << size;
    }
}

TEST_F(SystemCmdTest, ObjectThatWasNeverExecutedIsDestroyedSilently)
{
    {
        SystemCmd command("true", "", true);
    }
    EXPECT_THAT(platform().log, IsEmpty());
    EXPECT_THAT(host().shellLines, IsEmpty());
}

TEST_F(SystemCmdTest, ShellLineIsCutTo2047Bytes)
{
    SystemCmd command("true", std::string(3000, 'x').c_str(), false);
    command.Execute(nullptr);
    ASSERT_EQ(host().shellLines.size(), 1U);
    EXPECT_EQ(host().shellLines[0], "true " + std::string(2042, 'x'));
    EXPECT_EQ(platform().log.at(0).text.size(), 1024U) << "its entry is shorter still";
}

TEST_F(SystemCmdTest, ObjectsSideBySideDoNotCollide)
{
    SystemCmd first("echo", "first", true);
    SystemCmd second("echo", "second", true);
    first.Execute(nullptr);
    second.Execute(nullptr);
    EXPECT_THAT(output(first), ElementsAre("first\n"));
    EXPECT_THAT(output(second), ElementsAre("second\n"));
}

TEST_F(SystemCmdTest, OutputBeyondTheLimitIsCutAndWhatIsThereIsRead)
{
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    SystemCmd command("head", "-c 70000000 /dev/zero", true);
    EXPECT_EQ(command.Execute(nullptr), 0);
    EXPECT_EQ(command.status(), 0) << "as after any death by a signal";
    rlimit after{};
    getrlimit(RLIMIT_FSIZE, &after);
    EXPECT_EQ(after.rlim_cur, before.rlim_cur) << "the limit is put back";
    std::uintmax_t largest = 0;
    for (const std::string& name : filesLeft())
        largest = std::max(largest, std::filesystem::file_size(std::string(PRODUCT_DIR) + "/" + name));
    EXPECT_EQ(largest, 64U << 20);
    EXPECT_THAT(platform().texts(CONTEXT, 16), testing::SizeIs(1));
    char buffer[2048] = "";
    EXPECT_NE(command.GetStdOutLine(buffer, sizeof buffer), nullptr);
}

} // namespace
