#include "utils/tqclntdb_utils.h"

#include "tests/fakes/platform/fake_platform.h"
#include "tests/fakes/seams/fake_seams.h"
#include "tests/unit/long_line.h"

#include <gmock/gmock.h>

namespace {

using fakes::LogEntry;
using fakes::platform;
using fakes::seams;
using testing::ElementsAre;
using tqclntdb_utils::getInstalledPackagesVersionNumberStr;
using tqclntdb_utils::padTorquenixVersionNumberStr;
using tqclntdb_utils::tqReleaseVersionStringToNumber;

constexpr const char* PAD_CONTEXT = "tqclntdb_utils::padVersionNumberStr";
constexpr const char* PACKAGES_CONTEXT = "tqclntdb_utils::getInstalledPackagesVersionNumberStr";

TEST(TqReleaseVersionStringToNumber, OrdersReleases)
{
    const std::pair<const char*, int> versions[] = {
        {"Torquenix_9.1.0.1", 910100},
        {"Torquenix_10.0", 1000000},
        {"Torquenix_9", 900000},
        {"Torquenix_1.2.3.4.5.6", 123456},
        {"Torquenix_1.2.3.4.5.6.7", 123456},
        {"x_9.1 (build 7)", 910000},
        {"_9.1", 910000},
        {"Torquenix_9.1.", 910000},
        {"Torquenix_9..1", 900000},
        {"a_9.1_8.0", 910000},
    };
    for (const auto& [version, number] : versions)
        EXPECT_EQ(tqReleaseVersionStringToNumber(version), number) << version;
}

TEST(TqReleaseVersionStringToNumber, TextWithoutUnderscoreIsMinusOne)
{
    EXPECT_EQ(tqReleaseVersionStringToNumber("9.1"), -1);
}

TEST(TqReleaseVersionStringToNumber, TextWithoutANumberIsMinusOne)
{
    for (const char* version : {"", "_", "Torquenix_", "Torquenix_x9", "Torquenix_...", "Torquenix_.9.1",
                                "Torquenix_ 9.1", "Torquenix_-9.1"})
        EXPECT_EQ(tqReleaseVersionStringToNumber(version), -1) << version;
}

TEST(TqReleaseVersionStringToNumber, OnlyTheLastDigitsOfAComponentCount)
{
    EXPECT_EQ(tqReleaseVersionStringToNumber("Torquenix_9.10"),
              tqReleaseVersionStringToNumber("Torquenix_9.0"));
    EXPECT_EQ(tqReleaseVersionStringToNumber("Torquenix_109.1"),
              tqReleaseVersionStringToNumber("Torquenix_9.1"));
    EXPECT_EQ(tqReleaseVersionStringToNumber("Torquenix_1.12.13.14.15.16"), 123456);
}

TEST(TqReleaseVersionStringToNumber, RemaindersAreThoseOfSigned32BitNumbers)
{
    EXPECT_EQ(tqReleaseVersionStringToNumber("x_4294967295"), -100000);
    EXPECT_EQ(tqReleaseVersionStringToNumber("x_2147483648"), -4800000);
    EXPECT_EQ(tqReleaseVersionStringToNumber("x_1.4294967295"), 90000);
}

TEST(TqReleaseVersionStringToNumber, EndlessDigitsGiveSomeNumber)
{
    EXPECT_EQ(tqReleaseVersionStringToNumber("x_" + longLine('9')), -100000);
    EXPECT_EQ(tqReleaseVersionStringToNumber("x_" + longLine('.')), -1);
}

class VersionNumbers : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        fakes::resetSeams();
    }
};

TEST_F(VersionNumbers, ShorterVersionIsPaddedWithZeros)
{
    EXPECT_EQ(padTorquenixVersionNumberStr("9.1", 4), "9.1.0.0");
    EXPECT_THAT(platform().log, ElementsAre(LogEntry{2, "Input versionNumberStr: [9.1]", PAD_CONTEXT},
                                            LogEntry{2, "Filtered version string: [9.1]", PAD_CONTEXT},
                                            LogEntry{2, "Padded version string: [9.1.0.0]", PAD_CONTEXT}));
}

