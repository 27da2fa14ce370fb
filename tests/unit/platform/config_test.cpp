#include "platform/config.h"

#include "platform/config_file.h"
#include "platform/paths.h"
#include "tests/fakes/log/recording_log.h"
#include "tests/unit/test_files.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using fakes::countRecorded;
using fakes::RecordedEntry;
using fakes::recordedLog;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;
using testing::Pair;
using testing::UnorderedElementsAre;

namespace {

class Config : public testing::Test {
protected:
    Config()
    {
        std::filesystem::remove_all(TQ_CONFIG_FILE);
        recordedLog().clear();
    }
    void TearDown() override { std::filesystem::remove_all(TQ_CONFIG_FILE); }

    static void write(std::string_view text) { tests::writeText(TQ_CONFIG_FILE, text); }
};

using MasterConfig = Config;
using HostConfig = Config;
using Settings = Config;

std::pair<int, std::vector<std::string>> readHostConfig(int mode = TQ_CONFIG_LOCAL_ONLY)
{
    TQHostConfig config{};
    const int status = ReadHostConfigExA(mode, &config, 0, 0, 0);
    std::vector<std::string> names;
    for (const TQServerEntry* entry = config.servers; entry; entry = entry->next)
        names.emplace_back(entry->serverName);
    FreeHostConfigA(&config);
    EXPECT_EQ(config.servers, nullptr);
    return {status, names};
}

std::string valueOf(const char* key)
{
    char* value = nullptr;
    if (kxconfGetKeyValPair(get_master_config_ptr(), key, &value) != 0)
        return value ? "(touched)" : "(absent)";
    const std::unique_ptr<char, decltype(&std::free)> owner(value, &std::free);
    return value;
}

int flagOf(const char* key)
{
    int flag = 7;
    const int status = kxconfGetKeyValPairAsBool(get_master_config_ptr(), key, &flag);
    return (status == 0) == (flag != 7) ? flag : -1;
}

constexpr int ABSENT = 7;

} // namespace

// First in this file: before anything was read.
TEST_F(MasterConfig, IsEmptyBeforeTheFirstRead)
{
    ASSERT_NE(get_master_config_ptr(), nullptr);
    EXPECT_EQ(get_master_config_ptr()->serverNames, std::nullopt);
    EXPECT_THAT(get_master_config_ptr()->values, IsEmpty());
}

TEST_F(MasterConfig, MissingFileIsTwelveWithItsCause)
{
    EXPECT_EQ(TQ_read_master_config(), 12);
    EXPECT_THAT(recordedLog(), ElementsAre(RecordedEntry{16,
                                                         "Unable to open /usr/torqv/torquenix/kx.conf: "
                                                         "No such file or directory",
                                                         "TQ_read_master_config"}));
}

TEST_F(MasterConfig, FolderFifoAndDanglingLinkCannotBeOpened)
{
    std::filesystem::create_directory(TQ_CONFIG_FILE);
    EXPECT_EQ(TQ_read_master_config(), 12);
    EXPECT_EQ(readHostConfig(), std::make_pair(12, std::vector<std::string>{}));
    std::filesystem::remove(TQ_CONFIG_FILE);
    ASSERT_EQ(mkfifo(TQ_CONFIG_FILE, 0600), 0);
    EXPECT_EQ(TQ_read_master_config(), 12);
    std::filesystem::remove(TQ_CONFIG_FILE);
    std::filesystem::create_symlink("/usr/torqv/nowhere", TQ_CONFIG_FILE);
    EXPECT_EQ(TQ_read_master_config(), 12);
    EXPECT_EQ(countRecorded(16, "Unable to open /usr/torqv/torquenix/kx.conf: it is not a regular file"), 3U);
}

TEST_F(MasterConfig, LinkToARegularFileIsRead)
{
    tests::writeText("/tmp/real.conf", "SERVER = a\n");
    std::filesystem::create_symlink("/tmp/real.conf", TQ_CONFIG_FILE);
    EXPECT_EQ(TQ_read_master_config(), 0);
    EXPECT_THAT(get_master_config_ptr()->serverNames, Optional(ElementsAre("a")));
}

TEST_F(MasterConfig, FileOfAGigabyteCannotBeReadAndIsNot)
{
    write("SERVER = a\n");
    ASSERT_EQ(truncate(TQ_CONFIG_FILE, off_t{1} << 30), 0);
    EXPECT_EQ(TQ_read_master_config(), 13);
    EXPECT_THAT(recordedLog(),
                ElementsAre(RecordedEntry{16, "Unable to read /usr/torqv/torquenix/kx.conf: it is too large",
                                          "TQ_read_master_config"}));
}

