#include "utils/tqclntdb_utils.h"

#include "platform/file_io.h"
#include "tests/fakes/platform/fake_platform.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <new>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

/// Waits that were asked for, in order; none is waited out.
std::vector<long> sleepsMs;

/// Lengths that reads of a stream gave, in order.
std::vector<std::size_t> chunks;

/// Lets the next read of a stream run out of memory.
bool freadThrows = false;

/// Lets every read of a stream fail from the next one on: a folder stands in the pipe's place.
bool freadFails = false;

} // namespace

// The linker's names for calls that are wrapped and for what stands behind them.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" int __wrap_nanosleep(const timespec* wait, timespec* /*left*/)
{
    sleepsMs.push_back(wait->tv_sec * 1000 + wait->tv_nsec / 1'000'000);
    return 0;
}

extern "C" std::size_t __real_fread(void* buffer, std::size_t size, std::size_t count, FILE* stream);

extern "C" std::size_t __wrap_fread(void* buffer, std::size_t size, std::size_t count, FILE* stream)
{
    if (std::exchange(freadThrows, false))
        throw std::bad_alloc();
    if (std::exchange(freadFails, false)) {
        const int folder = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        dup2(folder, fileno(stream));
        close(folder);
    }
    chunks.push_back(__real_fread(buffer, size, count, stream) * size);
    return chunks.back() / size;
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using fakes::LogEntry;
using fakes::platform;
using testing::ElementsAre;
using testing::IsEmpty;
using tqclntdb_utils::run_command_and_capture_output;

constexpr const char* CONTEXT = "tqclntdb_utils::run_command_and_capture_output";

class RunCommandAndCaptureOutput : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        sleepsMs.clear();
        chunks.clear();
    }

    int run(const std::string& command, int retries = 0, int waitMs = 0)
    {
        return run_command_and_capture_output(command.c_str(), output, &status, retries, waitMs);
    }

    std::string output = "old text";
    int status = 0;
};

TEST_F(RunCommandAndCaptureOutput, GivesOutputAndExitCodeAndOneEntry)
{
    EXPECT_EQ(run("printf 'a\\nb'"), 0);
    EXPECT_EQ(output, "a\nb");
    EXPECT_EQ(status, 0);
    EXPECT_THAT(platform().log, ElementsAre(LogEntry{2, "Command execution finished.", CONTEXT}));
}

TEST_F(RunCommandAndCaptureOutput, StandardErrorIsNotCaptured)
{
    testing::internal::CaptureStderr();
    const int result = run("echo captured; echo not captured >&2");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "not captured\n");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(output, "captured\n");
}

TEST_F(RunCommandAndCaptureOutput, MissingCommandOrStatusIs20AndLeavesTheOutput)
{
    EXPECT_EQ(run_command_and_capture_output(nullptr, output, &status, 0, 0), 20);
    EXPECT_EQ(run_command_and_capture_output("true", output, nullptr, 0, 0), 20);
    EXPECT_EQ(output, "old text");
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(RunCommandAndCaptureOutput, CommandOfExactly8092CharactersRuns)
{
    std::string command = "printf x #";
    command.resize(8092, 'y');
    EXPECT_EQ(run(command), 0);
    EXPECT_EQ(output, "x");
}

TEST_F(RunCommandAndCaptureOutput, CommandOf8093CharactersIsRefusedWith7281)
{
    std::string command = "printf x #";
    command.resize(8093, 'y');
    status = 42;
    EXPECT_EQ(run(command), 7281);
    EXPECT_EQ(output, "");
    EXPECT_EQ(status, 42);
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{16, "Command line exceeds maximum allowed length of [8092] characters.",
                                     CONTEXT}));
}

TEST_F(RunCommandAndCaptureOutput, TooLongCommandIsRefusedBeforeTheRetryCountIsLookedAt)
{
    EXPECT_EQ(run(std::string(9000, 'x'), -1), 7281);
}

