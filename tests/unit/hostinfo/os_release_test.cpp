#include "hostinfo/os_release.h"

#include "hostinfo/tqclntdb_hostinfo.h"
#include "tests/fakes/platform/fake_platform.h"
#include "tests/unit/failing_read.h"
#include "tests/unit/hostinfo/text_file.h"

#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

using fakes::LogEntry;
using fakes::platform;
using testing::ElementsAre;
using testing::IsEmpty;
using TQCLNTDB::CHostInformation;

namespace {

constexpr int PROGRESS = 2;
constexpr int ERROR = 16;
constexpr const char* PATH = "/tmp/release";
constexpr const char* NAME_CONTEXT = "CHostInformation::getOSName";
constexpr const char* ID_CONTEXT = "CHostInformation::getOSReleaseVersionFromId";
constexpr const char* STRING_CONTEXT = "CHostInformation::getOSReleaseVersionFromString";
constexpr const char* CUT_CONTEXT = "CHostInformation::getOSReleaseVersionWithoutBuildNo";

using Rows = std::vector<std::pair<std::string, std::optional<std::string>>>;

const std::string TEN_MEGABYTES(10U << 20, 'x');

// The parsers

TEST(ParseDisplayName, TakesWhatFollowsTheKeyWithoutQuotesAndBlanks)
{
    const Rows rows{
        {"PRETTY_NAME=\"Ubuntu 20.04.3 LTS\"", "Ubuntu 20.04.3 LTS"},
        {"PRETTY_NAME=Bare", "Bare"},
        {"PRETTY_NAME: x", "x"},
        {"PRETTY_NAMEx=y", "=y"},
        {"# PRETTY_NAME='Single'", "'Single'"},
        {"PRETTY_NAME=\" \" x \" \"", "x"},
        {"PRETTY_NAME=a PRETTY_NAME=b", "a PRETTY_NAME=b"},
        {"PRETTY_NAME==", "="},
        {"PRETTY_NAME=", ""},
        {"PRETTY_NAME=\"x\"\r", "x\"\r"},
        {"PRETTY_NAME=" + TEN_MEGABYTES, TEN_MEGABYTES},
        {std::string("PRETTY_NAME=a\0b", 15), std::string("a\0b", 3)},
        {"PRETTY_NAME=\"\xff\xfe\"", "\xff\xfe"},
        {"", std::nullopt},
        {"pretty_name=x", std::nullopt},
        {"PRETTY_NAM=x", std::nullopt},
        {std::string("PRETTY\0_NAME=x", 14), std::nullopt},
        {TEN_MEGABYTES, std::nullopt},
    };
    for (const auto& [line, value] : rows)
        EXPECT_EQ(TQCLNTDB::parseDisplayName(line), value) << line.substr(0, 60);
}

TEST(ParseDisplayName, ValueOfQuotesAndBlanksAloneIsDeliberatelyReturnedUnchanged)
{
    EXPECT_EQ(TQCLNTDB::parseDisplayName("PRETTY_NAME=\"\""), "\"\"");
    EXPECT_EQ(TQCLNTDB::parseDisplayName("PRETTY_NAME=\" \""), "\" \"");
    EXPECT_EQ(TQCLNTDB::parseDisplayName("PRETTY_NAME=  "), "  ");
}

TEST(ParseVersionId, TakesWhatFollowsTheKeyWithoutQuotesAndBlanks)
{
    const Rows rows{
        {"VERSION_ID=\"8.4\"", "8.4"},
        {"VERSION_ID=\"20.04\"", "20.04"},
        {"VERSION_ID=11", "11"},
        {"XX_VERSION_ID_XX=9", "XX=9"},
        {"VERSION_ID=\"\"", "\"\""},
        {"VERSION_ID=", ""},
        {"VERSION_ID=11\r", "11\r"},
        {"VERSION_ID\r", ""},
        {"VERSION_ID=" + TEN_MEGABYTES, TEN_MEGABYTES},
        {"VERSION_ID=\xc3", "\xc3"},
        {"", std::nullopt},
        {"VERSION=11", std::nullopt},
        {"version_id=11", std::nullopt},
    };
    for (const auto& [line, value] : rows)
        EXPECT_EQ(TQCLNTDB::parseVersionId(line), value) << line.substr(0, 60);
}

TEST(ParseReleaseWord, TakesTheWordAfterRelease)
{
    const Rows rows{
        {"CentOS Linux release 7.9.2009 (Core)", "7.9.2009"},
        {"Red Hat Enterprise Linux Server release 7.9 (Maipo)", "7.9"},
        {"x release 8", "8"},
        {"x release  8", ""},
        {"x release ", ""},
        {"release 8", "8"},
        {"# see /etc/os-release for this release.", "for"},
        {"x release=8", "8"},
        {"x prereleases 8", ""},
        {"x release 7 release 8", "7"},
        {"x release 8\r", "8\r"},
        {"x release 8\tbeta", "8\tbeta"},
        {"x release " + TEN_MEGABYTES + " y", TEN_MEGABYTES},
        {"x release \xff y", "\xff"},
        {std::string("x release 8\0 y", 14), std::string("8\0", 2)},
        {"", std::nullopt},
        {"SUSE Linux Enterprise Server 12 (x86_64)", std::nullopt},
        {"VERSION = 12", std::nullopt},
        {"x Release 8", std::nullopt},
        {"release8", std::nullopt},
        {"x\trelease\t8", std::nullopt},
        {TEN_MEGABYTES, std::nullopt},
    };
    for (const auto& [line, value] : rows)
        EXPECT_EQ(TQCLNTDB::parseReleaseWord(line), value) << line.substr(0, 60);
}

TEST(ParseReleaseWord, KeyAtTheEndOfALineWithoutABlankIsNoMatch)
{
    EXPECT_EQ(TQCLNTDB::parseReleaseWord("release"), std::nullopt);
}

TEST(ReleaseParsers, LineThatEndsRightAtItsKeyDeliberatelyThrows)
{
    for (const std::string before : {"", "# "}) {
        EXPECT_THROW(TQCLNTDB::parseDisplayName(before + "PRETTY_NAME"), std::out_of_range);
        EXPECT_THROW(TQCLNTDB::parseVersionId(before + "VERSION_ID"), std::out_of_range);
    }
    EXPECT_THROW(TQCLNTDB::parseReleaseWord("x release"), std::out_of_range);
}

TEST(CutBuildNumber, CutsFiveCharactersOfThreeOrMorePartsWhateverTheyAre)
{
    const Rows rows{
        {"7.9.2009", "7.9"},
        {"1.2.33", "1"},
        {"1.2.3", ""},
        {"12.345.6789", "12.345"},
        {"1.2.3.4.5", "1.2."},
        {"..", ""},
        {"1..", ""},
        {"1.2.", ""},
        {"...........", "......"},
        {"8", std::nullopt},
        {"8.4", std::nullopt},
        {".", std::nullopt},
        {"", std::nullopt},
        {"12345678901", std::nullopt},
    };
    for (const auto& [version, shortened] : rows)
        EXPECT_EQ(TQCLNTDB::cutBuildNumber(version), shortened) << version;
}

// The operations on files

class ReleaseFile : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        std::filesystem::remove(PATH);
    }

    const CHostInformation record{};
};
class OSName : public ReleaseFile {};
class OSReleaseVersionFromId : public ReleaseFile {};
class OSReleaseVersionFromString : public ReleaseFile {};
class OSReleaseVersionWithoutBuildNo : public ReleaseFile {};