TEST_F(MasterConfig, LargestFileIsRead)
{
    const std::string line = "SERVER = a\n";
    write(line + std::string(tq::CONFIG_MAX_BYTES - line.size(), '\n'));
    EXPECT_EQ(TQ_read_master_config(), 0);
    EXPECT_THAT(recordedLog(), IsEmpty());
}

TEST_F(MasterConfig, ReadFailureIsThirteen)
{
    std::filesystem::create_symlink("/proc/self/mem", TQ_CONFIG_FILE); // opens, but page 0 cannot be read
    EXPECT_EQ(TQ_read_master_config(), 13);
    EXPECT_EQ(countRecorded(16, "Unable to read /usr/torqv/torquenix/kx.conf: Input/output error"), 1U);
}

TEST_F(MasterConfig, FailureKeepsThePreviousOne)
{
    write("SERVER = a\nKEY = value\n");
    ASSERT_EQ(TQ_read_master_config(), 0);
    std::filesystem::remove(TQ_CONFIG_FILE);
    EXPECT_EQ(TQ_read_master_config(), 12);
    EXPECT_THAT(get_master_config_ptr()->serverNames, Optional(ElementsAre("a")));
    EXPECT_EQ(valueOf("KEY"), "value");
}

TEST_F(MasterConfig, NextReadForgetsWhatIsGone)
{
    write("SERVER = a\nKEY = value\n");
    ASSERT_EQ(TQ_read_master_config(), 0);
    write("OTHER = value\n");
    ASSERT_EQ(TQ_read_master_config(), 0);
    EXPECT_EQ(get_master_config_ptr()->serverNames, std::nullopt);
    EXPECT_EQ(valueOf("KEY"), "(absent)");
}

TEST_F(MasterConfig, EveryServerLineAddsAnEntryInOrder)
{
    write("SERVER = m1\nserver = m2\nSERVER = m1\n");
    ASSERT_EQ(TQ_read_master_config(), 0);
    EXPECT_THAT(get_master_config_ptr()->serverNames, Optional(ElementsAre("m1", "m2", "m1")));
    EXPECT_THAT(get_master_config_ptr()->values, IsEmpty());
}

TEST_F(MasterConfig, OfAnyOtherKeyTheLastLineHolds)
{
    write("Key = one\nOTHER = x\nKEY = two\n");
    ASSERT_EQ(TQ_read_master_config(), 0);
    EXPECT_THAT(get_master_config_ptr()->values,
                UnorderedElementsAre(Pair("KEY", "two"), Pair("OTHER", "x")));
}

TEST_F(MasterConfig, RefusedFirstServerStandsAsEmptySoThatTheSecondIsNotTheMasterServer)
{
    for (const char* refused : {"../../etc", "", "daemon", ".a", "a b"}) {
        SCOPED_TRACE(refused);
        recordedLog().clear();
        write("# comment\nSERVER = " + std::string(refused) + "\nSERVER = m2\n");
        ASSERT_EQ(TQ_read_master_config(), 0);
        EXPECT_THAT(get_master_config_ptr()->serverNames, Optional(ElementsAre("", "m2")));
        EXPECT_EQ(countRecorded(16, "/usr/torqv/torquenix/kx.conf: line 2: server name [" +
                                        std::string(refused) + "] is refused: "),
                  1U);
    }
}

TEST_F(MasterConfig, RefusedLaterServerIsLeftOut)
{
    write("SERVER = m1\nSERVER = a/b\nSERVER = m3\n");
    ASSERT_EQ(TQ_read_master_config(), 0);
    EXPECT_THAT(get_master_config_ptr()->serverNames, Optional(ElementsAre("m1", "m3")));
    EXPECT_EQ(countRecorded(16, "line 2: server name [a/b] is refused: it holds a slash"), 1U);
}

TEST_F(MasterConfig, RefusedNameIsShownCut)
{
    write("SERVER = " + std::string(5000, 'a') + "\n");
    ASSERT_EQ(TQ_read_master_config(), 0);
    EXPECT_EQ(countRecorded(16, "[" + std::string(253, 'a') + "] is refused"), 1U);
}

TEST_F(MasterConfig, DamagedLineIsNotedAtLevel8AndSkipped)
{
    write("SERVER = m1\njust words\nKEY = value\n");
    ASSERT_EQ(TQ_read_master_config(), 0);
    EXPECT_EQ(valueOf("KEY"), "value");
    EXPECT_THAT(recordedLog(), ElementsAre(RecordedEntry{8,
                                                         "/usr/torqv/torquenix/kx.conf: line 2 has no '=' "
                                                         "and is skipped",
                                                         "TQ_read_master_config"}));
}

