#include "hostdb/tqhost_cachehandler.h"

#include "hostinfo/tqclntdb_hostinfo.h"
#include "platform/file_io.h"
#include "tests/unit/hostdb/test_host.h"

#include <algorithm>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using fakes::LogEntry;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using TQCLNTDB::CHostInformation;
using TQCLNTDB::cleanupOldCacheFile;
using TQCLNTDB::TQHostDBCacheHandler;

constexpr const char* CACHE = "/usr/torqv/var/hostdb.cache.m1";
constexpr const char* LOCK = "/usr/torqv/var/hostdbcache.m1.lock";

TQHostDBCacheHandler makeHandler(const std::string& server)
{
    return TQHostDBCacheHandler(server, TQ_CACHE_FILE_BASE, TQ_CACHE_LOCK_BASE);
}

CHostInformation sampleRecord()
{
    CHostInformation record("m1", CERT_TYPE_HOST);
    record.hostId = test_host::HOST_ID;
    record.hostName = "h1.example";
    record.osType = "UNIX";
    record.osReleaseVersion = "12";
    record.installedHFXs = {"HFX1"};
    record.installedPackages = {"TQpkg 1", "TQpkg 2"};
    record.servers = {"m1", "m2"};
    record.isSecureEnabled = true;
    record.machineTquType = "MASTER";
    return record;
}

class CacheHandler : public testing::Test {
protected:
    void SetUp() override { test_host::reset(); }

    std::vector<LogEntry>& log() { return fakes::platform().log; }
};

// Lock

TEST_F(CacheHandler, HoldsTheServersLockForItsWholeLife)
{
    {
        TQHostDBCacheHandler handler = makeHandler("m1");
        EXPECT_THAT(fakes::platform().calls, ElementsAre(std::string("lock ") + LOCK + " 10 5"));
        std::string text;
        handler.readCacheFile(text);
        EXPECT_EQ(fakes::platform().count("unlock"), 0U);
    }
    EXPECT_EQ(fakes::platform().calls.back(), "unlock (held)");
}

TEST_F(CacheHandler, GoesOnWithoutALockThatIsBusy)
{
    fakes::platform().busyLocks = {LOCK};
    TQHostDBCacheHandler handler = makeHandler("m1");
    const CHostInformation record = sampleRecord();
    EXPECT_TRUE(handler.writeCacheFile(&record));
    EXPECT_TRUE(handler.isPresentInCache(&record));
}

TEST_F(CacheHandler, EachServerNameHasFilesOfItsOwnSpelledAsGiven)
{
    const CHostInformation record = sampleRecord();
    for (const char* server : {"M1", "m1", "m1.example", "m-1_~"}) {
        TQHostDBCacheHandler handler = makeHandler(server);
        EXPECT_TRUE(handler.writeCacheFile(&record));
        EXPECT_TRUE(fs::exists(std::string("/usr/torqv/var/hostdb.cache.") + server));
        EXPECT_EQ(
            fakes::platform().count("lock /usr/torqv/var/hostdbcache." + std::string(server) + ".lock 10 5"),
            1U);
    }
}

// readCacheFile

