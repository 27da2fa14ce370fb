#include "platform/log_file_sink.h"

#include "tests/unit/scratch_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <spdlog/details/log_msg.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using tests::readText;

/// Noon of 2026-11-20.
const tq::LogFileSink::Time FIRST_DAY{std::chrono::seconds(1795176000)};

class LogFileSinkTest : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("TZ", "UTC0", 1);
        tzset();
    }

    void log(tq::LogFileSink::Time time, const std::string& entry)
    {
        sink.log({time, {}, "", spdlog::level::info, entry});
    }

    [[nodiscard]] std::string text(const std::string& day) const
    {
        return readText(directory.file("prog." + day + ".log"));
    }

    [[nodiscard]] bool exists(const std::string& name) const
    {
        return std::filesystem::exists(std::filesystem::symlink_status(directory.file(name)));
    }

    tests::ScratchDirectory directory;
    tq::LogFileSink sink{directory.path(), "prog", 0644};
};

TEST_F(LogFileSinkTest, EntriesOfADayGoToItsFile)
{
    ASSERT_NE(sink.open(FIRST_DAY), -1);
    log(FIRST_DAY, "one\n");
    log(FIRST_DAY + 11h, "two\n");
    EXPECT_EQ(text("20261120"), "one\ntwo\n");
}

TEST_F(LogFileSinkTest, AnotherDayOpensItsFileUnderTheSameDescriptor)
{
    const int descriptor = sink.open(FIRST_DAY);
    log(FIRST_DAY, "one\n");
    log(FIRST_DAY + 24h, "two\n");
    EXPECT_EQ(text("20261120"), "one\n");
    EXPECT_EQ(text("20261121"), "two\n");
    struct stat open {};
    struct stat file {};
    ASSERT_EQ(fstat(descriptor, &open), 0);
    ASSERT_EQ(stat(directory.file("prog.20261121.log").c_str(), &file), 0);
    EXPECT_EQ(open.st_ino, file.st_ino);
    EXPECT_EQ(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_NE(fcntl(descriptor, F_GETFL) & O_APPEND, 0);
}

TEST_F(LogFileSinkTest, ClockThatGoesBackAppendsToTheEarlierDay)
{
    ASSERT_NE(sink.open(FIRST_DAY), -1);
    log(FIRST_DAY, "one\n");
    log(FIRST_DAY + 24h, "two\n");
    log(FIRST_DAY, "three\n");
    EXPECT_EQ(text("20261120"), "one\nthree\n");
}

TEST_F(LogFileSinkTest, DayThatCannotBeOpenedIsSaidOnceInTheOldFile)
{
    ASSERT_NE(sink.open(FIRST_DAY), -1);
    std::filesystem::create_symlink("/tmp/elsewhere", directory.file("prog.20261121.log"));
    log(FIRST_DAY + 24h, "two\n");
    log(FIRST_DAY + 25h, "three\n");
    const std::vector<std::string> lines = tests::linesOf(text("20261120"));
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines[0],
                testing::MatchesRegex("2026-11-21 12:00:00.000 .[0-9]+. <16> LogFileSink::changeDay: "
                                      "Unable to open .*/prog.20261121.log: .+; the log goes on here"));
    EXPECT_EQ(lines[1], "two");
    EXPECT_EQ(lines[2], "three");
    EXPECT_FALSE(std::filesystem::exists("/tmp/elsewhere"));
}

TEST_F(LogFileSinkTest, NewDayRemovesFilesOlderThanTheDaysKept)
{
    ASSERT_NE(sink.open(FIRST_DAY), -1);
    sink.keepDays(2);
    for (const char* name : {"prog.20261118.log", "prog.20261119.log", "prog.20240101.log"})
        tests::writeText(directory.file(name), "x");
    log(FIRST_DAY + 24h, "two\n");
    EXPECT_FALSE(exists("prog.20240101.log"));
    EXPECT_FALSE(exists("prog.20261118.log"));
    EXPECT_TRUE(exists("prog.20261119.log")) << "exactly as old as is kept";
    EXPECT_TRUE(exists("prog.20261120.log"));
}

TEST_F(LogFileSinkTest, DayThatIsNotNewRemovesNothing)
{
    ASSERT_NE(sink.open(FIRST_DAY), -1);
    sink.keepDays(2);
    tests::writeText(directory.file("prog.20240101.log"), "x");
    tests::writeText(directory.file("prog.20261121.log"), "another run's\n");
    log(FIRST_DAY + 24h, "two\n");
    EXPECT_TRUE(exists("prog.20240101.log"));
    EXPECT_EQ(text("20261121"), "another run's\ntwo\n");
}

TEST_F(LogFileSinkTest, EntryCutOffByAFullDiskDoesNotRunIntoTheNext)
{
    ASSERT_NE(sink.open(FIRST_DAY), -1);
    auto* previous = std::signal(SIGXFSZ, SIG_IGN);
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    const rlimit small{10, saved.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    log(FIRST_DAY, "first entry\n");
    log(FIRST_DAY, "lost\n");
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &saved), 0);
    log(FIRST_DAY, "after\n");
    log(FIRST_DAY, "last\n");
    std::signal(SIGXFSZ, previous);
    EXPECT_EQ(text("20261120"), "first entr\nafter\nlast\n");
}

TEST_F(LogFileSinkTest, EntryCutOffInAnEarlierRunDoesNotRunIntoTheNext)
{
    for (const char* day : {"20261120", "20261121"})
        std::ofstream(directory.file("prog." + std::string(day) + ".log")) << "one\ncut o";
    ASSERT_NE(sink.open(FIRST_DAY), -1);
    log(FIRST_DAY, "two\n");
    log(FIRST_DAY + 24h, "three\n");
    EXPECT_EQ(text("20261120"), "one\ncut o\ntwo\n");
    EXPECT_EQ(text("20261121"), "one\ncut o\nthree\n");
}

TEST_F(LogFileSinkTest, EntryThatAnotherProcessIsWritingIsNotCutOff)
{
    // So long that most looks at the file's end fall into the middle of one.
    const std::string longEntry = std::string(8 << 20, 'x') + '\n';
    std::atomic<bool> ended{false};
    std::thread writer([&] {
        const int file =
            ::open(directory.file("prog.20261120.log").c_str(), O_WRONLY | O_APPEND | O_CREAT, 0644);
        for (int entries = 0; entries < 10; ++entries)
            EXPECT_EQ(::write(file, longEntry.data(), longEntry.size()),
                      static_cast<ssize_t>(longEntry.size()));
        ::close(file);
        ended = true;
    });
    while (!ended) {
        tq::LogFileSink other{directory.path(), "prog", 0644};
        ASSERT_NE(other.open(FIRST_DAY), -1);
        other.log({FIRST_DAY, {}, "", spdlog::level::info, "short\n"});
    }
    writer.join();
    EXPECT_EQ(text("20261120").find("\n\n"), std::string::npos);
}

TEST_F(LogFileSinkTest, TakesNoPattern)
{
    ASSERT_NE(sink.open(FIRST_DAY), -1);
    sink.set_pattern("[%l] %v");
    sink.set_formatter(nullptr);
    log(FIRST_DAY, "one\n");
    sink.flush();
    EXPECT_EQ(text("20261120"), "one\n");
}

} // namespace
