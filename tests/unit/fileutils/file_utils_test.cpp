#include "fileutils/file_utils.h"

#include "tests/fakes/platform/fake_platform.h"
#include "tests/unit/fileutils/failing_close.h"
#include "tests/unit/fileutils/limited_memory.h"
#include "tests/unit/fileutils/recorded_writes.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using fakes::LogEntry;
using testing::ElementsAre;

constexpr const char* CONTEXT = "FileUtils::shredFile";

std::string contentOf(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::ptrdiff_t openDescriptors()
{
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

/// Mode bits refuse root nothing: this takes the rights of an ordinary user while it lives.
class OrdinaryUser {
public:
    OrdinaryUser()
    {
        if (geteuid() == 0)
            changed_ = seteuid(NOBODY) == 0;
    }
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;
    ~OrdinaryUser()
    {
        if (changed_ && seteuid(0) != 0)
            std::abort();
    }
    static constexpr uid_t NOBODY = 65534;

private:
    bool changed_ = false;
};

/// Limits the size that files may grow to; a write beyond it fails.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limited{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limited);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, SIG_DFL);
    }

private:
    rlimit before_{};
};

class ShredFile : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        fs::remove_all(directory_);
        fs::create_directory(directory_);
    }
    void TearDown() override
    {
        fs::permissions(directory_, fs::perms::owner_all);
        fs::remove_all(directory_);
    }

    std::string makeFile(const std::string& name, const std::string& content)
    {
        const std::string path = directory_ / name;
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    /// The whole log of a file that cannot be opened: one entry says so, with the cause.
    static void expectLogOfRefusedOpen(const std::string& path, const std::string& cause)
    {
        EXPECT_THAT(
            fakes::platform().log,
            ElementsAre(
                LogEntry{2, "Received file <" + path + ">", CONTEXT},
                LogEntry{16, "Failed to open file <" + path + ">, with error = <" + cause + ">", CONTEXT}));
        EXPECT_THAT(fakes::platform().calls, ElementsAre("logmsgvf 2 9", "logmsgvf 16 0"));
    }

    const fs::path directory_ = fs::path(testing::TempDir()) / "shred";
};

TEST_F(ShredFile, OverwritesAndRemovesAFile)
{
    const std::string path = makeFile("old", "secret");
    EXPECT_EQ(FileUtils::shredFile(path), 0);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_THAT(fakes::platform().log, ElementsAre(LogEntry{2, "Received file <" + path + ">", CONTEXT},
                                                   LogEntry{2, "Exit. status <0>", CONTEXT}));
    EXPECT_THAT(fakes::platform().calls, ElementsAre("logmsgvf 2 9", "logmsgvf 2 9"));
}

TEST_F(ShredFile, FivePatternsThenRandomBytesThenZerosAreWrittenOverTheWholeSize)
{
    constexpr std::size_t SIZE = 20000;
    const std::string path = makeFile("old", std::string(SIZE, 's'));
    std::vector<fakes::RecordedWrite> writes;
    {
        const fakes::WriteRecorder recorder;
        ASSERT_EQ(FileUtils::shredFile(path), 0);
        writes = recorder.writes;
    }
    ASSERT_EQ(writes.size(), 7U);
    const char fixed[] = {'\x00', '\xFF', '\x00', '\xFF', '\x00'};
    for (std::size_t pass = 0; pass < 5; ++pass)
        EXPECT_EQ(writes[pass].bytes, std::string(SIZE, fixed[pass])) << "pass " << pass;
    const std::string& random = writes[5].bytes;
    ASSERT_EQ(random.size(), SIZE);
    EXPECT_TRUE(std::all_of(random.begin(), random.end(), [](char byte) { return byte >= 0; }))
        << "values 0 to 127";
    EXPECT_GT(std::set<char>(random.begin(), random.end()).size(), 100U);
    EXPECT_EQ(writes[6].bytes, std::string(SIZE, '\0'));
    for (const fakes::RecordedWrite& write : writes)
        EXPECT_EQ(write.offset, 0);
}

TEST_F(ShredFile, TheRandomBytesAreThoseOfTheProcessesGeneratorLessThan128)
{
    constexpr std::size_t SIZE = 500;
    constexpr unsigned SEED = 7;
    const std::string path = makeFile("old", std::string(SIZE, 's'));
    const fakes::WriteRecorder recorder;
    std::srand(SEED);
    ASSERT_EQ(FileUtils::shredFile(path), 0);

    std::string expected(SIZE, '\0');
    std::srand(SEED);
    for (char& byte : expected)
        byte = static_cast<char>(std::rand() % 128);
    ASSERT_EQ(recorder.writes.size(), 7U);
    EXPECT_EQ(recorder.writes[5].bytes, expected);
}