TEST_F(OSName, FirstMatchingLineWinsAndIsLogged)
{
    fakes::writeFile(PATH, "NAME=\"Ubuntu\"\nPRETTY_NAME=\"Ubuntu 20.04.3 LTS\"\nPRETTY_NAME=other\n");
    EXPECT_EQ(record.getOSName(PATH), "Ubuntu 20.04.3 LTS");
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{PROGRESS, "OS Name [Ubuntu 20.04.3 LTS]", NAME_CONTEXT}));
}

TEST_F(OSName, FileThatCannotBeOpenedIsEmpty)
{
    EXPECT_EQ(record.getOSName(PATH), "");
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{PROGRESS, "Unable to open file: /tmp/release", NAME_CONTEXT}));
}

TEST_F(OSName, FileWithoutTheKeyIsEmptyWithoutAnEntry)
{
    for (const std::string text : {"", "\n", "NAME=x", "NAME=x\r\nVERSION_ID=1\r\n"}) {
        fakes::writeFile(PATH, text);
        EXPECT_EQ(record.getOSName(PATH), "") << text;
    }
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(OSName, LastLineNeedsNoEnd)
{
    fakes::writeFile(PATH, "NAME=x\nPRETTY_NAME=\"y\"");
    EXPECT_EQ(record.getOSName(PATH), "y");
}

TEST_F(OSName, LineThatEndsRightAtTheKeyDeliberatelyThrows)
{
    fakes::writeFile(PATH, "PRETTY_NAME\n");
    EXPECT_THROW(record.getOSName(PATH), std::out_of_range);
}

TEST_F(OSReleaseVersionFromId, EveryLineIsReadAndTheLastMatchWins)
{
    fakes::writeFile(PATH, "VERSION_ID=\"8.4\"\n\nVERSION_ID=7.9.2009\nNAME=x");
    EXPECT_EQ(record.getOSReleaseVersionFromId(PATH), "7.9");
    EXPECT_THAT(
        platform().log,
        ElementsAre(
            LogEntry{PROGRESS, "Found line: [VERSION_ID=\"8.4\"] for parsing Version Id string", ID_CONTEXT},
            LogEntry{PROGRESS, "Found line: [8.4] for parsing release version", CUT_CONTEXT},
            LogEntry{PROGRESS, "OS Release version [8.4]", ID_CONTEXT},
            LogEntry{PROGRESS, "Found line: [] for parsing Version Id string", ID_CONTEXT},
            LogEntry{PROGRESS, "Found line: [VERSION_ID=7.9.2009] for parsing Version Id string", ID_CONTEXT},
            LogEntry{PROGRESS, "Found line: [7.9.2009] for parsing release version", CUT_CONTEXT},
            LogEntry{PROGRESS, "OS Release version [7.9]", CUT_CONTEXT},
            LogEntry{PROGRESS, "OS Release version [7.9]", ID_CONTEXT},
            LogEntry{PROGRESS, "Found line: [NAME=x] for parsing Version Id string", ID_CONTEXT}));
}

TEST_F(OSReleaseVersionFromId, FileThatCannotBeOpenedIsUnknown)
{
    EXPECT_EQ(record.getOSReleaseVersionFromId(PATH), "Unknown");
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{ERROR, "Unable to open version file: /tmp/release", ID_CONTEXT}));
}

