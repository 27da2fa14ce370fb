#include "platform/file_io.h"

#include "tests/fakes/log/recording_log.h"
#include "tests/unit/test_files.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string_view>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using fakes::countRecorded;
using fakes::RecordedEntry;
using fakes::recordedLog;
using testing::ElementsAre;
using testing::UnorderedElementsAre;
using tests::readText;
using tests::writeText;

namespace {

constexpr const char* CONTEXT = "theCaller";

class FileIo : public testing::Test {
protected:
    FileIo() { recordedLog().clear(); }

    const std::string directory = tests::freshDirectory("/tmp/file_io");
    const std::string path = directory + "/file";
};

using OpenOwnFile = FileIo;
using ReadFile = FileIo;
using ReadFileStart = FileIo;
using ReplaceFile = FileIo;
using DescriptorOwner = FileIo;

/// Makes one kind of thing that is no regular file at a path.
struct Irregular {
    const char* kind;
    void (*make)(const std::string& path);
    int error;
    const char* words;
};

const Irregular IRREGULAR[] = {
    {"dangling link", [](const std::string& at) { std::filesystem::create_symlink("/tmp/nowhere", at); },
     ELOOP, "it is a symbolic link"},
    {"link to a file",
     [](const std::string& at) {
         writeText("/tmp/target", "target");
         std::filesystem::create_symlink("/tmp/target", at);
     },
     ELOOP, "it is a symbolic link"},
    {"hard link",
     [](const std::string& at) {
         writeText("/tmp/target", "target");
         std::filesystem::create_hard_link("/tmp/target", at);
     },
     EMLINK, "it has a second hard link"},
    {"fifo", [](const std::string& at) { ASSERT_EQ(mkfifo(at.c_str(), 0600), 0); }, EINVAL,
     "it is not a regular file"},
    {"folder", [](const std::string& at) { std::filesystem::create_directory(at); }, EINVAL,
     "it is not a regular file"},
    {"socket",
     [](const std::string& at) {
         sockaddr_un address{};
         address.sun_family = AF_UNIX;
         at.copy(address.sun_path, sizeof address.sun_path - 1);
         const tq::FileDescriptor listener(socket(AF_UNIX, SOCK_STREAM, 0));
         ASSERT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
     },
     EINVAL, "it is not a regular file"},
};

} // namespace

