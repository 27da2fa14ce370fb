#include "platform/process.h"

#include "tests/unit/platform/child_process.h"
#include "tests/unit/scratch_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

/// First time limit that a timer of this process was set to.
itimerspec firstTimerSetting{};

} // namespace

/// In place of the C library's own, to see what the guard asks for; the timer stays unset.
int timer_settime(timer_t /*timer*/, int /*flags*/, const itimerspec* times, itimerspec* /*old*/) noexcept
{
    if (firstTimerSetting.it_value.tv_sec == 0)
        firstTimerSetting = *times;
    return 0;
}

namespace {

using testing::Contains;
using testing::IsSupersetOf;
using testing::UnorderedElementsAre;

const std::string PATH_VARIABLE = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

class ProcessStart : public testing::Test {
protected:
    /// Lines of the probe's report of itself.
    std::vector<std::string> report(const std::vector<std::string>& environment,
                                    const std::function<void()>& prepare)
    {
        const std::string path = directory.file("report");
        EXPECT_EQ(tests::statusOf(tests::start({PROCESS_PROBE, "report", path}, environment, prepare)), 0);
        return tests::linesOf(tests::readText(path));
    }

    /// The lines of a text that begin with a word, less the word.
    static std::vector<std::string> of(const std::string& word, const std::vector<std::string>& lines)
    {
        std::vector<std::string> found;
        for (const std::string& line : lines) {
            if (line.rfind(word + " ", 0) == 0)
                found.push_back(line.substr(word.size() + 1));
        }
        return found;
    }

    /// A set of signals as the kernel shows it, for example in "SigIgn:".
    static std::uint64_t signals(const std::string& field, const std::vector<std::string>& lines)
    {
        for (const std::string& line : lines) {
            if (line.rfind(field + ":\t", 0) == 0)
                return std::stoull(line.substr(field.size() + 2), nullptr, 16);
        }
        ADD_FAILURE() << "no " << field;
        return 0;
    }

    static std::uint64_t setOf(const std::vector<int>& numbers)
    {
        std::uint64_t set = 0;
        for (const int number : numbers)
            set |= std::uint64_t{1} << static_cast<unsigned>(number - 1);
        return set;
    }