TEST_F(VersionNumbers, LongerVersionIsNotCut)
{
    EXPECT_EQ(padTorquenixVersionNumberStr("9.1.0.1.2", 4), "9.1.0.1.2");
    EXPECT_EQ(padTorquenixVersionNumberStr("9.1.0.1", 4), "9.1.0.1");
    EXPECT_EQ(padTorquenixVersionNumberStr("9.1", 0), "9.1");
    EXPECT_EQ(padTorquenixVersionNumberStr("9.1", -3), "9.1");
}

TEST_F(VersionNumbers, TextBehindTheNumberIsCut)
{
    EXPECT_EQ(padTorquenixVersionNumberStr("9.1. beta 2", 3), "9.1.0");
    EXPECT_EQ(padTorquenixVersionNumberStr("9x1", 2), "9.0");
    EXPECT_EQ(padTorquenixVersionNumberStr("9.1\r", 2), "9.1");
    EXPECT_EQ(padTorquenixVersionNumberStr("9..1", 4), "9..1.0") << "an empty component counts";
}

TEST_F(VersionNumbers, VersionThatDoesNotStartWithANumberIsRefused)
{
    EXPECT_EQ(padTorquenixVersionNumberStr("v9", 4), "");
    EXPECT_THAT(
        platform().log,
        ElementsAre(LogEntry{2, "Input versionNumberStr: [v9]", PAD_CONTEXT},
                    LogEntry{16, "Invalid version string: [v9], should start with number.", PAD_CONTEXT}));
    for (const char* text : {"", ".9", " 9", "-9"})
        EXPECT_EQ(padTorquenixVersionNumberStr(text, 4), "") << text;
    EXPECT_EQ(padTorquenixVersionNumberStr(nullptr, 4), "");
}

TEST_F(VersionNumbers, PackagesCarryThePaddedInstalledVersion)
{
    seams().installedVersion = "Torquenix_9.1";
    EXPECT_EQ(getInstalledPackagesVersionNumberStr(4), "9.1.0.0");
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{2, "Full version string: [Torquenix_9.1]", PACKAGES_CONTEXT},
                            LogEntry{2, "Extracted version string: [_9.1]", PACKAGES_CONTEXT},
                            LogEntry{2, "Input versionNumberStr: [9.1]", PAD_CONTEXT},
                            LogEntry{2, "Filtered version string: [9.1]", PAD_CONTEXT},
                            LogEntry{2, "Padded version string: [9.1.0.0]", PAD_CONTEXT}));
    EXPECT_THAT(seams().calls, ElementsAre("getTQInstalledVersionStr"));
}

TEST_F(VersionNumbers, PackagesVersionFollowsTheLastUnderscore)
{
    seams().installedVersion = "Torquenix_beta_9.2";
    EXPECT_EQ(getInstalledPackagesVersionNumberStr(2), "9.2");
    seams().installedVersion = "Torquenix_";
    EXPECT_EQ(getInstalledPackagesVersionNumberStr(2), "");
}

TEST_F(VersionNumbers, PackagesVersionIsEmptyWithoutAnInstalledVersion)
{
    seams().installedVersionStatus = 7500;
    EXPECT_EQ(getInstalledPackagesVersionNumberStr(4), "");
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{16, "Failed to get Torquenix installed version with status: [7500].",
                                     PACKAGES_CONTEXT}));
}

TEST_F(VersionNumbers, PackagesVersionIsEmptyWithoutAnUnderscore)
{
    seams().installedVersion = "9.1";
    EXPECT_EQ(getInstalledPackagesVersionNumberStr(4), "");
    EXPECT_THAT(platform().log, ElementsAre(LogEntry{2, "Full version string: [9.1]", PACKAGES_CONTEXT},
                                            LogEntry{16, "Invalid version string.", PACKAGES_CONTEXT}));
}

} // namespace
