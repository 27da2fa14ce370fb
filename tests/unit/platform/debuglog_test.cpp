#include "platform/debuglog.h"

#include "platform/log_entry.h"
#include "platform/paths.h"
#include "tests/unit/platform/short_memory.h"
#include "tests/unit/scratch_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;

/// Made before the log and so destroyed after whatever belongs to the log and is destroyed.
struct LogsAtExit {
    bool armed = false;
    ~LogsAtExit()
    {
        if (armed)
            logmsg(2, "last words", "LogsAtExit");
    }
};
LogsAtExit logsAtExit;

std::string dayText(int daysAgo)
{
    time_t now = time(nullptr);
    tm date{};
    localtime_r(&now, &date);
    date.tm_mday -= daysAgo;
    date.tm_hour = 12;
    std::mktime(&date);
    char text[16];
    std::strftime(text, sizeof text, "%Y%m%d", &date);
    return text;
}

class DebugLogTest : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("TZ", "UTC0", 1);
        tzset();
        std::filesystem::create_directory(directory.file("admin"));
    }
    void TearDown() override { std::filesystem::remove(TQ_CONFIG_FILE); }

    int open(const std::string& program = "prog") const
    {
        int flag = 0;
        return open_debug_log(directory.path().c_str(), "admin", program.c_str(), 0666, &flag);
    }

    [[nodiscard]] std::string path(int daysAgo = 0, const std::string& program = "prog") const
    {
        return directory.file("admin/" + program + "." + dayText(daysAgo) + ".log");
    }

    /// The lines of today's file, less the time and process number before each entry.
    [[nodiscard]] std::vector<std::string> lines() const
    {
        std::vector<std::string> result = tests::linesOf(tests::readText(path()));
        for (std::string& line : result) {
            if (line.empty() || line.front() == '\t')
                continue; // a line inside its entry
            int beginning = 0;
            std::sscanf(line.c_str(), "%*4d-%*2d-%*2d %*2d:%*2d:%*2d.%*3d [%*d] %n", &beginning);
            line.erase(0, static_cast<std::size_t>(beginning));
        }
        return result;
    }

    static void configure(const std::string& text) { tests::writeText(TQ_CONFIG_FILE, text); }

    tests::ScratchDirectory directory;
};