    tests::ScratchDirectory directory;
};

TEST_F(ProcessStart, ClosedDescriptorsAreOpenedOnDevNull)
{
    const std::vector<std::string> lines = report({}, [] {
        for (int descriptor = 0; descriptor <= 2; ++descriptor)
            close(descriptor);
    });
    EXPECT_THAT(lines, IsSupersetOf({"0 /dev/null", "1 /dev/null", "2 /dev/null"}));
    EXPECT_THAT(of("inheritable", lines), UnorderedElementsAre("0", "1", "2"));
}

TEST_F(ProcessStart, NoFileEverTakesThePlaceOfAClosedDescriptor)
{
    for (int closed = 0; closed <= 2; ++closed) {
        const std::string path = directory.file("opened");
        const auto prepare = [closed] { close(closed); };
        ASSERT_EQ(tests::statusOf(tests::start({PROCESS_PROBE, "opened", path}, {}, prepare)), 0);
        EXPECT_GE(std::stoi(tests::readText(path)), 3) << closed;
    }
}

TEST_F(ProcessStart, OpenStandardDescriptorsStay)
{
    const std::string target = directory.file("output");
    const std::vector<std::string> lines = report({}, [&] {
        const int file = open(target.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        dup2(file, 1);
        close(2);
    });
    EXPECT_THAT(lines, IsSupersetOf({"1 " + target, std::string("2 /dev/null")}));
}

TEST_F(ProcessStart, OtherInheritedDescriptorsStayOutOfCommands)
{
    const auto prepare = [] {
        dup2(0, 7);
        dup2(0, 900);
    };
    const std::vector<std::string> lines = report({}, prepare);
    EXPECT_THAT(of("inheritable", lines), UnorderedElementsAre("0", "1", "2"));
    const std::string path = directory.file("descriptors");
    const std::string command = "for fd in /proc/$$/fd/*; do echo ${fd##*/}; done > " + path;
    ASSERT_EQ(tests::statusOf(tests::start({PROCESS_PROBE, "system", command}, {}, prepare)), 0);
    const std::vector<std::string> seen = tests::linesOf(tests::readText(path));
    EXPECT_THAT(seen, IsSupersetOf({"0", "1", "2"}));
    EXPECT_THAT(seen, testing::Not(Contains("7")));
    EXPECT_THAT(seen, testing::Not(Contains("900")));
}

/// Makes one system call unknown to this process and to what it starts.
void forget(unsigned systemCall)
{
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, systemCall, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{std::size(program), program};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
        _exit(97);
}

TEST_F(ProcessStart, OtherInheritedDescriptorsStayOutOfCommandsOnAKernelWithoutCloseRange)
{
    const std::vector<std::string> lines = report({}, [] {
        dup2(0, 7);
        dup2(0, 9);
        forget(SYS_close_range);
    });
    EXPECT_THAT(of("inheritable", lines), UnorderedElementsAre("0", "1", "2"));
}

TEST_F(ProcessStart, EnvironmentIsReducedToLocaleTimeZoneAndPath)
{
    const std::vector<std::string> environment{"PATH=/tmp/evil:.",
                                               "LANG=de_DE.UTF-8",
                                               "LANGUAGE=de:en",
                                               "LC_ALL=de_DE.UTF-8",
                                               "LC_MESSAGES=C",
                                               "TZ=Europe/Berlin",
                                               "LD_PRELOAD=",
                                               "LD_LIBRARY_PATH=/tmp",
                                               "LD_DEBUG_OUTPUT=/tmp/",
                                               "IFS=x",
                                               "ENV=/tmp/e",
                                               "BASH_ENV=/tmp/e",
                                               "TMPDIR=/tmp/evil",
                                               "BASH_FUNC_uname%%=() { :;",
                                               "http_proxy=http://evil",
                                               "SSLKEYLOGFILE=/tmp/keys",
                                               "OPENSSL_CONF=/tmp/o",
                                               "HOSTALIASES=/tmp/h",
                                               "RES_OPTIONS=debug",
                                               "HOME=/root",
                                               "LC=/tmp",
                                               "NLSPATH=/tmp",
                                               "LANGX=1",
                                               "TZDIR=/tmp",
                                               "lc_all=x",

                                               "novalue",
                                               "=strange",
                                               "GLIBC_TUNABLES=x",
                                               "CURL_CA_BUNDLE=/tmp/ca"};
    EXPECT_THAT(of("environment", report(environment, {})),
                UnorderedElementsAre(PATH_VARIABLE, "LANG=de_DE.UTF-8", "LANGUAGE=de:en",
                                     "LC_ALL=de_DE.UTF-8", "LC_MESSAGES=C", "TZ=Europe/Berlin"));
}

TEST_F(ProcessStart, PathIsFixedWithoutAnEnvironment)
{
    EXPECT_THAT(of("environment", report({}, {})), UnorderedElementsAre(PATH_VARIABLE));
}

TEST_F(ProcessStart, CommandsSeeTheReducedEnvironment)
{
    const std::string path = directory.file("environment");
    const std::vector<std::string> environment{"PATH=/tmp", "LD_PRELOAD=", "SECRET=1", "LANG=C"};
    ASSERT_EQ(tests::statusOf(tests::start({PROCESS_PROBE, "system", "env > " + path}, environment)), 0);
    EXPECT_THAT(tests::linesOf(tests::readText(path)),
                UnorderedElementsAre(PATH_VARIABLE, "LANG=C", "PWD=/")); // the shell's own variable
}

TEST_F(ProcessStart, DirectoryIsTheRoot)
{
    EXPECT_THAT(of("cwd", report({}, [&] { ASSERT_EQ(chdir(directory.path().c_str()), 0); })),
                UnorderedElementsAre("/"));
}

TEST_F(ProcessStart, FileCreationMaskIsNotTouched)
{
    EXPECT_THAT(of("mask", report({}, [] { umask(077); })), UnorderedElementsAre("63"));
}

TEST_F(ProcessStart, NoCoreFileCanBeLeftWithATokenInIt)
{
    EXPECT_THAT(of("dumpable", report({}, {})), UnorderedElementsAre("0"));
}

void blockAndIgnoreAll(const std::vector<int>& kept)
{
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, nullptr);
    for (int number = 1; number <= SIGRTMAX; ++number) {
        if (std::find(kept.begin(), kept.end(), number) == kept.end())
            std::signal(number, SIG_IGN);
    }
}

TEST_F(ProcessStart, SignalsAreUnblockedAndNoneIsIgnored)
{
    const std::vector<std::string> lines = report({}, [] { blockAndIgnoreAll({SIGHUP, SIGINT, SIGQUIT}); });
    EXPECT_EQ(signals("SigBlk", lines), 0U);
    EXPECT_EQ(signals("SigIgn", lines), 0U);
    EXPECT_EQ(signals("SigCgt", lines) & setOf({SIGPIPE, SIGXFSZ, SIGTERM, SIGHUP, SIGINT, SIGCHLD, SIGALRM}),
              setOf({SIGPIPE, SIGXFSZ, SIGTERM, SIGHUP, SIGINT}));
}

TEST_F(ProcessStart, WhatNohupAndBackgroundJobsIgnoreStaysIgnored)
{
    const std::vector<std::string> lines = report({}, [] { blockAndIgnoreAll({}); });
    EXPECT_EQ(signals("SigIgn", lines), setOf({SIGHUP, SIGINT, SIGQUIT}));
}

TEST_F(ProcessStart, CommandsGetDefaultSignals)
{
    const std::string path = directory.file("status");
    const std::uint64_t ofTheCLibrary = setOf({32, 33}); // system() and popen() ignore its two by themselves
    const auto prepare = [] { blockAndIgnoreAll({SIGHUP, SIGINT, SIGQUIT}); };
    for (const char* how : {"system", "popen"}) {
        const std::string command = "cat /proc/self/status > " + path;
        ASSERT_EQ(tests::statusOf(tests::start({PROCESS_PROBE, how, command}, {}, prepare)), 0) << how;
        const std::vector<std::string> lines = tests::linesOf(tests::readText(path));
        for (const char* field : {"SigBlk", "SigIgn", "SigCgt"})
            EXPECT_EQ(signals(field, lines) & ~ofTheCLibrary, 0U) << how << ' ' << field;
    }
}

TEST_F(ProcessStart, IgnoredSigchldDoesNotSpoilTheResultsOfCommands)
{
    for (const char* how : {"system", "popen"}) {
        const auto prepare = [] { std::signal(SIGCHLD, SIG_IGN); };
        const int status = tests::statusOf(tests::start({PROCESS_PROBE, how, "exit 3"}, {}, prepare));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 3) << how << ' ' << status;
    }
}