TEST_F(MasterConfig, BinaryFileDoesNotFloodTheLog)
{
    std::string text;
    for (int i = 0; i < 100'000; ++i)
        text += "\x01\x02\n";
    write(text);
    ASSERT_EQ(TQ_read_master_config(), 0);
    EXPECT_EQ(recordedLog().size(), 11U);
    EXPECT_EQ(recordedLog().back().text, "/usr/torqv/torquenix/kx.conf: 99990 more lines are skipped");
}

TEST_F(MasterConfig, KeysAreFoundWithoutRegardToCase)
{
    write("Machine_Tqu_Type = client\n");
    ASSERT_EQ(TQ_read_master_config(), 0);
    EXPECT_EQ(valueOf("MACHINE_TQU_TYPE"), "client");
    EXPECT_EQ(valueOf("machine_tqu_type"), "client");
    EXPECT_EQ(valueOf("MACHINE"), "(absent)");
}

TEST_F(MasterConfig, EmptyValueIsFound)
{
    write("KEY =\n");
    ASSERT_EQ(TQ_read_master_config(), 0);
    EXPECT_EQ(valueOf("KEY"), "");
}

TEST_F(MasterConfig, FlagsAreReadByTheirWords)
{
    write("A = yes\nB = OFF\nC = maybe\nD =\nE = 1\nF = False\n");
    ASSERT_EQ(TQ_read_master_config(), 0);
    EXPECT_EQ(flagOf("A"), 1);
    EXPECT_EQ(flagOf("b"), 0);
    EXPECT_EQ(flagOf("C"), ABSENT);
    EXPECT_EQ(flagOf("D"), ABSENT);
    EXPECT_EQ(flagOf("E"), 1);
    EXPECT_EQ(flagOf("F"), 0);
    EXPECT_EQ(flagOf("G"), ABSENT);
}

TEST_F(MasterConfig, NullArgumentsAreRefused)
{
    char* value = nullptr;
    int flag = 0;
    EXPECT_EQ(kxconfGetKeyValPair(nullptr, "A", &value), 20);
    EXPECT_EQ(kxconfGetKeyValPair(get_master_config_ptr(), nullptr, &value), 20);
    EXPECT_EQ(kxconfGetKeyValPair(get_master_config_ptr(), "A", nullptr), 20);
    EXPECT_EQ(kxconfGetKeyValPairAsBool(nullptr, "A", &flag), 20);
    EXPECT_EQ(kxconfGetKeyValPairAsBool(get_master_config_ptr(), nullptr, &flag), 20);
    EXPECT_EQ(kxconfGetKeyValPairAsBool(get_master_config_ptr(), "A", nullptr), 20);
}

TEST_F(HostConfig, ListsTheServersInFileOrder)
{
    write("SERVER = m1\nCLIENT_NAME = c\nSERVER = m2\n");
    EXPECT_EQ(readHostConfig(), std::make_pair(0, std::vector<std::string>{"m1", "m2"}));
}

TEST_F(HostConfig, RefusedServersAreLeftOutEachWithAnEntry)
{
    write("SERVER = /\nSERVER = m1\nSERVER = daemon\n");
    EXPECT_EQ(readHostConfig(), std::make_pair(0, std::vector<std::string>{"m1"}));
    EXPECT_EQ(countRecorded(16, "is refused"), 2U);
    EXPECT_EQ(recordedLog().front().context, "ReadHostConfigExA");
}

TEST_F(HostConfig, NoServerGivesAnEmptyList)
{
    write("KEY = value\n");
    EXPECT_EQ(readHostConfig(), std::make_pair(0, std::vector<std::string>{}));
    FreeHostConfigA(nullptr);
}

TEST_F(HostConfig, MissingFileIsTwelveAndAnotherModeTwenty)
{
    EXPECT_EQ(readHostConfig().first, 12);
    write("SERVER = m1\n");
    EXPECT_EQ(readHostConfig(0).first, 20);
    EXPECT_EQ(ReadHostConfigExA(TQ_CONFIG_LOCAL_ONLY, nullptr, 0, 0, 0), 20);
}

TEST(InstallDir, HasItsClosingSlashAndMustFit)
{
    char buffer[12];
    EXPECT_EQ(getTQInstallDir(buffer, 12), 0);
    EXPECT_STREQ(buffer, "/usr/torqv/");
    buffer[0] = '!';
    EXPECT_EQ(getTQInstallDir(buffer, 11), 20);
    EXPECT_EQ(getTQInstallDir(buffer, 0), 20);
    EXPECT_EQ(getTQInstallDir(buffer, -1), 20);
    EXPECT_STREQ(buffer, "!usr/torqv/") << "untouched by a failure";
    EXPECT_EQ(getTQInstallDir(nullptr, 100), 20);
}

TEST_F(Settings, DefaultsWithoutAFileOrAKeyAndWithoutAnEntry)
{
    const auto expectDefaults = [] {
        const tq::PlatformSettings settings = tq::readPlatformSettings();
        EXPECT_EQ(settings.debugLogLevel, 2);
        EXPECT_EQ(settings.debugLogDays, 28);
        EXPECT_EQ(settings.webConnectSeconds, 30);
        EXPECT_EQ(settings.webTransferSeconds, 120);
        EXPECT_EQ(settings.webMaxReplyMegabytes, 1024);
    };
    expectDefaults();
    write("SERVER = m1\n");
    expectDefaults();
    EXPECT_THAT(recordedLog(), IsEmpty());
}

TEST_F(Settings, AreReadFromTheirKeys)
{
    write("debug_log_level = 8\nDEBUG_LOG_DAYS = 0\nWEB_CONNECT_SECONDS = 5\nWEB_TRANSFER_SECONDS = 7\n"
          "WEB_MAX_REPLY_MB = 1\nWEB_MAX_REPLY_MB = 9\n");
    const tq::PlatformSettings settings = tq::readPlatformSettings();
    EXPECT_EQ(settings.debugLogLevel, 8);
    EXPECT_EQ(settings.debugLogDays, 0);
    EXPECT_EQ(settings.webConnectSeconds, 5);
    EXPECT_EQ(settings.webTransferSeconds, 7);
    EXPECT_EQ(settings.webMaxReplyMegabytes, 9);
}

TEST_F(Settings, ValueThatIsNoNumberOfTheRangeLeavesTheDefaultWithAnEntry)
{
    for (const char* value :
         {"", "0", "-1", "3601", "30s", "0x1E", "1e1", "99999999999999999999", "+5", "3 0"}) {
        SCOPED_TRACE(value);
        recordedLog().clear();
        write("\nWEB_CONNECT_SECONDS = " + std::string(value) + "\n");
        EXPECT_EQ(tq::readPlatformSettings().webConnectSeconds, 30);
        EXPECT_THAT(
            recordedLog(),
            ElementsAre(RecordedEntry{8,
                                      "/usr/torqv/torquenix/kx.conf: line 2: WEB_CONNECT_SECONDS = [" +
                                          std::string(value) + "] is not a number from 1 to 3600; 30 is used",
                                      "readPlatformSettings"}));
    }
}

TEST_F(Settings, EachRangeHasItsEnds)
{
    const std::tuple<const char*, int tq::PlatformSettings::*, int, int, int> ranges[] = {
        {"DEBUG_LOG_LEVEL", &tq::PlatformSettings::debugLogLevel, 0, 16, 2},
        {"DEBUG_LOG_DAYS", &tq::PlatformSettings::debugLogDays, 0, 36500, 28},
        {"WEB_CONNECT_SECONDS", &tq::PlatformSettings::webConnectSeconds, 1, 3600, 30},
        {"WEB_TRANSFER_SECONDS", &tq::PlatformSettings::webTransferSeconds, 1, 86400, 120},
        {"WEB_MAX_REPLY_MB", &tq::PlatformSettings::webMaxReplyMegabytes, 1, 65536, 1024},
    };
    for (const auto& [key, member, least, most, standard] : ranges) {
        SCOPED_TRACE(key);
        const auto read = [key = key, member = member](int value) {
            write(std::string(key) + " = " + std::to_string(value) + "\n");
            return tq::readPlatformSettings().*member;
        };
        EXPECT_EQ(read(least), least);
        EXPECT_EQ(read(most), most);
        EXPECT_EQ(read(least - 1), standard);
        EXPECT_EQ(read(most + 1), standard);
    }
}

TEST_F(Settings, UnreadableFileLeavesTheDefaults)
{
    write("WEB_CONNECT_SECONDS = 5\n");
    ASSERT_EQ(truncate(TQ_CONFIG_FILE, off_t{1} << 30), 0);
    EXPECT_EQ(tq::readPlatformSettings().webConnectSeconds, 30);
    EXPECT_EQ(countRecorded(16, "it is too large"), 1U);
}