TEST_F(DebugLogTest, OpensTheFileOfProgramAndDay)
{
    const int descriptor = open();
    ASSERT_GE(descriptor, 0);
    struct stat opened {};
    struct stat named {};
    ASSERT_EQ(fstat(descriptor, &opened), 0);
    ASSERT_EQ(stat(path().c_str(), &named), 0);
    EXPECT_EQ(opened.st_ino, named.st_ino);
    EXPECT_EQ(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_NE(fcntl(descriptor, F_GETFL) & O_APPEND, 0);
}

TEST_F(DebugLogTest, ModeIsTheGivenOneLessTheMask)
{
    const mode_t mask = umask(022);
    ASSERT_GE(open(), 0);
    umask(mask);
    struct stat status {};
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

TEST_F(DebugLogTest, EveryLoggerWritesItsEntry)
{
    ASSERT_GE(open(), 0);
    std::ostringstream stream;
    stream << "stream " << 1;
    logmsg(2, "plain", "one");
    logmsg(4, std::string_view("with\0NUL", 8), "two");
    logmsgf(8, "three", "%s %d", "formatted", 7);
    logmsgvf(16, 9, "four", "%.2f", 1.5);
    LOGMSG_STR_STREAM(2, stream, "five");
    LOGMSG_STR_STREAM(2, stream, "five");
    LogLine(LogLevel::error, "six") << "Unable to open version file: " << 12 << '\n';
    EXPECT_THAT(lines(), ElementsAre("<2> one: plain", "<4> two: with\\x00NUL", "<8> three: formatted 7",
                                     "<16> four: 1.50", "<2> five: stream 1", "<2> five: stream 1",
                                     "<16> six: Unable to open version file: 12"));
}

TEST_F(DebugLogTest, NullTextContextAndFormatCountAsEmpty)
{
    ASSERT_GE(open(), 0);
    const char* nothing = nullptr;
    logmsg(2, nothing, nothing);
    logmsg(2, std::string_view(), nothing);
    logmsgf(2, nothing, nothing, 0);
    logmsgvf(2, 0, nothing, nothing, 0);
    EXPECT_THAT(lines(), ElementsAre("<2> : ", "<2> : ", "<2> : ", "<2> : "));
}

TEST_F(DebugLogTest, FormatThatFailsIsLoggedItself)
{
    ASSERT_GE(open(), 0);
    const wchar_t unencodable[] = {static_cast<wchar_t>(0x7fffffff), 0};
    logmsgf(16, "context", "name %ls", unencodable);
    EXPECT_THAT(lines(), ElementsAre("<16> context: name %ls"));
}

TEST_F(DebugLogTest, ErrnoStaysAsItWas)
{
    ASSERT_GE(open(), 0);
    errno = EXDEV;
    logmsg(2, "text", "context");
    logmsgf(2, "context", "%d", 1);
    EXPECT_EQ(errno, EXDEV);
}

TEST_F(DebugLogTest, TextOfTenMegabytesIsOneEntryOfOneMebibyteAtMost)
{
    ASSERT_GE(open(), 0);
    std::string text;
    text.resize(10'000'000, 'x');
    logmsgf(2, "context", "%s", text.c_str());
    logmsg(2, "next", "context");
    const std::vector<std::string> all = lines();
    ASSERT_THAT(all, SizeIs(2));
    EXPECT_LE(std::filesystem::file_size(path()), tq::LOG_ENTRY_MAX_BYTES + 100);
    EXPECT_THAT(all[0], EndsWith(" bytes left out]"));
    EXPECT_EQ(all[1], "<2> context: next");
}

TEST_F(DebugLogTest, ForgedEntriesStayInsideTheirEntry)
{
    ASSERT_GE(open(), 0);
    logmsg(2, "body\n2026-11-20 08:10:42.123 [1] <2> root: forged\r\n2026-11-20 08:10:42.123 [1] <2> x: y",
           "a\nb");
    EXPECT_THAT(lines(),
                ElementsAre("<2> a\\x0ab: body", "\t2026-11-20 08:10:42.123 [1] <2> root: forged\\x0d",
                            "\t2026-11-20 08:10:42.123 [1] <2> x: y"));
}

TEST_F(DebugLogTest, WithoutAnOpenLogNothingHappens)
{
    const pid_t child = fork();
    if (child == 0) {
        // A process of its own, since earlier tests opened the log of this one.
        execl("/proc/self/exe", "test", "--gtest_filter=DebugLogUnopened.LogsNothing", nullptr);
        _exit(1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(DebugLogTest, DirectoryThatIsMissingIsRefused)
{
    int flag = 0;
    errno = 0;
    EXPECT_EQ(open_debug_log(directory.path().c_str(), "missing", "prog", 0666, &flag), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(DebugLogTest, AnythingButARegularFileIsRefused)
{
    const std::string target = directory.file("target");
    tests::writeText(target, "target\n");
    const std::vector<std::pair<const char*, std::function<int()>>> cases{
        {"link", [&] { return symlink(target.c_str(), path().c_str()); }},
        {"dangling link", [&] { return symlink("/tmp/nowhere", path().c_str()); }},
        {"hard link", [&] { return link(target.c_str(), path().c_str()); }},
        {"fifo", [&] { return mkfifo(path().c_str(), 0666); }},
        {"folder", [&] { return mkdir(path().c_str(), 0777); }},
        {"socket", [&] { return mknod(path().c_str(), S_IFSOCK | 0666, 0); }},
    };
    for (const auto& [what, make] : cases) {
        ASSERT_EQ(make(), 0) << what;
        errno = 0;
        EXPECT_EQ(open(), -1) << what;
        EXPECT_NE(errno, 0) << what;
        std::filesystem::remove(path());
    }
    EXPECT_EQ(tests::readText(target), "target\n");
    EXPECT_FALSE(std::filesystem::exists("/tmp/nowhere"));
}

TEST_F(DebugLogTest, FailureToOpenKeepsTheLogThatIsOpen)
{
    ASSERT_GE(open(), 0);
    EXPECT_EQ(open("missing/prog"), -1);
    logmsg(2, "still here", "context");
    EXPECT_THAT(lines(), ElementsAre("<2> context: still here"));
}

TEST_F(DebugLogTest, ProgramNameMustBeAFileName)
{
    int flag = 0;
    const char* const names[] = {nullptr, "", "../prog", "a/b"};
    for (const char* name : names) {
        errno = 0;
        EXPECT_EQ(open_debug_log(directory.path().c_str(), "admin", name, 0666, &flag), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(open_debug_log(nullptr, "admin", "prog", 0666, &flag), -1);
    EXPECT_EQ(open_debug_log("/tmp", nullptr, "prog", 0666, nullptr), -1);
}

TEST_F(DebugLogTest, FlagIsNeitherReadNorWritten)
{
    int flag = 4711;
    EXPECT_GE(open_debug_log(directory.path().c_str(), "admin", "prog", 0666, &flag), 0);
    EXPECT_EQ(flag, 4711);
    EXPECT_GE(open_debug_log(directory.path().c_str(), "admin", "prog", 0666, nullptr), 0);
}

TEST_F(DebugLogTest, EntriesBelowTheConfiguredLevelAreNotWritten)
{
    configure("DEBUG_LOG_LEVEL = 5\n");
    ASSERT_GE(open(), 0);
    for (const int level : {1, 2, 4, 5, 8, 16, 32})
        logmsg(level, "text", "context");
    EXPECT_THAT(lines(), ElementsAre("<5> context: text", "<8> context: text", "<16> context: text",
                                     "<32> context: text"));
}

TEST_F(DebugLogTest, LevelIsTwoUnlessConfigured)
{
    ASSERT_GE(open(), 0);
    logmsg(1, "text", "context");
    logmsg(2, "text", "context");
    EXPECT_THAT(lines(), ElementsAre("<2> context: text"));
}

TEST_F(DebugLogTest, BadSettingIsSaidInTheLogItself)
{
    configure("DEBUG_LOG_LEVEL = loud\n");
    ASSERT_GE(open(), 0);
    EXPECT_THAT(lines(), ElementsAre(HasSubstr("DEBUG_LOG_LEVEL = [loud]")));
}

class DebugLogDaysTest : public DebugLogTest {
protected:
    void makeFiles() const
    {
        for (const int age : {1, 2, 3, 28, 29, 400})
            tests::writeText(path(age), "x");
        for (const char* name : FOREIGN)
            tests::writeText(directory.file(std::string("admin/") + name), "x");
        std::filesystem::create_directory(directory.file("admin/prog.20200102.log"));
        std::filesystem::create_symlink("/etc/passwd", directory.file("admin/prog.20200103.log"));
    }

    [[nodiscard]] std::vector<int> agesLeft() const
    {
        std::vector<int> ages;
        for (const int age : {1, 2, 3, 28, 29, 400}) {
            if (std::filesystem::exists(path(age)))
                ages.push_back(age);
        }
        return ages;
    }

    static constexpr const char* FOREIGN[] = {
        "prog2.20200101.log", "other.20200101.log", "prog.20200101.log.gz", "prog.2020010a.log",
        "prog.log",           "prog.20200101.txt",  "prog-20200101.log",    "pro.20200101.log"};
};

TEST_F(DebugLogDaysTest, FirstOpenOfADayRemovesFilesOver28DaysOld)
{
    makeFiles();
    ASSERT_GE(open(), 0);
    EXPECT_THAT(agesLeft(), ElementsAre(1, 2, 3, 28));
}

TEST_F(DebugLogDaysTest, DaysKeptAreConfigured)
{
    makeFiles();
    configure("DEBUG_LOG_DAYS = 2\nDEBUG_LOG_LEVEL = bad\n"); // the entry about it does not make the day old
    ASSERT_GE(open(), 0);
    EXPECT_THAT(agesLeft(), ElementsAre(1, 2));
}

TEST_F(DebugLogDaysTest, ZeroKeepsAll)
{
    makeFiles();
    configure("DEBUG_LOG_DAYS = 0\n");
    ASSERT_GE(open(), 0);
    EXPECT_THAT(agesLeft(), ElementsAre(1, 2, 3, 28, 29, 400));
}

TEST_F(DebugLogDaysTest, LaterOpenOfADayRemovesNothing)
{
    ASSERT_GE(open(), 0);
    logmsg(2, "text", "context");
    makeFiles();
    ASSERT_GE(open(), 0);
    EXPECT_THAT(agesLeft(), ElementsAre(1, 2, 3, 28, 29, 400));
}

TEST_F(DebugLogDaysTest, NothingButThisProgramsFilesIsRemoved)
{
    makeFiles();
    ASSERT_GE(open(), 0);
    for (const char* name : FOREIGN)
        EXPECT_TRUE(std::filesystem::exists(directory.file(std::string("admin/") + name))) << name;
    EXPECT_TRUE(std::filesystem::is_directory(directory.file("admin/prog.20200102.log")));
    EXPECT_TRUE(std::filesystem::is_symlink(directory.file("admin/prog.20200103.log")));
}

TEST_F(DebugLogTest, ProcessesSideBySideDoNotMix)
{
    constexpr int PROCESSES = 4;
    constexpr int ENTRIES = 500;
    std::vector<pid_t> children;
    for (int number = 0; number < PROCESSES; ++number) {
        children.push_back(fork());
        if (children.back() == 0) {
            bool opened = open() >= 0;
            const std::string filler(300, static_cast<char>('a' + number));
            for (int i = 0; opened && i < ENTRIES; ++i)
                logmsgf(2, "context", "%s\n%s end", filler.c_str(), filler.c_str());
            _exit(opened ? 0 : 1);
        }
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    const std::vector<std::string> all = lines();
    ASSERT_EQ(all.size(), static_cast<std::size_t>(2 * PROCESSES * ENTRIES));
    for (std::size_t i = 0; i < all.size(); i += 2) {
        const std::string filler(300, all[i].back());
        ASSERT_EQ(all[i], "<2> context: " + filler);
        ASSERT_EQ(all[i + 1], "\t" + filler + " end");
    }
}

TEST_F(DebugLogTest, KilledRunLosesNothingItLogged)
{
    const pid_t child = fork();
    if (child == 0) {
        if (open() >= 0)
            logmsg(2, "before the end", "context");
        kill(getpid(), SIGKILL);
    }
    waitpid(child, nullptr, 0);
    EXPECT_THAT(lines(), ElementsAre("<2> context: before the end"));
}

TEST_F(DebugLogTest, EntriesAreWrittenUntilTheVeryEndOfAProcess)
{
    const pid_t child = fork();
    if (child == 0) {
        logsAtExit.armed = open() >= 0;
        std::exit(0); // NOLINT(concurrency-mt-unsafe)
    }
    waitpid(child, nullptr, 0);
    EXPECT_THAT(lines(), ElementsAre("<2> LogsAtExit: last words"));
}

TEST_F(DebugLogTest, FullDiskLosesEntriesAndNothingElse)
{
    ASSERT_GE(open(), 0);
    logmsg(2, "first", "context");
    auto* previous = std::signal(SIGXFSZ, SIG_IGN);
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    const rlimit full{std::filesystem::file_size(path()), saved.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    errno = EXDEV;
    logmsg(16, "lost", "context");
    EXPECT_EQ(errno, EXDEV);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &saved), 0);
    std::signal(SIGXFSZ, previous);
    logmsg(2, "after", "context");
    EXPECT_THAT(lines(), ElementsAre("<2> context: first", "<2> context: after"));
}

TEST_F(DebugLogTest, FileRotatedAwayInARunIsWrittenOn)
{
    ASSERT_GE(open(), 0);
    logmsg(2, "first", "context");
    std::filesystem::rename(path(), path() + ".1");
    logmsg(2, "second", "context");
    std::filesystem::rename(path() + ".1", path());
    EXPECT_THAT(lines(), ElementsAre("<2> context: first", "<2> context: second"));
}

TEST_F(DebugLogTest, ShortMemoryLosesTheEntryAndNotTheRun)
{
    ASSERT_GE(open(), 0);
    {
        const tests::ShortMemory shortMemory;
        logmsg(2, "lost", "context");
        logmsgf(2, "context", "%s", "lost");
    }
    logmsg(2, "after", "context");
    EXPECT_THAT(lines(), ElementsAre("<2> context: after"));
}

TEST_F(DebugLogTest, ShortMemoryFailsTheOpening)
{
    int descriptor = 0;
    int cause = 0;
    {
        const tests::ShortMemory shortMemory;
        descriptor =
            open_debug_log("/tmp", "a directory with a name that needs memory", "prog", 0666, nullptr);
        cause = errno;
    }
    EXPECT_EQ(descriptor, -1);
    EXPECT_EQ(cause, ENOMEM);
}

TEST(DebugLogUnopened, LogsNothing)
{
    const std::set<std::string> before = tests::namesIn("/proc/self/fd");
    logmsg(16, "text", "context");
    logmsgf(16, "context", "%d", 1);
    LogLine(LogLevel::error, "context") << "text";
    EXPECT_EQ(tests::namesIn("/proc/self/fd"), before);
}

} // namespace