TEST_F(OSReleaseVersionFromId, FileWithoutTheKeyIsUnknown)
{
    for (const std::string text : {"", "\n", "VERSION=1\n"}) {
        fakes::writeFile(PATH, text);
        EXPECT_EQ(record.getOSReleaseVersionFromId(PATH), "Unknown") << text;
    }
}

TEST_F(OSReleaseVersionFromId, LineThatEndsRightAtTheKeyDeliberatelyThrowsAfterTheEarlierLines)
{
    fakes::writeFile(PATH, "VERSION_ID=1\nVERSION_ID\nVERSION_ID=2\n");
    EXPECT_THROW(record.getOSReleaseVersionFromId(PATH), std::out_of_range);
    EXPECT_EQ(platform().texts(ID_CONTEXT).back(), "Found line: [VERSION_ID] for parsing Version Id string");
}

TEST_F(OSReleaseVersionFromString, EveryLineIsReadAndTheLastMatchWins)
{
    fakes::writeFile(PATH, "x release 6 (a)\nCentOS Linux release 7.9.2009 (Core)\nrelease\n");
    EXPECT_EQ(record.getOSReleaseVersionFromString(PATH), "7.9");
    EXPECT_THAT(
        platform().log,
        ElementsAre(
            LogEntry{PROGRESS, "Found line: [x release 6 (a)] for parsing release version", STRING_CONTEXT},
            LogEntry{PROGRESS, "Found line: [6] for parsing release version", CUT_CONTEXT},
            LogEntry{PROGRESS, "OS Release version [6]", STRING_CONTEXT},
            LogEntry{PROGRESS,
                     "Found line: [CentOS Linux release 7.9.2009 (Core)] for parsing release version",
                     STRING_CONTEXT},
            LogEntry{PROGRESS, "Found line: [7.9.2009] for parsing release version", CUT_CONTEXT},
            LogEntry{PROGRESS, "OS Release version [7.9]", CUT_CONTEXT},
            LogEntry{PROGRESS, "OS Release version [7.9]", STRING_CONTEXT},
            LogEntry{PROGRESS, "Found line: [release] for parsing release version", STRING_CONTEXT}));
}

TEST_F(OSReleaseVersionFromString, FileThatCannotBeOpenedIsUnknown)
{
    EXPECT_EQ(record.getOSReleaseVersionFromString(PATH), "Unknown");
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{ERROR, "Unable to open version file: /tmp/release", STRING_CONTEXT}));
}

TEST_F(OSReleaseVersionFromString, FileWithoutTheLowerCaseWordIsUnknown)
{
    fakes::writeFile(PATH, "SUSE Linux Enterprise Server 12 (x86_64)\nVERSION = 12\nPATCHLEVEL = 1\n");
    EXPECT_EQ(record.getOSReleaseVersionFromString(PATH), "Unknown");
}

TEST_F(OSReleaseVersionFromString, LineThatEndsRightAtTheWordDeliberatelyThrows)
{
    fakes::writeFile(PATH, "x release\n");
    EXPECT_THROW(record.getOSReleaseVersionFromString(PATH), std::out_of_range);
}

TEST_F(OSReleaseVersionWithoutBuildNo, FewerThanThreePartsStayWithOneEntry)
{
    EXPECT_EQ(record.getOSReleaseVersionWithoutBuildNo("8.4"), "8.4");
    EXPECT_THAT(platform().log, ElementsAre(LogEntry{
                                    PROGRESS, "Found line: [8.4] for parsing release version", CUT_CONTEXT}));
}

