#include "hostinfo/hotfix_text.h"
#include "hostinfo/tqclntdb_hostinfo.h"

#include "tests/fakes/platform/fake_platform.h"
#include "tests/fakes/seams/fake_seams.h"
#include "tests/unit/failing_read.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <limits>
#include <stdexcept>
#include <sys/stat.h>

using fakes::LogEntry;
using fakes::platform;
using fakes::seams;
using testing::ElementsAre;
using testing::IsEmpty;
using TQCLNTDB::bundleNameOf;
using TQCLNTDB::bundleVersionOf;
using TQCLNTDB::CHostInformation;
using TQCLNTDB::releaseNumberOf;

namespace {

const std::string SUMMARY = "/usr/torqv/pack/pack.summary";
constexpr const char* CONTEXT = "CHostInformation::retrieveHFXsInstalled";

std::string summaryLine(const std::string& version)
{
    return "HFX_Torquenix_" + version + "_PET1234_SET1 installed 2026-01-02\n";
}

std::string bundle(const std::string& version)
{
    return "Torquenix_" + version + "_PET1234_SET1";
}

class RetrieveHFXsInstalled : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        fakes::resetSeams();
        std::filesystem::remove_all("/usr/torqv/pack");
        std::filesystem::create_directories("/usr/torqv/pack");
    }

    int retrieve(const std::string& summary)
    {
        std::ofstream(SUMMARY, std::ios::binary) << summary;
        seams().files[SUMMARY] = S_IFREG | 0644;
        return record.retrieveHFXsInstalled();
    }

    /// Entries after the three that tell where the summary was found.
    static std::vector<LogEntry> logOfLines() { return {platform().log.begin() + 3, platform().log.end()}; }

    CHostInformation record;
};

LogEntry progress(const std::string& text)
{
    return {2, text, CONTEXT};
}

} // namespace

TEST_F(RetrieveHFXsInstalled, TheInstallDirectorysStatusIsReturned)
{
    platform().installDirStatus = 36;
    EXPECT_EQ(record.retrieveHFXsInstalled(), 36);
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{16, "Retrieval of TQU installed dir failed with error: 36", CONTEXT}));
    EXPECT_EQ(platform().calls.front(), "getTQInstallDir 1024");
}

TEST_F(RetrieveHFXsInstalled, NoPackSummaryIsNoError)
{
    record.installedHFXs = {"earlier"};
    EXPECT_EQ(record.retrieveHFXsInstalled(), 0);
    EXPECT_THAT(record.installedHFXs, ElementsAre("earlier"));
    EXPECT_THAT(platform().log,
                ElementsAre(progress("Retrieved TQU installed dir [ /usr/torqv/]"),
                            progress("File path for HFX's retrieval: [ /usr/torqv/pack/pack.summary ]"),
                            progress("pack.summary file does not exist, considering no HFX's installed on "
                                     "machine")));
}

TEST_F(RetrieveHFXsInstalled, ASummaryThatCannotBeOpenedIs7501)
{
    seams().files[SUMMARY] = S_IFREG | 0644; // gone before it is opened
    EXPECT_EQ(record.retrieveHFXsInstalled(), 7501);
    EXPECT_EQ(platform().log.back(), (LogEntry{16, "Unable to open pack.summary/history.log file", CONTEXT}));
}

TEST_F(RetrieveHFXsInstalled, ASummaryThatIsAFolderCannotBeOpened)
{
    std::filesystem::create_directories(SUMMARY);
    seams().files[SUMMARY] = S_IFDIR | 0755;
    EXPECT_EQ(record.retrieveHFXsInstalled(), 7501);
}

TEST_F(RetrieveHFXsInstalled, WhatIsNoRegularFileCannotBeOpenedAndDoesNotWait)
{
    const std::function<void()> makers[] = {
        [] { ASSERT_EQ(mkfifo(SUMMARY.c_str(), 0600), 0); },
        [] { std::filesystem::create_symlink("/dev/zero", SUMMARY); },
    };
    for (const auto& make : makers) {
        std::filesystem::remove(SUMMARY);
        make();
        seams().files[SUMMARY] = S_IFIFO | 0644;
        EXPECT_EQ(record.retrieveHFXsInstalled(), 7501);
    }
}

TEST_F(RetrieveHFXsInstalled, OfASummaryBeyond16MebibytesTheBeginningIsRead)
{
    EXPECT_EQ(
        retrieve(summaryLine("9.1") + std::string(std::size_t{16} << 20, '#') + "\n" + summaryLine("9.2")),
        0);
    EXPECT_THAT(record.installedHFXs, ElementsAre(bundle("9.1")));
    EXPECT_THAT(platform().texts(CONTEXT, 16), IsEmpty());
}

