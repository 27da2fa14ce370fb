// The guard with limits of one second and one mebibyte.
#include "platform/process.h"

#include "tests/fakes/log/recording_log.h"
#include "tests/unit/platform/child_process.h"
#include "tests/unit/scratch_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tq::ExternalCommandGuard;

constexpr const char* CONTEXT = "Class::method";
constexpr std::size_t LIMIT_BYTES = std::size_t{1} << 20U;

rlim_t fileSizeLimit()
{
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    return limit.rlim_cur;
}

int subreaper()
{
    int value = -1;
    prctl(PR_GET_CHILD_SUBREAPER, &value);
    return value;
}

bool hasChildren()
{
    return !tests::readText("/proc/self/task/" + std::to_string(getpid()) + "/children").empty();
}

class CommandGuard : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::recordedLog().clear();
        begin_ = std::chrono::steady_clock::now();
    }

    void TearDown() override
    {
        EXPECT_LT(std::chrono::steady_clock::now() - begin_, tests::PATIENCE) << "something was waited out";
    }

    struct Result {
        int status = 0;
        bool cutShort = false;
        std::string output;
    };

    static Result runSystem(const std::string& command)
    {
        ExternalCommandGuard guard(command.c_str(), ExternalCommandGuard::Output::file, CONTEXT);
        const int status = guard.ended(std::system(command.c_str()));
        return {status, guard.cutShort(), ""};
    }

    static Result runPopen(const std::string& command)
    {
        Result result;
        ExternalCommandGuard guard(command.c_str(), ExternalCommandGuard::Output::pipe, CONTEXT);
        FILE* stream = popen(command.c_str(), "re");
        std::array<char, 4096> buffer;
        std::size_t size = 0;
        while ((size = fread(buffer.data(), 1, buffer.size(), stream)) > 0 && guard.accept(size))
            result.output.append(buffer.data(), size);
        result.status = pclose(stream);
        result.cutShort = guard.cutShort();
        return result;
    }

    [[nodiscard]] std::vector<pid_t> numbers(std::size_t count) const
    {
        return tests::numbersIn(directory.file("numbers"), count);
    }

    /// Runs a command that hangs and whose shell text names at least `count` processes in a file: all are to
    /// be gone.
    void expectEndedWithAllItStarted(const std::string& command, std::size_t count)
    {
        EXPECT_TRUE(runSystem(command).cutShort) << command;
        const std::vector<pid_t> all = numbers(count);
        ASSERT_GE(all.size(), count) << command;
        for (const pid_t number : all)
            EXPECT_TRUE(tests::hasEnded(number)) << command;
        EXPECT_FALSE(hasChildren()) << "everything was waited for";
        EXPECT_EQ(fakes::countRecorded(16, "external command ended after 1 s: "), 1U);
    }

    [[nodiscard]] std::string numbersFile() const { return directory.file("numbers"); }

    tests::ScratchDirectory directory;

private:
    std::chrono::steady_clock::time_point begin_;
};

TEST_F(CommandGuard, LeavesAnOrdinaryCommandAlone)
{
    EXPECT_EQ(WEXITSTATUS(runSystem("exit 3").status), 3);
    const Result result = runPopen("echo text; exit 4");
    EXPECT_EQ(WEXITSTATUS(result.status), 4);
    EXPECT_EQ(result.output, "text\n");
    EXPECT_FALSE(result.cutShort);
    EXPECT_THAT(fakes::recordedLog(), IsEmpty());
}

TEST_F(CommandGuard, PutsEverySettingBack)
{
    const rlim_t limitBefore = fileSizeLimit();
    const int subreaperBefore = subreaper();
    {
        const ExternalCommandGuard guard("true", ExternalCommandGuard::Output::file, CONTEXT);
        EXPECT_EQ(fileSizeLimit(), LIMIT_BYTES);
        EXPECT_EQ(subreaper(), 1);
    }
    EXPECT_EQ(fileSizeLimit(), limitBefore);
    EXPECT_EQ(subreaper(), subreaperBefore);
    struct sigaction action {};
    ASSERT_EQ(sigaction(SIGRTMIN, nullptr, &action), 0);
    EXPECT_EQ(action.sa_handler, SIG_DFL);
}

TEST_F(CommandGuard, PipeHasNoFileSizeLimit)
{
    const rlim_t limitBefore = fileSizeLimit();
    const ExternalCommandGuard guard("true", ExternalCommandGuard::Output::pipe, CONTEXT);
    EXPECT_EQ(fileSizeLimit(), limitBefore);
}

TEST_F(CommandGuard, LowerFileSizeLimitStays)
{
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    const rlimit lower{1000, saved.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &lower), 0);
    {
        const ExternalCommandGuard guard("true", ExternalCommandGuard::Output::file, CONTEXT);
        EXPECT_EQ(fileSizeLimit(), 1000U);
    }
    EXPECT_EQ(fileSizeLimit(), 1000U);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &saved), 0);
}

