#include "masterd/data_folder.h"

#include "masterd/command_failure.h"
#include "masterd/store.h"
#include "tests/unit/masterd/failing_calls.h"
#include "tests/unit/scratch_directory.h"

#include <cerrno>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using masterd::CommandFailure;
using masterd::DataFolder;
using masterd::DataFolderHold;
using masterd::initDataFolder;

class DataFolderTest : public testing::Test {
protected:
    /// Contents of all files of the folder but the lock and the database's own.
    std::map<std::string, std::string> contents()
    {
        std::map<std::string, std::string> texts;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path()))
            texts[entry.path().filename()] = tests::readText(entry.path());
        return texts;
    }
    static int failureOf(const std::function<void()>& work, std::string* message = nullptr)
    {
        try {
            work();
        } catch (const CommandFailure& failure) {
            if (message != nullptr)
                *message = failure.what();
            return failure.exitStatus();
        }
        return 0;
    }

    tests::ScratchDirectory scratch_;
    DataFolder folder_{scratch_.file("data")};
};

TEST_F(DataFolderTest, HoldsAuthorityServerCertificateDatabaseAndSettingsForTheOwnerAlone)
{
    const masterd::Authority made = initDataFolder(folder_, {"localhost"});
    EXPECT_EQ(tests::modeOf(folder_.path()), 0700U);
    for (const std::string& file : {folder_.authorityFile(), folder_.serverFile(), folder_.databaseFile(),
                                    folder_.settingsFile(), folder_.lockFile()})
        EXPECT_EQ(tests::modeOf(file), 0600U) << file;
    const masterd::Authority stored(masterd::loadKeyAndCertificate(folder_.authorityFile()));
    EXPECT_EQ(stored.fingerprint(), made.fingerprint());
    EXPECT_NO_THROW(masterd::loadKeyAndCertificate(folder_.serverFile()));
    EXPECT_NO_THROW(masterd::Store(folder_.databaseFile()));
}

TEST_F(DataFolderTest, FolderThatExistsIsTakenWithWhatIsInIt)
{
    std::filesystem::create_directory(folder_.path());
    tests::writeText(folder_.settingsFile(), "{\"certificateDays\": 5}");
    initDataFolder(folder_, {"localhost"});
    EXPECT_EQ(tests::modeOf(folder_.path()), 0700U);
    EXPECT_EQ(tests::readText(folder_.settingsFile()), "{\"certificateDays\": 5}");
}

TEST_F(DataFolderTest, FolderInUseForSomethingElseStaysAsItIs)
{
    std::filesystem::create_directory(folder_.path());
    chmod(folder_.path().c_str(), 0755);
    tests::writeText(folder_.path() + "/notes", "text");
    std::string message;
    EXPECT_EQ(failureOf([&] { initDataFolder(folder_, {"x"}); }, &message), masterd::EXIT_FAILED);
    EXPECT_EQ(message,
              folder_.path() + " is in use for something else: it holds \"notes\"; nothing was changed");
    EXPECT_EQ(tests::modeOf(folder_.path()), 0755U);
    EXPECT_EQ(contents(), (std::map<std::string, std::string>{{"notes", "text"}}));
}

TEST_F(DataFolderTest, EmptyFolderBecomesTheOwnersAlone)
{
    std::filesystem::create_directory(folder_.path());
    chmod(folder_.path().c_str(), 0755);
    initDataFolder(folder_, {"localhost"});
    EXPECT_EQ(tests::modeOf(folder_.path()), 0700U);
}

TEST_F(DataFolderTest, FolderOfARunThatWasKilledIsNotForeign)
{
    initDataFolder(folder_, {"localhost"});
    const std::string unfinished = tests::lastRenamed;
    std::filesystem::rename(folder_.authorityFile(), unfinished); // as if it had come no further
    ASSERT_EQ(std::filesystem::path(unfinished).parent_path(), folder_.path());
    for (const char* suffix : {"-wal", "-shm", "-journal"})
        tests::writeText(folder_.databaseFile() + suffix, "");
    EXPECT_NO_THROW(initDataFolder(folder_, {"localhost"}));
    EXPECT_TRUE(std::filesystem::exists(folder_.authorityFile()));
}