TEST_F(RetrieveHFXsInstalled, AReadErrorKeepsTheLinesBeforeIt)
{
    std::ofstream(SUMMARY) << summaryLine("9.1") + std::string(std::size_t{10} << 20, '#') + "\n" +
                                  summaryLine("9.2");
    seams().files[SUMMARY] = S_IFREG | 0644;
    const ReadsFailAfter failing(1);
    EXPECT_EQ(record.retrieveHFXsInstalled(), 0);
    EXPECT_THAT(record.installedHFXs, ElementsAre(bundle("9.1")));
}

TEST_F(RetrieveHFXsInstalled, AnEmptySummaryGivesNone)
{
    EXPECT_EQ(retrieve(""), 0);
    EXPECT_THAT(record.installedHFXs, IsEmpty());
    EXPECT_THAT(logOfLines(), ElementsAre(progress("No HFXs found on this host ")));
}

TEST_F(RetrieveHFXsInstalled, OneBundleWithItsWholeLog)
{
    EXPECT_EQ(retrieve(summaryLine("9.1")), 0);
    EXPECT_THAT(record.installedHFXs, ElementsAre(bundle("9.1")));
    EXPECT_THAT(
        platform().log,
        ElementsAre(progress("Retrieved TQU installed dir [ /usr/torqv/]"),
                    progress("File path for HFX's retrieval: [ /usr/torqv/pack/pack.summary ]"),
                    progress("Successfully found pack.summary file"),
                    progress("Found line: [HFX_Torquenix_9.1_PET1234_SET1 installed 2026-01-02] for parsing "
                             "HFX string"),
                    LogEntry{2, "Retrieved HFX version: [9.1]", "CHostInformation::getHFXsVersion"},
                    progress("Saved HFX name : [ " + bundle("9.1") + " ]"),
                    progress("Stored unique HFX : " + bundle("9.1"))));
}

TEST_F(RetrieveHFXsInstalled, TheSameBundleTwiceIsStoredOnce)
{
    EXPECT_EQ(retrieve(summaryLine("9.1") + summaryLine("9.2") + summaryLine("9.1")), 0);
    EXPECT_THAT(record.installedHFXs, ElementsAre(bundle("9.1"), bundle("9.2")));
}

TEST_F(RetrieveHFXsInstalled, BundlesAreStoredInByteOrderBehindWhatTheFieldHolds)
{
    record.installedHFXs = {"zzz"};
    EXPECT_EQ(retrieve(summaryLine("9.3") + summaryLine("9.2") + summaryLine("10.0")), 0);
    EXPECT_THAT(record.installedHFXs, ElementsAre("zzz", bundle("10.0"), bundle("9.2"), bundle("9.3")));
}

TEST_F(RetrieveHFXsInstalled, BundlesOfOlderReleasesAreDroppedWithTheirLine)
{
    EXPECT_EQ(
        retrieve(summaryLine("9.0.0.5") + summaryLine("9.1") + summaryLine("9.1.0.1") + summaryLine("10.0")),
        0);
    EXPECT_THAT(record.installedHFXs, ElementsAre(bundle("10.0"), bundle("9.1.0.1"), bundle("9.1")));
    EXPECT_TRUE(platform().logged(2,
                                  "HFX version [" + bundle("9.0.0.5") +
                                      "] is older than current installed torquenix version, not saving it",
                                  CONTEXT));
}

TEST_F(RetrieveHFXsInstalled, TheLastNumberBefore91IsDroppedAndTheNextOneKept)
{
    ASSERT_EQ(releaseNumberOf("9.0.15.65535"), 0x090FFFFF);
    ASSERT_EQ(releaseNumberOf("9.0.0.1048576"), 0x090FFFFF + 1);
    EXPECT_EQ(retrieve(summaryLine("9.0.15.65535") + summaryLine("9.0.0.1048576") + summaryLine("9.1.0.0")),
              0);
    EXPECT_THAT(record.installedHFXs, ElementsAre(bundle("9.0.0.1048576"), bundle("9.1.0.0")));
    EXPECT_TRUE(platform().logged(2,
                                  "HFX version [" + bundle("9.0.15.65535") +
                                      "] is older than current installed torquenix version, not saving it",
                                  CONTEXT));
}

TEST_F(RetrieveHFXsInstalled, ALastLineWithoutALineEndCounts)
{
    EXPECT_EQ(retrieve(summaryLine("9.2") + "HFX_Torquenix_9.1_PET1_SET"), 0);
    EXPECT_THAT(record.installedHFXs, ElementsAre("Torquenix_9.1_PET1_SET", bundle("9.2")));
}

TEST_F(RetrieveHFXsInstalled, ANameWithoutAVersionIsSkippedSilently)
{
    EXPECT_EQ(retrieve("HFX_Torquenix_9.1_SET1\n"), 0);
    EXPECT_THAT(record.installedHFXs, IsEmpty());
    EXPECT_THAT(logOfLines(),
                ElementsAre(progress("Found line: [HFX_Torquenix_9.1_SET1] for parsing HFX string"),
                            progress("No HFXs found on this host ")));
}