TEST_F(CommandGuard, HangingCommandIsEndedWithOneEntry)
{
    const Result result = runSystem("sleep 1000");
    EXPECT_TRUE(result.cutShort);
    EXPECT_EQ(WEXITSTATUS(result.status), 0) << "death by a signal has exit code 0";
    EXPECT_THAT(fakes::recordedLog(), ElementsAre(fakes::RecordedEntry{
                                          16, "external command ended after 1 s: sleep 1000", CONTEXT}));
}

TEST_F(CommandGuard, CommandThatIgnoresSigtermIsEnded)
{
    expectEndedWithAllItStarted(
        "trap '' TERM HUP INT; echo $$ > " + numbersFile() + "; while :; do sleep 1000; done", 1);
}

TEST_F(CommandGuard, StoppedCommandIsEnded)
{
    expectEndedWithAllItStarted("echo $$ > " + numbersFile() + "; kill -STOP $$", 1);
}

TEST_F(CommandGuard, GrandchildrenInTheBackgroundAreEnded)
{
    expectEndedWithAllItStarted("(trap '' TERM; sleep 1000 & echo $! >> " + numbersFile() +
                                    "; wait) & echo $! >> " + numbersFile() + "; wait",
                                2);
}

TEST_F(CommandGuard, DaemonThatLeftItsSessionIsEnded)
{
    expectEndedWithAllItStarted(
        "(setsid sh -c 'echo $$ >> " + numbersFile() + "; exec sleep 1000' &); sleep 1000", 1);
}

TEST_F(CommandGuard, ChildOfASecondThreadIsEnded)
{
    expectEndedWithAllItStarted(PROCESS_PROBE " thread-fork " + numbersFile(), 1);
}

TEST_F(CommandGuard, ManyProcessesAreEnded)
{
    // 200, or as many as a busy machine starts within the limit.
    expectEndedWithAllItStarted(
        "for i in $(seq 200); do sleep 1000 & echo $! >> " + numbersFile() + "; done; wait", 2);
}

TEST_F(CommandGuard, PipeOfAHangingCommandEnds)
{
    const Result result = runPopen("echo text; sleep 1000");
    EXPECT_TRUE(result.cutShort);
    EXPECT_EQ(result.output, "text\n");
    EXPECT_NE(result.status, -1) << "the command is left for pclose to wait for";
    EXPECT_EQ(fakes::countRecorded(16, "external command ended after 1 s: echo text; sleep 1000"), 1U);
}

TEST_F(CommandGuard, PipeHeldByABackgroundChildEnds)
{
    const Result result = runPopen("sleep 1000 & echo text");
    EXPECT_TRUE(result.cutShort);
    EXPECT_EQ(result.output, "text\n");
    EXPECT_EQ(WEXITSTATUS(result.status), 0);
}

TEST_F(CommandGuard, BackgroundChildOfACommandThatEndedIsLeftAlone)
{
    const Result result = runSystem("sleep 1000 & echo $! > " + numbersFile());
    EXPECT_FALSE(result.cutShort);
    const std::vector<pid_t> all = numbers(1);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_FALSE(tests::hasEnded(all[0]));
    kill(all[0], SIGKILL);
    waitpid(all[0], nullptr, 0); // it is this process's child since its parent ended
}

TEST_F(CommandGuard, OrphansThatEndedAreWaitedFor)
{
    const Result result = runSystem("(exec sleep 0.05 &); sleep 0.5");
    EXPECT_FALSE(result.cutShort);
    EXPECT_FALSE(hasChildren());
}

TEST_F(CommandGuard, ChildrenThatWereThereBeforeAreNotTouched)
{
    const pid_t earlier = fork();
    if (earlier == 0) {
        for (;;)
            pause();
    }
    EXPECT_TRUE(runSystem("sleep 1000").cutShort);
    EXPECT_FALSE(tests::hasEnded(earlier));
    kill(earlier, SIGKILL);
    EXPECT_EQ(waitpid(earlier, nullptr, 0), earlier);
}

TEST_F(CommandGuard, TwoGigabytesIntoAFileAreCut)
{
    const std::string path = directory.file("output");
    const std::string command = "head -c 2147483648 /dev/zero > " + path;
    const Result result = runSystem(command);
    EXPECT_EQ(std::filesystem::file_size(path), LIMIT_BYTES);
    EXPECT_EQ(result.status, SIGXFSZ);
    EXPECT_TRUE(result.cutShort);
    EXPECT_THAT(fakes::recordedLog(),
                ElementsAre(fakes::RecordedEntry{
                    16, "output of external command cut at 1048576 bytes: " + command, CONTEXT}));
}