TEST_F(RunCommandAndCaptureOutput, NegativeRetryCountRunsNothingAndIsZero)
{
    status = 42;
    EXPECT_EQ(run("printf x", -1), 0);
    EXPECT_EQ(output, "");
    EXPECT_EQ(status, 42);
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(RunCommandAndCaptureOutput, ThreeHundredCharactersWithoutALineEndAreCapturedWhole)
{
    EXPECT_EQ(run("head -c 300 /dev/zero | tr '\\0' z"), 0);
    EXPECT_EQ(output, std::string(300, 'z'));
    EXPECT_THAT(chunks, ElementsAre(127, 127, 46, 0)) << "three reads and the end";
}

TEST_F(RunCommandAndCaptureOutput, ExceptionLeavesNeitherItsPipeNorItsCommand)
{
    const std::size_t openBefore = tq::listDirectory("/proc/self/fd").size();
    freadThrows = true;
    EXPECT_THROW(run("sleep 0.3; printf x"), std::bad_alloc);
    EXPECT_EQ(tq::listDirectory("/proc/self/fd").size(), openBefore);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(RunCommandAndCaptureOutput, NulsInTheOutputAreKept)
{
    EXPECT_EQ(run("printf 'a\\0b\\0'"), 0);
    EXPECT_EQ(output, std::string("a\0b\0", 4));
}

TEST_F(RunCommandAndCaptureOutput, BytesThatAreNoTextAndALongLineAreKept)
{
    EXPECT_EQ(run("printf '\\377\\376'; head -c 10000000 /dev/zero | tr '\\0' w"), 0);
    EXPECT_EQ(output.size(), 10000002U);
    EXPECT_EQ(output.substr(0, 3), "\377\376w");
}

TEST_F(RunCommandAndCaptureOutput, ExitCode3WithRetries2AndStep100RunsThreeTimesWithSleepsOf100And200)
{
    EXPECT_EQ(run("echo text; exit 3", 2, 100), 0);
    EXPECT_EQ(status, 3);
    EXPECT_EQ(output, "text\ntext\ntext\n") << "the output holds the text of all three runs";
    EXPECT_THAT(sleepsMs, ElementsAre(100, 200));

    const LogEntry finished{2, "Command execution finished.", CONTEXT};
    const LogEntry retrying{2, "Command [echo text; exit 3] failed. Retrying...", CONTEXT};
    EXPECT_THAT(platform().log, ElementsAre(finished, retrying, finished, retrying, finished));
}

TEST_F(RunCommandAndCaptureOutput, OutputIsNotEmptiedBetweenAttempts)
{
    EXPECT_EQ(run("mkdir /tmp/second_time 2>/dev/null && echo first && exit 1; echo second", 5, 1), 0);
    EXPECT_EQ(output, "first\nsecond\n");
    EXPECT_EQ(status, 0);
}

TEST_F(RunCommandAndCaptureOutput, FailureWithoutRetriesIsToldByTheStatusAlone)
{
    EXPECT_EQ(run("echo text; exit 127", 0, 100), 0);
    EXPECT_EQ(status, 127);
    EXPECT_EQ(output, "text\n");
    EXPECT_THAT(sleepsMs, IsEmpty());
}

TEST_F(RunCommandAndCaptureOutput, MissingToolHasTheShellsExitCode)
{
    EXPECT_EQ(run("/no/such/tool 2>/dev/null"), 0);
    EXPECT_EQ(status, 127);
}

TEST_F(RunCommandAndCaptureOutput, DeathByASignalHasExitCodeZero)
{
    EXPECT_EQ(run("printf x; kill -9 $$"), 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(output, "x");
}

TEST_F(RunCommandAndCaptureOutput, CommandThatCannotBeStartedIs7247WithStatusMinusOne)
{
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
    const rlimit none{0, saved.rlim_max};
    std::string text = "old text";
    int exitCode = 0;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const int result = run_command_and_capture_output("printf x", text, &exitCode, 0, 0);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &saved), 0);

    EXPECT_EQ(result, 7247);
    EXPECT_EQ(exitCode, -1);
    EXPECT_EQ(text, "");
    EXPECT_THAT(platform().texts(CONTEXT), IsEmpty());
}

TEST_F(RunCommandAndCaptureOutput, ReadingThatStopsBeforeTheEndIs7250WithStatusMinusOne)
{
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(run("head -c 67200000 /dev/zero; sleep 60"), 7250);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(20));
    EXPECT_EQ(status, -1);
    EXPECT_LE(output.size(), 64U << 20);
    EXPECT_TRUE(platform().logged(16, "Unable to successfully finish command execution.", CONTEXT));
    EXPECT_FALSE(platform().logged(2, "Command execution finished.", CONTEXT));
}

TEST_F(RunCommandAndCaptureOutput, ReadErrorBeforeTheEndIs7250WithStatusMinusOne)
{
    freadFails = true;
    EXPECT_EQ(run("printf x"), 7250);
    EXPECT_FALSE(freadFails);
    EXPECT_EQ(status, -1);
    EXPECT_EQ(output, "");
    EXPECT_TRUE(platform().logged(16, "Unable to successfully finish command execution.", CONTEXT));
    EXPECT_FALSE(platform().logged(2, "Command execution finished.", CONTEXT));
}

TEST_F(RunCommandAndCaptureOutput, StatusKeepsItsValueWhenClosingReportsAnError)
{
    // With SIGCHLD ignored the kernel keeps no exit status, so that closing the pipe fails.
    const auto saved = std::signal(SIGCHLD, SIG_IGN);
    status = 42;
    const int result = run("printf x; exit 3");
    (void)std::signal(SIGCHLD, saved);

    EXPECT_EQ(result, 0);
    EXPECT_EQ(status, 42);
    EXPECT_EQ(output, "x");
}

TEST_F(RunCommandAndCaptureOutput, NegativeWaitDoesNotWait)
{
    EXPECT_EQ(run("exit 1", 2, -1000), 0);
    EXPECT_EQ(status, 1);
    EXPECT_THAT(sleepsMs, IsEmpty());
}

} // namespace