TEST_F(ProcessStart, ClosedPipeOnStandardOutputEndsNothing)
{
    const auto prepare = [] {
        int ends[2];
        if (pipe(ends) == 0) {
            dup2(ends[1], 1);
            close(ends[0]);
            close(ends[1]);
        }
    };
    const std::string command = "head -c 1000000 /dev/zero";
    EXPECT_EQ(tests::statusOf(tests::start({PROCESS_PROBE, "popen", command}, {}, prepare)), 0);
}

TEST_F(ProcessStart, FileSizeLimitOnStandardOutputEndsNothing)
{
    const std::string path = directory.file("output");
    const auto prepare = [&path] {
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        dup2(file, 1);
        const rlimit none{0, 0};
        setrlimit(RLIMIT_FSIZE, &none);
    };
    const std::string command = "head -c 1000000 /dev/zero";
    EXPECT_EQ(tests::statusOf(tests::start({PROCESS_PROBE, "popen", command}, {}, prepare)), 0);
    EXPECT_EQ(std::filesystem::file_size(path), 0U);
}

TEST_F(ProcessStart, CaughtSignalsInterruptNoRead)
{
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
        const std::string started = directory.file("started" + std::to_string(signal));
        const std::string output = directory.file("output");
        const auto prepare = [&output] {
            const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            dup2(file, 1);
        };
        const std::string command = "echo > " + started + "; sleep 0.3; echo text";
        const pid_t probe = tests::start({PROCESS_PROBE, "popen", command}, {}, prepare);
        ASSERT_TRUE(tests::eventually([&] { return std::filesystem::exists(started); }));
        for (int i = 0; i < 10; ++i) { // one of them comes while the probe reads
            kill(probe, signal);
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        EXPECT_EQ(tests::statusOf(probe), 0) << signal;
        EXPECT_EQ(tests::readText(output), "text\n") << signal;
    }
}

/// What a signal does to a process of ours.
class EndingSignal : public ProcessStart {
protected:
    /// A command that ignores SIGTERM and has a child in the background; their numbers go into a file.
    [[nodiscard]] std::string stubbornCommand() const
    {
        return "trap '' TERM HUP INT; sleep 1000 & echo $$ $! > " + directory.file("numbers") +
               "; while :; do sleep 1000; done";
    }

    [[nodiscard]] std::vector<pid_t> startedNumbers() const
    {
        return tests::numbersIn(directory.file("numbers"), 2);
    }
};

TEST_F(EndingSignal, EndsAProcessWithoutACommandAtOnce)
{
    for (const int signal : {SIGTERM, SIGHUP, SIGINT}) {
        const std::string path = directory.file("waiting" + std::to_string(signal));
        const pid_t probe = tests::start({PROCESS_PROBE, "wait", path});
        ASSERT_TRUE(tests::eventually([&] { return std::filesystem::exists(path); }));
        kill(probe, signal);
        const int status = tests::statusOf(probe);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << signal << ": " << status;
    }
}