TEST_F(RetrieveHFXsInstalled, ANameWhoseSumIsMinusOneReadsAsNone)
{
    EXPECT_EQ(retrieve(summaryLine("0.0.0.-1")), 0);
    EXPECT_THAT(record.installedHFXs, IsEmpty());
    EXPECT_FALSE(platform().logged(2,
                                   "HFX version [" + bundle("0.0.0.-1") +
                                       "] is older than current installed torquenix version, not saving it",
                                   CONTEXT));
}

TEST_F(RetrieveHFXsInstalled, DamagedSummariesAreHarmless)
{
    for (const std::string& text : {std::string("\0\0HFX_Torquenix_SET\xff\n", 21), std::string(1 << 20, 'x'),
                                    std::string("HFX_Torquenix_9.1_PET1_SET"), std::string("\r\n\r\n")}) {
        CHostInformation fresh;
        std::ofstream(SUMMARY, std::ios::binary) << text;
        seams().files[SUMMARY] = S_IFREG | 0644;
        EXPECT_EQ(fresh.retrieveHFXsInstalled(), 0) << text.substr(0, 40);
    }
}

TEST(BundleNameOf, RunsFromTheProductNameToTheNextBlank)
{
    EXPECT_EQ(bundleNameOf("x HFX_Torquenix_9.1_PET1_SET2 more"), "Torquenix_9.1_PET1_SET2");
    EXPECT_EQ(bundleNameOf("HFX_Torquenix_9.1_PET1_SET2"), "Torquenix_9.1_PET1_SET2");
}

TEST(BundleNameOf, TheFirstProductNameOnTheLineCounts)
{
    EXPECT_EQ(bundleNameOf("Torquenix_A HFX_Torquenix_B_SET"), "Torquenix_A");
}

TEST(BundleNameOf, AllThreeWordsHaveToBeThere)
{
    for (const char* line : {"", "HFX_Torquenix_9.1_PET1", "Torquenix_9.1_PET1_SET", "HFX_Torquenix9.1 _SET",
                             "hfx_torquenix_9.1_set"})
        EXPECT_EQ(bundleNameOf(line), std::nullopt) << line;
}

TEST(BundleVersionOf, StandsBetweenPrefixAndPet)
{
    EXPECT_EQ(bundleVersionOf("Torquenix_9.1.0.1_PET77"), "9.1.0.1");
    EXPECT_EQ(bundleVersionOf("Torquenix_9.1"), std::nullopt);
    EXPECT_EQ(bundleVersionOf("Torquenix__PET1"), std::nullopt);
    EXPECT_EQ(bundleVersionOf("Torquenix_"), std::nullopt);
}

TEST(BundleVersionOf, ANameShorterThanThePrefixIsOutOfRange)
{
    EXPECT_THROW(bundleVersionOf("Torquenix"), std::out_of_range);
    EXPECT_THROW(CHostInformation().getHFXsVersion(""), std::out_of_range);
}

TEST(ReleaseNumberOf, FourPartsHaveTheirBits)
{
    EXPECT_EQ(releaseNumberOf("9.1.2.3"), 0x09120003);
    EXPECT_EQ(releaseNumberOf("9.1"), 0x09100000);
    EXPECT_EQ(releaseNumberOf("10"), 0x0A000000);
    EXPECT_EQ(releaseNumberOf(""), 0);
}

TEST(ReleaseNumberOf, UnderlineSeparatesLikeADot)
{
    EXPECT_EQ(releaseNumberOf("9.1_2"), releaseNumberOf("9.1.2.0"));
}

TEST(ReleaseNumberOf, PartsBeyondTheFourthDoNotCount)
{
    EXPECT_EQ(releaseNumberOf("9.1.2.3.7"), releaseNumberOf("9.1.2.3"));
}

TEST(ReleaseNumberOf, ThreePartsAreMaskedAndTheFourthDeliberatelyIsNot)
{
    EXPECT_EQ(releaseNumberOf("128.16.16.0"), 0);
    EXPECT_EQ(releaseNumberOf("9.0.0.1048576"), 0x09100000); // spills into the second part
}

TEST(ReleaseNumberOf, NumbersAreReadWithSignAndSaturateAndTheSumIsCutTo32Bits)
{
    EXPECT_EQ(releaseNumberOf("0.0.0.-1"), -1);
    EXPECT_EQ(releaseNumberOf("-1.0.0.0"), 127 << 24);
    EXPECT_EQ(releaseNumberOf("0.0.0.99999999999999999999"), -1); // the low bits of the largest long
    EXPECT_EQ(releaseNumberOf("9x.1y.z.5 "), 0x09100005);
    EXPECT_EQ(releaseNumberOf("0.0.0.4294967296"), 0);
}