TEST_F(OpenOwnFile, MakesAFileWithItsModeAndClosesItInChildren)
{
    const tq::FileDescriptor file = tq::openOwnFile(path, O_WRONLY | O_CREAT, 0600, CONTEXT);
    ASSERT_TRUE(file);
    EXPECT_EQ(tests::modeOf(path), 0600U);
    EXPECT_NE(fcntl(file.get(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_THAT(recordedLog(), ElementsAre());
}

TEST_F(OpenOwnFile, AbsentFileIsLeftToTheCallerToReport)
{
    EXPECT_FALSE(tq::openOwnFile(path, O_RDONLY, 0, CONTEXT));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_THAT(recordedLog(), ElementsAre());
}

TEST_F(OpenOwnFile, TruncatesARegularFile)
{
    writeText(path, "old text");
    EXPECT_TRUE(tq::openOwnFile(path, O_WRONLY | O_TRUNC, 0, CONTEXT));
    EXPECT_EQ(readText(path), "");
}

TEST_F(OpenOwnFile, RefusesWhateverIsNoRegularFileWithOneEntry)
{
    for (const Irregular& irregular : IRREGULAR) {
        for (const int flags :
             {O_RDONLY, O_WRONLY | O_CREAT | O_TRUNC, O_RDWR | O_CREAT, O_WRONLY | O_APPEND}) {
            SCOPED_TRACE(std::string(irregular.kind) + " with flags " + std::to_string(flags));
            tests::freshDirectory(directory);
            irregular.make(path);
            recordedLog().clear();
            EXPECT_FALSE(tq::openOwnFile(path, flags, 0600, CONTEXT));
            EXPECT_EQ(errno, irregular.error);
            EXPECT_THAT(recordedLog(), ElementsAre(RecordedEntry{
                                           16, "Unable to open " + path + ": " + irregular.words, CONTEXT}));
        }
    }
    EXPECT_EQ(readText("/tmp/target"), "target") << "O_TRUNC must not reach a refused file";
}

TEST_F(OpenOwnFile, NullContextLeavesTheEntryToTheCaller)
{
    std::filesystem::create_directory(path);
    EXPECT_FALSE(tq::openOwnFile(path, O_RDONLY, 0, nullptr));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_THAT(recordedLog(), ElementsAre());
}

TEST_F(OpenOwnFile, RefusesADevice)
{
    EXPECT_FALSE(tq::openOwnFile("/dev/null", O_WRONLY | O_CREAT, 0600, CONTEXT));
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(ReadFileStart, GivesASmallFileWholeAndTheBeginningOfALargerOne)
{
    writeText(path, std::string("start\0\n", 7));
    std::filesystem::create_symlink(path, directory + "/link");
    EXPECT_EQ(tq::readFileStart(directory + "/link"), std::string("start\0\n", 7));
    std::filesystem::resize_file(path, tq::FILE_START_BYTES + 1);
    const std::optional<std::string> text = tq::readFileStart(path);
    ASSERT_TRUE(text);
    EXPECT_EQ(text->size(), tq::FILE_START_BYTES);
    EXPECT_EQ(text->substr(0, 5), "start");
}

TEST_F(ReadFileStart, ReadErrorOnlyEndsTheText)
{
    EXPECT_EQ(tq::readFileStart("/proc/self/mem"), "") << "it opens and refuses a read at its beginning";
}

TEST_F(ReadFileStart, WhatIsAbsentOrNoRegularFileIsNotOpened)
{
    EXPECT_EQ(tq::readFileStart(path), std::nullopt);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(tq::readFileStart(directory), std::nullopt);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(tq::readFileStart("/dev/zero"), std::nullopt);
    EXPECT_EQ(errno, EINVAL);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(tq::readFileStart(path), std::nullopt);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(ReadFile, FollowsALinkToARegularFile)
{
    writeText(path, std::string("a\0b\n", 4));
    std::filesystem::create_symlink(path, directory + "/link");
    bool readFailed = true;
    EXPECT_EQ(tq::readFile(directory + "/link", 100, &readFailed), std::string("a\0b\n", 4));
    EXPECT_FALSE(readFailed);
}

TEST_F(ReadFile, ReadsAFileWhoseSizeIsNotKnownBeforehand)
{
    EXPECT_THAT(tq::readFile("/proc/self/status", 1 << 20, nullptr),
                testing::Optional(testing::HasSubstr("Pid:")));
}

TEST_F(ReadFile, AbsentFileFifoAndFolderCannotBeOpened)
{
    ASSERT_EQ(mkfifo((directory + "/fifo").c_str(), 0600), 0);
    const std::pair<std::string, int> cases[] = {
        {path, ENOENT}, {directory + "/fifo", EINVAL}, {directory, EINVAL}, {"/dev/zero", EINVAL}};
    for (const auto& [unusable, error] : cases) {
        SCOPED_TRACE(unusable);
        bool readFailed = true;
        EXPECT_EQ(tq::readFile(unusable, 100, &readFailed), std::nullopt);
        EXPECT_EQ(errno, error);
        EXPECT_FALSE(readFailed);
    }
}

TEST_F(ReadFile, LimitIsTheLargestSizeThatIsRead)
{
    writeText(path, "12345");
    EXPECT_EQ(tq::readFile(path, 5, nullptr), "12345");
    EXPECT_EQ(tq::readFile(path, 4, nullptr), std::nullopt);
    EXPECT_EQ(errno, EFBIG);
}

TEST_F(ReadFile, LimitHoldsForAFileThatIsLargerThanItSays)
{
    bool readFailed = true;
    EXPECT_EQ(tq::readFile("/proc/self/status", 10, &readFailed), std::nullopt);
    EXPECT_EQ(errno, EFBIG);
    EXPECT_FALSE(readFailed);
}

TEST_F(ReadFile, FailedReadIsToldApartFromAFailedOpen)
{
    bool readFailed = false;
    EXPECT_EQ(tq::readFile("/proc/self/mem", 100, &readFailed), std::nullopt); // page 0 cannot be read
    EXPECT_EQ(errno, EIO);
    EXPECT_TRUE(readFailed);
}

TEST_F(ReplaceFile, WritesANewFileWithItsMode)
{
    ASSERT_TRUE(tq::replaceFile(path, "text", 0600, CONTEXT));
    EXPECT_EQ(readText(path), "text");
    EXPECT_EQ(tests::modeOf(path), 0600U);
    EXPECT_THAT(tests::namesIn(directory), ElementsAre("file"));
}

TEST_F(ReplaceFile, SyncsTheFileBeforeItsNameAndTheFolderAfterIt)
{
    constexpr std::string_view TEXT = "text";
    const pid_t child = fork();
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        _exit(tq::replaceFile(path, TEXT, 0600, CONTEXT) ? 0 : 1);
    }
    std::vector<std::string> steps;
    int status = 0;
    for (waitpid(child, &status, 0); WIFSTOPPED(status); waitpid(child, &status, 0)) {
        ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD); // lets a stop tell its call
        __ptrace_syscall_info call{};
        ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof call, &call);
        if (call.op == PTRACE_SYSCALL_INFO_ENTRY) {
            if (call.entry.nr == SYS_fsync)
                steps.emplace_back("sync");
            else if (call.entry.nr == SYS_write &&
                     call.entry.args[2] == TEXT.size()) // others are a sanitizer's
                steps.emplace_back("write");
            else if (call.entry.nr == SYS_rename)
                steps.emplace_back("rename");
        }
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    }
    EXPECT_EQ(status, 0);
    EXPECT_THAT(steps, ElementsAre("write", "sync", "rename", "sync"));
}

TEST_F(ReplaceFile, ReplacesALinkAndNotItsTarget)
{
    const std::string target = directory + "/target";
    writeText(target, "untouched");
    std::filesystem::create_symlink(target, path);
    ASSERT_TRUE(tq::replaceFile(path, "text", 0600, CONTEXT));
    EXPECT_EQ(readText(target), "untouched");
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(path)));
}