TEST_F(EndingSignal, EndsTheRunningCommandAndAllItStartedWithinTwoSeconds)
{
    const std::vector<std::pair<const char*, int>> cases{
        {"system", SIGTERM}, {"system", SIGHUP}, {"popen", SIGTERM}, {"popen", SIGHUP}, {"popen", SIGINT}};
    for (const auto& [how, signal] : cases) {
        std::filesystem::remove(directory.file("numbers"));
        const pid_t probe = tests::start({PROCESS_PROBE, how, stubbornCommand()});
        const std::vector<pid_t> numbers = startedNumbers();
        ASSERT_EQ(numbers.size(), 2U);
        const auto begin = std::chrono::steady_clock::now();
        kill(probe, signal);
        const int status = tests::statusOf(probe);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << how << ' ' << signal;
        for (const pid_t number : numbers)
            EXPECT_TRUE(tests::eventually([number] { return tests::hasEnded(number); })) << how;
    }
}

/// Whether any process has a text in its command line.
bool isInACommandLine(const std::string& text)
{
    for (const std::string& name : tests::namesIn("/proc")) {
        if (name.find_first_not_of("0123456789") == std::string::npos &&
            tests::readText("/proc/" + name + "/cmdline").find(text) != std::string::npos)
            return true;
    }
    return false;
}

TEST_F(EndingSignal, LeavesNothingBehindWheneverItComes)
{
    const std::string token = directory.file("watched");
    tests::writeText(token, "");
    const std::string follow = "tail -f " + token;
    const std::string command = follow + " & " + follow;
    for (int delayMs = 0; delayMs < 30; ++delayMs) {
        const pid_t probe = tests::start({PROCESS_PROBE, delayMs % 2 == 0 ? "system" : "popen", command});
        std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
        kill(probe, SIGTERM);
        const int status = tests::statusOf(probe);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << delayMs << ": " << status;
        EXPECT_TRUE(tests::eventually([&] { return !isInACommandLine(token); })) << delayMs;
    }
}

TEST_F(EndingSignal, InterruptWhileSystemWaitsLeavesTheRunGoing)
{
    const std::string command = "echo 1 1 > " + directory.file("numbers") + "; sleep 0.3; exit 5";
    const pid_t probe = tests::start({PROCESS_PROBE, "system", command});
    ASSERT_EQ(startedNumbers().size(), 2U);
    kill(probe, SIGINT);
    const int status = tests::statusOf(probe);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 5) << status;
}

TEST_F(EndingSignal, InterruptFromTheTerminalEndsTheToolThatSystemWaitsFor)
{
    const std::string command = "echo 1 1 > " + directory.file("numbers") + "; exec sleep 1000";
    const pid_t probe = tests::start({PROCESS_PROBE, "system", command}, {}, [] { setpgid(0, 0); });
    ASSERT_EQ(startedNumbers().size(), 2U);
    kill(-probe, SIGINT);
    const int status = tests::statusOf(probe);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status; // death by a signal has exit code 0
}

TEST(CommandLimit, TimeIs120Seconds)
{
    firstTimerSetting = {};
    {
        const tq::ExternalCommandGuard guard("true", tq::ExternalCommandGuard::Output::pipe, "test");
    }
    EXPECT_EQ(firstTimerSetting.it_value.tv_sec, 120);
    EXPECT_EQ(firstTimerSetting.it_value.tv_nsec, 0);
}

class OutputLimit : public ProcessStart {};

TEST_F(OutputLimit, FileIsCutAt64MiB)
{
    const std::string path = directory.file("output");
    tests::statusOf(tests::start({PROCESS_PROBE, "system", "head -c 2147483648 /dev/zero > " + path}));
    EXPECT_EQ(std::filesystem::file_size(path), std::uintmax_t{64} << 20U);
}

TEST_F(OutputLimit, PipeIsReadUpTo64MiB)
{
    const std::string path = directory.file("output");
    const auto prepare = [&path] {
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        dup2(file, 1);
    };
    tests::statusOf(tests::start({PROCESS_PROBE, "popen", "head -c 2147483648 /dev/zero"}, {}, prepare));
    EXPECT_LE(std::filesystem::file_size(path), std::uintmax_t{64} << 20U);
    EXPECT_GT(std::filesystem::file_size(path), std::uintmax_t{63} << 20U);
}

} // namespace