TEST_F(CommandGuard, CutIsSeenThroughTheShellTooAndIsTheSameDeath)
{
    const std::string path = directory.file("output");
    const Result result = runSystem("head -c 2147483648 /dev/zero > " + path + "; exit $?");
    EXPECT_TRUE(result.cutShort);
    EXPECT_EQ(result.status, SIGXFSZ);
    EXPECT_EQ(WEXITSTATUS(result.status), 0);
}

TEST_F(CommandGuard, TwoGigabytesThroughAPipeAreCut)
{
    const std::string command = "head -c 2147483648 /dev/zero";
    const Result result = runPopen(command);
    EXPECT_TRUE(result.cutShort);
    EXPECT_LE(result.output.size(), LIMIT_BYTES);
    EXPECT_GT(result.output.size() + 4096, LIMIT_BYTES);
    EXPECT_THAT(fakes::recordedLog(),
                ElementsAre(fakes::RecordedEntry{
                    16, "output of external command cut at 1048576 bytes: " + command, CONTEXT}));
}

TEST_F(CommandGuard, EndlessOutputWithStubbornChildrenIsCut)
{
    const Result result = runPopen("trap '' PIPE TERM; sleep 1000 & echo $! > " + numbersFile() +
                                   "; while :; do cat /dev/zero; done");
    EXPECT_TRUE(result.cutShort);
    EXPECT_EQ(fakes::countRecorded(16, "output of external command cut at 1048576 bytes: "), 1U);
    const std::vector<pid_t> all = numbers(1);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_TRUE(tests::hasEnded(all[0]));
}

TEST_F(CommandGuard, OutputOfExactlyTheLimitIsAccepted)
{
    const Result result = runPopen("head -c 1048576 /dev/zero");
    EXPECT_FALSE(result.cutShort);
    EXPECT_EQ(result.output.size(), LIMIT_BYTES);
    EXPECT_THAT(fakes::recordedLog(), IsEmpty());
}

TEST_F(CommandGuard, SecondGuardAtATimeDoesNothing)
{
    const rlim_t limitBefore = fileSizeLimit();
    ExternalCommandGuard outer("outer", ExternalCommandGuard::Output::pipe, CONTEXT);
    {
        ExternalCommandGuard inner("inner", ExternalCommandGuard::Output::file, CONTEXT);
        EXPECT_EQ(fileSizeLimit(), limitBefore);
        EXPECT_TRUE(inner.accept(10 * LIMIT_BYTES));
    }
    EXPECT_EQ(subreaper(), 1) << "the outer one still holds";
    EXPECT_FALSE(outer.accept(LIMIT_BYTES + 1));
}

TEST_F(CommandGuard, EachCommandHasTheWholeTime)
{
    for (int i = 0; i < 4; ++i)
        EXPECT_FALSE(runSystem("sleep 0.4").cutShort);
    EXPECT_THAT(fakes::recordedLog(), IsEmpty());
}

TEST_F(CommandGuard, CommandAfterAnEndedOneRunsAsEver)
{
    EXPECT_TRUE(runSystem("sleep 1000").cutShort);
    const Result result = runSystem("exit 7");
    EXPECT_FALSE(result.cutShort);
    EXPECT_EQ(WEXITSTATUS(result.status), 7);
}

TEST_F(CommandGuard, NullCommandTextCountsAsEmpty)
{
    {
        ExternalCommandGuard guard(nullptr, ExternalCommandGuard::Output::pipe, CONTEXT);
        EXPECT_FALSE(guard.accept(LIMIT_BYTES + 1));
    }
    EXPECT_THAT(fakes::recordedLog(), ElementsAre(fakes::RecordedEntry{
                                          16, "output of external command cut at 1048576 bytes: ", CONTEXT}));
}

TEST_F(CommandGuard, CommandRunsWithoutATimerThatIsNotToBeHad)
{
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_SIGPENDING, &saved), 0);
    const rlimit none{0, saved.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_SIGPENDING, &none), 0);
    const Result result = runSystem("exit 3");
    ASSERT_EQ(setrlimit(RLIMIT_SIGPENDING, &saved), 0);
    EXPECT_EQ(WEXITSTATUS(result.status), 3);
    ASSERT_EQ(fakes::recordedLog().size(), 1U);
    EXPECT_EQ(fakes::recordedLog()[0].level, 8);
    EXPECT_THAT(fakes::recordedLog()[0].text, HasSubstr("external command runs without a time limit: "));
}

TEST_F(CommandGuard, LimitHoldsWithTheSignalOfTheTimerBlocked)
{
    sigset_t all;
    sigset_t saved;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &saved);
    EXPECT_TRUE(runSystem("sleep 1000").cutShort);
    sigset_t after;
    sigprocmask(SIG_SETMASK, &saved, &after);
    for (const int signal : {SIGTERM, SIGCHLD, SIGALRM, SIGRTMIN})
        EXPECT_EQ(sigismember(&after, signal), 1) << signal;
}

} // namespace