TEST_F(DataFolderTest, FolderAboveTheNewOneIsBroughtToTheDisk)
{
    tests::synced.clear();
    initDataFolder(folder_, {"localhost"});
    struct stat above {};
    ASSERT_EQ(stat(scratch_.path().c_str(), &above), 0);
    EXPECT_EQ(tests::synced.count(above.st_ino), 1U);
}

TEST_F(DataFolderTest, DataFolderUnderALinkIsUsedAsAnyOther)
{
    std::filesystem::create_directory(scratch_.file("real"));
    std::filesystem::create_directory_symlink(scratch_.file("real"), scratch_.file("link"));
    const DataFolder linked(scratch_.file("link/data"));
    initDataFolder(linked, {"localhost"});
    EXPECT_NO_THROW(masterd::Store(linked.databaseFile()));
    EXPECT_TRUE(std::filesystem::exists(scratch_.file("real/data/authority.pem")));
    const DataFolder link(scratch_.file("link"));
    EXPECT_EQ(failureOf([&] { initDataFolder(link, {"localhost"}); }), masterd::EXIT_FAILED); // holds "data"
}

TEST_F(DataFolderTest, SecondAuthorityIsRefusedAndNothingIsLost)
{
    initDataFolder(folder_, {"localhost"});
    const auto before = contents();
    std::string message;
    EXPECT_EQ(failureOf([&] { initDataFolder(folder_, {"other"}); }, &message), masterd::EXIT_FAILED);
    EXPECT_NE(message.find(folder_.path() + " holds an authority already"), std::string::npos) << message;
    EXPECT_EQ(contents(), before);
}

TEST_F(DataFolderTest, RunThatWasCutOffIsCompletedByTheNext)
{
    initDataFolder(folder_, {"localhost"});
    std::filesystem::remove(folder_.authorityFile());
    const masterd::Authority made = initDataFolder(folder_, {"localhost"});
    const masterd::KeyAndCertificate server = masterd::loadKeyAndCertificate(folder_.serverFile());
    EXPECT_EQ(X509_verify(server.certificate.get(), X509_get0_pubkey(made.own().certificate.get())), 1);
}

TEST_F(DataFolderTest, FolderIsHeldByOneAtATime)
{
    initDataFolder(folder_, {"localhost"});
    {
        const DataFolderHold hold(folder_);
        std::string message;
        EXPECT_EQ(failureOf([&] { const DataFolderHold second(folder_); }, &message),
                  masterd::EXIT_FOLDER_BUSY);
        EXPECT_EQ(message, "another tqmasterd is using the data folder " + folder_.path());
        EXPECT_EQ(failureOf([&] { initDataFolder(folder_, {"x"}); }), masterd::EXIT_FOLDER_BUSY);
    }
    EXPECT_NO_THROW(DataFolderHold{folder_});
}

TEST_F(DataFolderTest, LockThatCannotBeOpenedIsNotCalledBusy)
{
    std::string message;
    EXPECT_EQ(failureOf([&] { const DataFolderHold hold(folder_); }, &message), masterd::EXIT_FAILED);
    EXPECT_EQ(message, "cannot take the lock " + folder_.lockFile() + ": No such file or directory");
}

TEST_F(DataFolderTest, LockThatCannotBeTakenIsNotCalledBusy)
{
    initDataFolder(folder_, {"localhost"});
    tests::lockFault = ENOLCK;
    std::string message;
    EXPECT_EQ(failureOf([&] { const DataFolderHold hold(folder_); }, &message), masterd::EXIT_FAILED);
    tests::lockFault = 0;
    EXPECT_EQ(message, "cannot take the lock " + folder_.lockFile() + ": No locks available");
}