TEST_F(OSReleaseVersionWithoutBuildNo, ThreePartsLoseTheirLastFiveCharacters)
{
    EXPECT_EQ(record.getOSReleaseVersionWithoutBuildNo("1.2.33"), "1");
    EXPECT_THAT(
        platform().log,
        ElementsAre(LogEntry{PROGRESS, "Found line: [1.2.33] for parsing release version", CUT_CONTEXT},
                    LogEntry{PROGRESS, "OS Release version [1]", CUT_CONTEXT}));
}

TEST_F(OSReleaseVersionWithoutBuildNo, FewerThanFiveCharactersGiveAnEmptyText)
{
    EXPECT_EQ(record.getOSReleaseVersionWithoutBuildNo("1.."), "");
    EXPECT_TRUE(platform().logged(PROGRESS, "OS Release version []", CUT_CONTEXT));
}

TEST_F(ReleaseFile, DamagedFilesGiveAValueOrNone)
{
    const std::string damage = std::string("\0\xff\r\n", 4) + TEN_MEGABYTES + "\n\r\n";
    fakes::writeFile(PATH, damage + "VERSION_ID=9\nPRETTY_NAME=x\nx release 8");
    EXPECT_EQ(record.getOSReleaseVersionFromId(PATH), "9");
    EXPECT_EQ(record.getOSName(PATH), "x");
    EXPECT_EQ(record.getOSReleaseVersionFromString(PATH), "8");
}

TEST_F(ReleaseFile, WhatIsNoRegularFileCannotBeOpenedAndDoesNotWait)
{
    const std::vector<std::function<void()>> makers{
        [] { std::filesystem::create_directory(PATH); },
        [] { ASSERT_EQ(mkfifo(PATH, 0600), 0); },
        [] { std::filesystem::create_symlink("/tmp/absent", PATH); },
        [] { std::filesystem::create_symlink("/dev/zero", PATH); },
    };
    for (const auto& make : makers) {
        std::filesystem::remove(PATH);
        make();
        EXPECT_EQ(record.getOSName(PATH), "");
        EXPECT_EQ(record.getOSReleaseVersionFromId(PATH), "Unknown");
        EXPECT_EQ(record.getOSReleaseVersionFromString(PATH), "Unknown");
        EXPECT_THAT(
            platform().log,
            ElementsAre(LogEntry{PROGRESS, "Unable to open file: /tmp/release", NAME_CONTEXT},
                        LogEntry{ERROR, "Unable to open version file: /tmp/release", ID_CONTEXT},
                        LogEntry{ERROR, "Unable to open version file: /tmp/release", STRING_CONTEXT}));
        platform().log.clear();
    }
}

TEST_F(ReleaseFile, OfAFileBeyond16MebibytesTheBeginningIsRead)
{
    fakes::writeFile(PATH, "VERSION_ID=9\nx release 8\nPRETTY_NAME=x\n" +
                               std::string(std::size_t{16} << 20, '#') + "\nVERSION_ID=10\nx release 11\n");
    EXPECT_EQ(record.getOSName(PATH), "x");
    EXPECT_EQ(record.getOSReleaseVersionFromId(PATH), "9");
    EXPECT_EQ(record.getOSReleaseVersionFromString(PATH), "8");
    EXPECT_THAT(platform().texts(ID_CONTEXT, ERROR), IsEmpty());
}

TEST_F(ReleaseFile, ReadErrorKeepsTheLinesBeforeIt)
{
    fakes::writeFile(PATH,
                     "VERSION_ID=9\nx release 8\nPRETTY_NAME=x\n" + TEN_MEGABYTES + "\nVERSION_ID=10\n");
    const auto afterOneRead = [](auto operation) {
        const ReadsFailAfter failing(1);
        return operation();
    };
    EXPECT_EQ(afterOneRead([&] { return record.getOSName(PATH); }), "x");
    EXPECT_EQ(afterOneRead([&] { return record.getOSReleaseVersionFromId(PATH); }), "9");
    EXPECT_EQ(afterOneRead([&] { return record.getOSReleaseVersionFromString(PATH); }), "8");
    EXPECT_THAT(platform().texts(ID_CONTEXT, ERROR), IsEmpty());
}

TEST_F(ReleaseFile, LinkToAFileIsFollowed)
{
    fakes::writeFile("/tmp/behind", "VERSION_ID=9\n");
    std::filesystem::create_symlink("/tmp/behind", PATH);
    EXPECT_EQ(record.getOSReleaseVersionFromId(PATH), "9");
}

} // namespace