TEST_F(ReplaceFile, FailureKeepsTheOldFileAndLeavesNoTemporaryOne)
{
    writeText(path, "old");
    rlimit old{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    const rlimit small{10, old.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const bool replaced = tq::replaceFile(path, "more than ten bytes", 0600, CONTEXT);
    const int error = errno;
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_FALSE(replaced);
    EXPECT_EQ(error, EFBIG);
    EXPECT_EQ(readText(path), "old");
    EXPECT_THAT(tests::namesIn(directory), ElementsAre("file"));
    EXPECT_THAT(recordedLog(),
                ElementsAre(RecordedEntry{16, "Unable to write " + path + ": File too large", CONTEXT}));
}

TEST_F(ReplaceFile, FolderInTheWayIsAFailureThatNamesIt)
{
    std::filesystem::create_directory(path);
    EXPECT_FALSE(tq::replaceFile(path, "text", 0600, CONTEXT));
    EXPECT_THAT(tests::namesIn(directory), ElementsAre("file"));
    EXPECT_EQ(countRecorded(16, "Unable to write " + path), 1U);
}

TEST_F(ReplaceFile, MissingFolderIsAFailure)
{
    EXPECT_FALSE(tq::replaceFile(directory + "/none/file", "text", 0600, CONTEXT));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(countRecorded(16, "No such file or directory"), 1U);
}

TEST_F(ReplaceFile, SweepsUpWhatAKilledProcessLeft)
{
    const std::string hex(32, 'a');
    const pid_t dead = fork();
    if (dead == 0)
        _exit(0);
    ASSERT_EQ(waitpid(dead, nullptr, 0), dead);
    const std::string left = ".tq-new." + std::to_string(dead) + "." + hex;
    const std::string living = ".tq-new." + std::to_string(getppid()) + "." + hex;
    for (const std::string& name : {left, living, std::string(".tq-new.notours")}) {
        writeText(directory + "/" + name, "half");
        tests::makeOlder(directory + "/" + name, 120);
    }
    ASSERT_TRUE(tq::replaceFile(path, "text", 0600, CONTEXT));
    EXPECT_THAT(tests::namesIn(directory), UnorderedElementsAre("file", living, ".tq-new.notours"));
}

TEST_F(ReplaceFile, YoungTemporaryFileMayBelongToAProcessOfAnotherContainerAndStays)
{
    const std::string hex(32, 'a');
    const pid_t dead = fork();
    if (dead == 0)
        _exit(0);
    ASSERT_EQ(waitpid(dead, nullptr, 0), dead);
    const std::string unseen = ".tq-new." + std::to_string(dead) + "." + hex;
    const std::string sameNumber = ".tq-new." + std::to_string(getpid()) + "." + hex;
    for (const std::string& name : {unseen, sameNumber})
        writeText(directory + "/" + name, "being written");
    ASSERT_TRUE(tq::replaceFile(path, "text", 0600, CONTEXT));
    EXPECT_THAT(tests::namesIn(directory), UnorderedElementsAre("file", unseen, sameNumber));
}

TEST_F(DescriptorOwner, MovesReleasesAndClosesItsDescriptor)
{
    tq::FileDescriptor first(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const int number = first.get();
    tq::FileDescriptor second;
    second = std::move(first);
    EXPECT_FALSE(first); // NOLINT(bugprone-use-after-move): the moved-from state is what is tested
    EXPECT_EQ(second.get(), number);
    tq::FileDescriptor third(std::move(second));
    EXPECT_EQ(third.release(), number);
    EXPECT_FALSE(third);
    EXPECT_NE(fcntl(number, F_GETFD), -1);
    third.reset(number);
    third.reset();
    EXPECT_EQ(fcntl(number, F_GETFD), -1);
}

TEST(WriteAll, FullDeviceIsAFailureWithItsCause)
{
    const tq::FileDescriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    if (!full) // a container without it: the closed descriptor fails as well, with another cause
        GTEST_FAIL() << "no /dev/full";
    EXPECT_FALSE(tq::writeAll(full.get(), "text"));
    EXPECT_EQ(errno, ENOSPC);
}

TEST(WriteAll, EmptyTextIsWritten)
{
    EXPECT_TRUE(tq::writeAll(-1, ""));
}

TEST(FileFault, OtherNumbersHaveTheSystemsWords)
{
    EXPECT_EQ(tq::fileFault(EACCES), "Permission denied");
    EXPECT_EQ(tq::fileFault(ELOOP), "it is a symbolic link");
}

TEST(ErrorText, IsTheSystemsForEveryNumber)
{
    EXPECT_EQ(tq::errorText(EACCES), "Permission denied");
    EXPECT_EQ(tq::errorText(ELOOP), "Too many levels of symbolic links");
    EXPECT_EQ(tq::errorText(EMLINK), "Too many links");
    EXPECT_EQ(tq::errorText(EINVAL), "Invalid argument");
    EXPECT_EQ(tq::errorText(EFBIG), "File too large");
}

TEST(ListDirectory, UnreadableOneIsEmpty)
{
    EXPECT_THAT(tq::listDirectory("/tmp/does-not-exist"), ElementsAre());
    EXPECT_FALSE(tq::syncDirectory("/tmp/does-not-exist"));
    EXPECT_TRUE(tq::syncDirectory("/tmp"));
}