TEST_F(DataFolderTest, PlaceThatCannotBeAFolderIsToldByName)
{
    tests::writeText(scratch_.file("data"), "text");
    std::string message;
    EXPECT_EQ(failureOf([&] { initDataFolder(folder_, {"x"}); }, &message), masterd::EXIT_FAILED);
    EXPECT_EQ(message, folder_.path() + " is not a folder");
    const DataFolder deep(scratch_.file("absent/data"));
    EXPECT_EQ(failureOf([&] { initDataFolder(deep, {"x"}); }, &message), masterd::EXIT_FAILED);
    EXPECT_EQ(message, "cannot make the folder " + deep.path() + ": No such file or directory");
}

TEST_F(DataFolderTest, DatabaseThatCannotBeMadeEndsItBeforeThereIsAnAuthority)
{
    std::filesystem::create_directories(folder_.databaseFile());
    std::string message;
    EXPECT_EQ(failureOf([&] { initDataFolder(folder_, {"x"}); }, &message), masterd::EXIT_FAILED);
    EXPECT_EQ(message, "cannot make the database " + folder_.databaseFile() + ": it is not a regular file");
    EXPECT_FALSE(std::filesystem::exists(folder_.authorityFile()));
}

TEST_F(DataFolderTest, FolderWithoutAnAuthorityIsToldSo)
{
    std::string message;
    EXPECT_EQ(failureOf([&] { masterd::requireAuthority(folder_); }, &message), masterd::EXIT_FAILED);
    EXPECT_EQ(message, folder_.path() + " holds no authority; make one with `tqmasterd init`");
}

TEST_F(DataFolderTest, DamagedKeyFileIsToldByName)
{
    initDataFolder(folder_, {"localhost"});
    tests::writeText(folder_.authorityFile(), "junk");
    std::string message;
    EXPECT_EQ(failureOf([&] { masterd::loadKeyAndCertificate(folder_.authorityFile()); }, &message),
              masterd::EXIT_FAILED);
    EXPECT_EQ(message, folder_.authorityFile() + ": it holds no usable private key");
    EXPECT_EQ(failureOf([&] { masterd::loadKeyAndCertificate(scratch_.file("absent")); }, &message),
              masterd::EXIT_FAILED);
    EXPECT_EQ(message, "cannot read " + scratch_.file("absent") + ": No such file or directory");
}

/// Whether a process that called becomeFolderOwner() has the given user and group for good, and no other
/// group.
bool isOwnerAfterwards(const DataFolder& folder, uid_t user, gid_t group)
{
    const uid_t before = getuid();
    const pid_t child = fork();
    if (child == 0) {
        masterd::becomeFolderOwner(folder);
        uid_t users[3] = {};
        gid_t groups[3] = {};
        getresuid(&users[0], &users[1], &users[2]);
        getresgid(&groups[0], &groups[1], &groups[2]);
        bool is = true;
        for (int i = 0; i < 3; ++i)
            is = is && users[i] == user && groups[i] == group;
        _exit(is && (user == before || getgroups(0, nullptr) == 0) ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0;
}

TEST_F(DataFolderTest, RootWorksAsTheOwnerOfAServicesFolder)
{
    constexpr uid_t SERVICE_USER = 65534;
    std::filesystem::create_directory(folder_.path());
    // Only root gives a folder away; for anybody else it stays his own, and he stays himself.
    const bool given = chown(folder_.path().c_str(), SERVICE_USER, SERVICE_USER) == 0;
    EXPECT_TRUE(isOwnerAfterwards(folder_, given ? SERVICE_USER : getuid(), given ? SERVICE_USER : getgid()));
}

TEST_F(DataFolderTest, CallerStaysHimselfForAFolderOfHisOwnOrNone)
{
    EXPECT_TRUE(isOwnerAfterwards(folder_, getuid(), getgid()));
    std::filesystem::create_directory(folder_.path());
    EXPECT_TRUE(isOwnerAfterwards(folder_, getuid(), getgid()));
}

} // namespace