TEST_F(ShredFile, AMissingPathGives142AndWritesNothing)
{
    const std::string path = directory_ / "absent";
    EXPECT_EQ(FileUtils::shredFile(path), 142);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_THAT(
        fakes::platform().log,
        ElementsAre(LogEntry{2, "Received file <" + path + ">", CONTEXT},
                    LogEntry{16, "Failed to stat on file <" + path + ">, with error = <-1>", CONTEXT}));
    EXPECT_THAT(fakes::platform().calls, ElementsAre("logmsgvf 2 9", "logmsgvf 16 0"));
}

TEST_F(ShredFile, AReadOnlyFileGives12AndStaysInPlace)
{
    const std::string path = makeFile("readonly", "kept");
    fs::permissions(directory_, fs::perms::all);
    fs::permissions(path, fs::perms{0444});
    int status = 0;
    {
        const OrdinaryUser user;
        status = FileUtils::shredFile(path);
    }
    EXPECT_EQ(status, 12);
    EXPECT_EQ(contentOf(path), "kept");
    expectLogOfRefusedOpen(path, "Permission denied");
}

TEST_F(ShredFile, AnEmptyFileIsOpenedWrittenSevenTimesWithNoBytesAndRemoved)
{
    const std::string path = makeFile("empty", "");
    const fakes::WriteRecorder recorder;
    EXPECT_EQ(FileUtils::shredFile(path), 0);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_GE(recorder.seeksToStart, 7) << "each pass begins with one";
    EXPECT_THAT(recorder.writes, testing::IsEmpty());
    EXPECT_THAT(fakes::platform().log, ElementsAre(LogEntry{2, "Received file <" + path + ">", CONTEXT},
                                                   LogEntry{2, "Exit. status <0>", CONTEXT}));
}

TEST_F(ShredFile, AnEmptyFileThatCannotBeOpenedGives12AndStaysInPlace)
{
    const std::string path = makeFile("empty", "");
    fs::permissions(directory_, fs::perms::all);
    fs::permissions(path, fs::perms{0444});
    int status = 0;
    {
        const OrdinaryUser user;
        status = FileUtils::shredFile(path);
    }
    EXPECT_EQ(status, 12);
    EXPECT_TRUE(fs::exists(path));
    expectLogOfRefusedOpen(path, "Permission denied");
}

TEST_F(ShredFile, AFileThatCannotBeRemovedEndsAsZeroBytesOfItsOldSize)
{
    const std::string path = makeFile("stuck", "0123456789");
    if (geteuid() == 0) {
        ASSERT_EQ(chown(path.c_str(), OrdinaryUser::NOBODY, static_cast<gid_t>(-1)), 0);
    }
    fs::permissions(directory_, fs::perms{0555});
    int status = 0;
    {
        const OrdinaryUser user;
        status = FileUtils::shredFile(path);
    }
    EXPECT_EQ(status, 11);
    EXPECT_EQ(contentOf(path), std::string(10, '\0'));
    EXPECT_THAT(
        fakes::platform().log,
        ElementsAre(
            LogEntry{2, "Received file <" + path + ">", CONTEXT},
            LogEntry{16, "Failed to unlink file <" + path + ">, with error = <Permission denied>", CONTEXT}));
    EXPECT_THAT(fakes::platform().calls, ElementsAre("logmsgvf 2 9", "logmsgvf 16 0"));
}

TEST_F(ShredFile, AFailedWriteGives14AndTheFileStaysEmptied)
{
    const std::string path = makeFile("full", std::string(100, 'x'));
    int status = 0;
    {
        const FileSizeLimit limit(0);
        status = FileUtils::shredFile(path);
    }
    EXPECT_EQ(status, 14);
    EXPECT_EQ(fs::file_size(path), 0U) << "opening the file empties it";
    ASSERT_EQ(fakes::platform().log.size(), 2U);
    const LogEntry& failure = fakes::platform().log.back();
    EXPECT_EQ(failure.level, 16);
    EXPECT_EQ(failure.context, CONTEXT);
    EXPECT_THAT(failure.text, testing::StartsWith("Failure operating on file <" + path + ">: "));
    EXPECT_THAT(failure.text, testing::HasSubstr("iostream error"));
    EXPECT_THAT(fakes::platform().calls, ElementsAre("logmsgvf 2 9")) << "logmsgf has no flag";
}