TEST_F(CacheHandler, ReadGivesTheFirstLineWithoutItsLineEnd)
{
    const std::pair<std::string, std::string> cases[] = {
        {"one\ntwo\n", "one"},
        {"one", "one"},
        {"one\r\ntwo", "one\r"},
        {std::string("a\0b\n", 4), std::string("a\0b", 3)},
        {std::string(100000, 'x') + "\nrest", std::string(100000, 'x')},
        {std::string(16384, 'x') + "\nrest", std::string(16384, 'x')},
    };
    TQHostDBCacheHandler handler = makeHandler("m1");
    for (const auto& [content, line] : cases) {
        test_host::write(CACHE, content);
        std::string text = "before";
        EXPECT_TRUE(handler.readCacheFile(text));
        EXPECT_EQ(text, line) << content.substr(0, 40);
    }
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(CacheHandler, AnEmptyFirstLineIsReadAsAnEmptyTextAndNoted)
{
    TQHostDBCacheHandler handler = makeHandler("m1");
    for (const char* content : {"", "\n", "\ntwo\n"}) {
        test_host::write(CACHE, content);
        log().clear();
        std::string text = "before";
        EXPECT_TRUE(handler.readCacheFile(text));
        EXPECT_EQ(text, "");
        EXPECT_THAT(log(), ElementsAre(LogEntry{8, std::string("Cache file ") + CACHE + " holds no record\n",
                                                "TQHostDBCacheHandler::readCacheFile"}));
    }
}

TEST_F(CacheHandler, AnAbsentFileIsNotedAndNotRead)
{
    TQHostDBCacheHandler handler = makeHandler("m1");
    std::string text = "before";
    EXPECT_FALSE(handler.readCacheFile(text));
    EXPECT_EQ(text, "before");
    EXPECT_THAT(log(), ElementsAre(LogEntry{2, std::string("Unable to open cache file :") + CACHE + "\n",
                                            "TQHostDBCacheHandler::readCacheFile"}));
}

TEST_F(CacheHandler, AFileThatIsNotARegularOneCannotBeOpened)
{
    TQHostDBCacheHandler handler = makeHandler("m1");
    const std::pair<const char*, std::function<void()>> places[] = {
        {"link",
         [] {
             test_host::write("/usr/torqv/var/elsewhere", "{}\n");
             fs::create_symlink("/usr/torqv/var/elsewhere", CACHE);
         }},
        {"dangling link", [] { fs::create_symlink("/usr/torqv/var/nowhere", CACHE); }},
        {"fifo", [] { mkfifo(CACHE, 0600); }},
        {"folder", [] { fs::create_directory(CACHE); }},
    };
    for (const auto& [name, make] : places) {
        make();
        log().clear();
        std::string text;
        EXPECT_FALSE(handler.readCacheFile(text)) << name;
        ASSERT_EQ(log().size(), 2U) << name;
        EXPECT_EQ(log()[0].level, 16) << name << ": the cause";
        EXPECT_EQ(log()[1], (LogEntry{2, std::string("Unable to open cache file :") + CACHE + "\n",
                                      "TQHostDBCacheHandler::readCacheFile"}))
            << name;
        fs::remove(CACHE);
    }
}

TEST_F(CacheHandler, AFileOverSixteenMebibytesCannotBeOpened)
{
    test_host::write(CACHE, "{}\n");
    TQHostDBCacheHandler handler = makeHandler("m1");
    std::string text = "before";

    fs::resize_file(CACHE, tq::OWN_FILE_MAX_BYTES);
    EXPECT_TRUE(handler.readCacheFile(text));
    EXPECT_EQ(text, "{}");

    text = "before";
    fs::resize_file(CACHE, tq::OWN_FILE_MAX_BYTES + 1);
    EXPECT_FALSE(handler.readCacheFile(text));
    EXPECT_EQ(text, "before");
    EXPECT_THAT(
        log(),
        ElementsAre(LogEntry{16, std::string("Cache file ") + CACHE + " is larger than 16777216 bytes\n",
                             "TQHostDBCacheHandler::readCacheFile"},
                    LogEntry{2, std::string("Unable to open cache file :") + CACHE + "\n",
                             "TQHostDBCacheHandler::readCacheFile"}));
}

// isPresentInCache

TEST_F(CacheHandler, WithoutACacheFileNothingIsPresent)
{
    const CHostInformation record = sampleRecord();
    EXPECT_FALSE(makeHandler("m1").isPresentInCache(&record));
}

TEST_F(CacheHandler, AnEmptyFirstLineIsNotCompared)
{
    const CHostInformation record;
    for (const char* content : {"", "\n", "\n{}\n"}) {
        test_host::write(CACHE, content);
        log().clear();
        EXPECT_FALSE(makeHandler("m1").isPresentInCache(&record));
        EXPECT_THAT(log(), ElementsAre(LogEntry{8, std::string("Cache file ") + CACHE + " holds no record\n",
                                                "TQHostDBCacheHandler::readCacheFile"}));
    }
}

TEST_F(CacheHandler, TheRecordThatWasWrittenIsPresent)
{
    const CHostInformation record = sampleRecord();
    TQHostDBCacheHandler handler = makeHandler("m1");
    ASSERT_TRUE(handler.writeCacheFile(&record));
    log().clear();
    EXPECT_TRUE(handler.isPresentInCache(&record));
    EXPECT_THAT(log(),
                ElementsAre(LogEntry{2, "Cached host information and local host information are same\n",
                                     "TQHostDBCacheHandler::isPresentInCache"}));
}

TEST_F(CacheHandler, InTheComparisonThisIsTheCachedRecord)
{
    CHostInformation record = sampleRecord();
    TQHostDBCacheHandler handler = makeHandler("m1");
    ASSERT_TRUE(handler.writeCacheFile(&record));
    record.hostName = "renamed.example";
    log().clear();
    EXPECT_FALSE(handler.isPresentInCache(&record));
    EXPECT_THAT(log(), ElementsAre(LogEntry{2, "host name h1.example and renamed.example mismatched.\n",
                                            "CHostInformation::operator=="}));
}

TEST_F(CacheHandler, MalformedJsonIsComparedAsAnEmptyRecord)
{
    test_host::write(CACHE, "{\"uuid\":\n");
    const CHostInformation record = sampleRecord();
    EXPECT_FALSE(makeHandler("m1").isPresentInCache(&record));
    ASSERT_EQ(log().size(), 3U);
    EXPECT_EQ(log()[0].context, "JSONConverter::LoadJSON");
    EXPECT_EQ(log()[1],
              (LogEntry{8, std::string("Unable to read host information in cache file ") + CACHE + "\n",
                        "TQHostDBCacheHandler::isPresentInCache"}));
    EXPECT_EQ(log()[2],
              (LogEntry{2, "Installed HFX  and HFX1 mismatched \n", "CHostInformation::operator=="}));
}

TEST_F(CacheHandler, AnExceptionWhileReadingTheCachedTextCountsAsALineThatCannotBeRead)
{
    test_host::write(CACHE, "{\"servers\":[1]}\n");
    const CHostInformation record = sampleRecord();
    EXPECT_FALSE(makeHandler("m1").isPresentInCache(&record));
    ASSERT_FALSE(log().empty());
    const LogEntry& entry = log().back();
    EXPECT_EQ(entry.level, 8);
    EXPECT_EQ(entry.context, "TQHostDBCacheHandler::isPresentInCache");
    EXPECT_THAT(entry.text,
                HasSubstr(std::string("Unable to read host information in cache file ") + CACHE + ": "));
    EXPECT_EQ(std::count_if(log().begin(), log().end(), [](const LogEntry& e) { return e.level == 8; }), 1);
    EXPECT_THAT(fakes::platform().texts("CHostInformation::operator=="), IsEmpty());
}

TEST_F(CacheHandler, DamagedCachesNeverCompareEqualAndAreNamedOnce)
{
    const std::string damaged[] = {
        "null",
        "[]",
        "\"x\"",
        "7",
        "{}",
        "{}{}",
        "\xEF\xBB\xBF{}",
        std::string("{}\0", 3),
        "\xFF\xFE",
        std::string(100000, '['),
        "{\"uuid\":1}",
        std::string(1000000, 'x'),
    };
    const CHostInformation record = sampleRecord();
    for (const std::string& text : damaged) {
        test_host::write(CACHE, text + "\n");
        log().clear();
        EXPECT_FALSE(makeHandler("m1").isPresentInCache(&record)) << text.substr(0, 40);
        const LogEntry named{8, std::string("Unable to read host information in cache file ") + CACHE + "\n",
                             "TQHostDBCacheHandler::isPresentInCache"};
        EXPECT_EQ(std::count(log().begin(), log().end(), named), 1) << text.substr(0, 40);
        EXPECT_EQ(fakes::platform().texts("CHostInformation::operator==").size(), 1U) << text.substr(0, 40);
    }
}

// writeCacheFile

TEST_F(CacheHandler, WritesOneLineOfCompactJsonWithTheIdentity)
{
    const CHostInformation record = sampleRecord();
    TQHostDBCacheHandler handler = makeHandler("m1");
    EXPECT_TRUE(handler.writeCacheFile(&record));
    const std::string text = record.getJSON(true, false);
    EXPECT_EQ(test_host::contentOf(CACHE), text + "\n");
    EXPECT_THAT(text, HasSubstr("\"uuid\""));
    EXPECT_THAT(log(), ElementsAre(LogEntry{2, "Writing json  string :" + text + " to file :" + CACHE + "\n",
                                            "TQHostDBCacheHandler::writeCacheFile"}));
}

TEST_F(CacheHandler, RewritesTheSameFileInPlace)
{
    test_host::write(CACHE, std::string(5000, 'x') + "\nold\n");
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(stat(CACHE, &before), 0);
    const CHostInformation record = sampleRecord();
    EXPECT_TRUE(makeHandler("m1").writeCacheFile(&record));
    ASSERT_EQ(stat(CACHE, &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(test_host::contentOf(CACHE), record.getJSON(true, false) + "\n");
}

TEST_F(CacheHandler, ANewFileHasTheProcessesDefaultPermissions)
{
    const mode_t before = umask(022);
    const CHostInformation record = sampleRecord();
    EXPECT_TRUE(makeHandler("m1").writeCacheFile(&record));
    umask(before);
    struct stat attributes {};
    ASSERT_EQ(stat(CACHE, &attributes), 0);
    EXPECT_EQ(attributes.st_mode & 07777, 0644U);
}

TEST_F(CacheHandler, AFileThatCannotBeOpenedForWritingIsAFailure)
{
    fs::create_directory(CACHE);
    const CHostInformation record = sampleRecord();
    EXPECT_FALSE(makeHandler("m1").writeCacheFile(&record));
    EXPECT_EQ(log().back(), (LogEntry{16,
                                      "Unable to update json  string :" + record.getJSON(true, false) +
                                          " to file :" + CACHE + "\n",
                                      "TQHostDBCacheHandler::writeCacheFile"}));
}

TEST_F(CacheHandler, ALinkIsNotWrittenThrough)
{
    test_host::write("/usr/torqv/var/elsewhere", "kept");
    fs::create_symlink("/usr/torqv/var/elsewhere", CACHE);
    const CHostInformation record = sampleRecord();
    EXPECT_FALSE(makeHandler("m1").writeCacheFile(&record));
    EXPECT_EQ(test_host::contentOf("/usr/torqv/var/elsewhere"), "kept");
}

TEST_F(CacheHandler, AFailedWriteIsLoggedAndDoesNotChangeTheResult)
{
    const CHostInformation record = sampleRecord();
    TQHostDBCacheHandler handler = makeHandler("m1");
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limited{10, before.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limited);
    const bool written = handler.writeCacheFile(&record);
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, SIG_DFL);

    EXPECT_TRUE(written);
    EXPECT_EQ(log().back(),
              (LogEntry{8, std::string("Unable to write cache file ") + CACHE + ": File too large\n",
                        "TQHostDBCacheHandler::writeCacheFile"}));
    EXPECT_FALSE(handler.isPresentInCache(&record)) << "the cut line compares unequal";
}

// cleanupOldCacheFile

class OldCacheFiles : public CacheHandler {
protected:
    static constexpr const char* CONTEXT = "TQHostDBCacheHandler::cleanupOldCacheFile";

    void TearDown() override { fs::create_directories(TQ_BIN_DIR); }

    static std::string path(const std::string& name) { return std::string(TQ_BIN_DIR) + "/" + name; }
};

TEST_F(OldCacheFiles, CachesAndTheirLocksAreRemoved)
{
    for (const char* name : {"hostdb.cache.M", "hostdbcache.M.lock", "hostdb.cache", "hostdb.cacheold",
                             "hostdbcache.lock", "hostdbcacheM.lock"}) {
        SCOPED_TRACE(name);
        test_host::write(path(name), "secret");
        log().clear();
        cleanupOldCacheFile();
        EXPECT_FALSE(fs::exists(path(name)));
        EXPECT_EQ(log().back(),
                  (LogEntry{2, "Old file [" + path(name) + "] found. Removed the file.\n", CONTEXT}));
    }
}

TEST_F(OldCacheFiles, OtherFilesAreKeptAndNotMentioned)
{
    const char* const names[] = {"hostdbcache.M",      "myhostdb.cache",  "HOSTDB.CACHE.M",  "hostdb.cach",
                                 "hostdbcache.M.LOCK", "hostdbcachelock", "hostdbcach.lock", "tqhostdbcmd"};
    for (const char* name : names)
        test_host::write(path(name), "kept");
    cleanupOldCacheFile();
    for (const char* name : names)
        EXPECT_EQ(test_host::contentOf(path(name)), "kept") << name;
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(OldCacheFiles, AFileThatCannotBeShreddedIsReportedWithItsStatus)
{
    fs::create_directory(path("hostdb.cache.folder"));
    test_host::write(path("hostdb.cache.M"), "secret");
    cleanupOldCacheFile();
    EXPECT_TRUE(fs::exists(path("hostdb.cache.folder")));
    EXPECT_FALSE(fs::exists(path("hostdb.cache.M"))) << "the others go on";
    EXPECT_TRUE(fakes::platform().logged(
        2, "Old file [" + path("hostdb.cache.folder") + "] deletion failed with error: 12\n", CONTEXT));
}

TEST_F(OldCacheFiles, ALinkIsKeptAndItsTargetUntouched)
{
    test_host::write("/usr/torqv/var/elsewhere", "kept");
    fs::create_symlink("/usr/torqv/var/elsewhere", path("hostdb.cache.M"));
    cleanupOldCacheFile();
    EXPECT_EQ(test_host::contentOf("/usr/torqv/var/elsewhere"), "kept");
    EXPECT_EQ(
        log().back(),
        (LogEntry{2, "Old file [" + path("hostdb.cache.M") + "] deletion failed with error: 12\n", CONTEXT}));
}

TEST_F(OldCacheFiles, ABinaryDirectoryThatCannotBeOpenedIsAnError)
{
    fs::remove(TQ_BIN_DIR);
    cleanupOldCacheFile();
    EXPECT_THAT(log(), ElementsAre(LogEntry{16, "Cannot open Torquenix bin directory\n", CONTEXT}));
}

TEST_F(OldCacheFiles, AnEmptyDirectoryIsSilent)
{
    cleanupOldCacheFile();
    EXPECT_THAT(log(), IsEmpty());
}

} // namespace