TEST_F(ShredFile, AFailedCloseGives14AndTheFileStays)
{
    const std::string path = makeFile("old", "0123456789");
    fakes::failNextClose();
    EXPECT_EQ(FileUtils::shredFile(path), 14);
    EXPECT_EQ(contentOf(path), std::string(10, '\0'));
    ASSERT_EQ(fakes::platform().log.size(), 2U);
    const LogEntry& failure = fakes::platform().log.back();
    EXPECT_EQ(failure.level, 16);
    EXPECT_EQ(failure.context, CONTEXT);
    EXPECT_THAT(failure.text, testing::StartsWith("Failure operating on file <" + path + ">: "));
}

TEST_F(ShredFile, MemoryThatCannotBeHadGives14)
{
    const std::string path = makeFile("huge", "");
    fs::resize_file(path, fakes::LARGEST_ALLOCATION + 1); // sparse: takes no room
    EXPECT_EQ(FileUtils::shredFile(path), 14);
    EXPECT_EQ(fakes::platform().log.back(),
              (LogEntry{16, "Failure operating on file <" + path + ">: std::bad_alloc", CONTEXT}));
    EXPECT_TRUE(fs::exists(path));
}

TEST_F(ShredFile, ALinkGives12AndItsTargetIsUntouched)
{
    const std::string target = makeFile("target", "kept");
    const std::string link = directory_ / "link";
    fs::create_symlink(target, link);
    EXPECT_EQ(FileUtils::shredFile(link), 12);
    EXPECT_EQ(contentOf(target), "kept");
    EXPECT_TRUE(fs::is_symlink(link));
    expectLogOfRefusedOpen(link, "Too many levels of symbolic links");
}

TEST_F(ShredFile, ALinkThatLeadsNowhereGives142AsItsAttributesAreReadFirst)
{
    const std::string link = directory_ / "link";
    fs::create_symlink(directory_ / "nowhere", link);
    EXPECT_EQ(FileUtils::shredFile(link), 142);
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(fakes::platform().log.back(),
              (LogEntry{16, "Failed to stat on file <" + link + ">, with error = <-1>", CONTEXT}));
}

TEST_F(ShredFile, AFileWithASecondHardLinkGives12AndIsUntouched)
{
    const std::string path = makeFile("old", "kept");
    fs::create_hard_link(path, directory_ / "elsewhere");
    EXPECT_EQ(FileUtils::shredFile(path), 12);
    EXPECT_EQ(contentOf(path), "kept");
    expectLogOfRefusedOpen(path, "Too many links");
}

TEST_F(ShredFile, AFifoGives12WithoutWaiting)
{
    const std::string fifo = directory_ / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(FileUtils::shredFile(fifo), 12);
    EXPECT_TRUE(fs::exists(fifo));
    expectLogOfRefusedOpen(fifo, "Invalid argument");
}

TEST_F(ShredFile, AFifoWithAReaderGives12AndNothingIsWritten)
{
    const std::string fifo = directory_ / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    EXPECT_EQ(FileUtils::shredFile(fifo), 12);
    char byte = 0;
    EXPECT_EQ(read(reader, &byte, 1), 0);
    close(reader);
    expectLogOfRefusedOpen(fifo, "Invalid argument");
}

TEST_F(ShredFile, AFolderGives12)
{
    const std::string folder = directory_ / "folder";
    fs::create_directory(folder);
    EXPECT_EQ(FileUtils::shredFile(folder), 12);
    EXPECT_TRUE(fs::is_directory(folder));
    expectLogOfRefusedOpen(folder, "Invalid argument");
}

TEST_F(ShredFile, NoDescriptorIsLeft)
{
    const std::string full = makeFile("full", "text");
    const std::string fifo = directory_ / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);

    const std::ptrdiff_t before = openDescriptors();
    EXPECT_EQ(FileUtils::shredFile(makeFile("one", "text")), 0);
    EXPECT_EQ(FileUtils::shredFile(directory_ / "absent"), 142);
    int status = 0;
    {
        const FileSizeLimit limit(0);
        status = FileUtils::shredFile(full);
    }
    EXPECT_EQ(status, 14);
    EXPECT_EQ(FileUtils::shredFile(fifo), 12) << "opened, then refused";
    EXPECT_EQ(openDescriptors(), before);
    close(reader);
}

} // namespace
