#include "hostinfo/package_text.h"
#include "hostinfo/tqclntdb_hostinfo.h"

#include "tests/fakes/platform/fake_platform.h"
#include "tests/fakes/seams/fake_seams.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

using fakes::LogEntry;
using fakes::platform;
using fakes::seams;
using testing::ElementsAre;
using testing::IsEmpty;
using TQCLNTDB::CHostInformation;
using TQCLNTDB::parseRpmLine;

namespace {

constexpr const char* LINUX = "CHostInformation::retrieveInstalledPackagesLinux";
constexpr const char* JAVA = "/usr/torqv/java/jre/bin/java";
constexpr const char* JAR = "/usr/torqv/java/allTQ.jar";

LogEntry progress(const std::string& text)
{
    return {2, text, LINUX};
}

const LogEntry EXECUTING =
    progress("Executing command to get list of Torquenix installed packages: [rpm -qa XRVN* 2>&1]");

class InstalledPackages : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        fakes::resetSeams();
    }

    /// What the package query does.
    static void query(const std::string& output, int exitStatus = 0, int result = 0)
    {
        seams().command = [=](const std::string&, std::string& text, int& status) {
            text = output;
            status = exitStatus;
            return result;
        };
    }

    CHostInformation record;
};

/// A list of lines whose joined entries are `size` bytes long.
std::string listOfSize(std::size_t size)
{
    std::string lines;
    std::size_t joined = 0;
    while (size - joined > 100) {
        lines += "p-" + std::string(47, '1') + "\n"; // 49 bytes and the comma behind it
        joined += 50;
    }
    return lines + "p-" + std::string(size - joined - 2, '1') + "\n";
}

} // namespace

TEST_F(InstalledPackages, ADebianHostWithoutJavaHasExactlyFiveInTableOrder)
{
    seams().debianUbuntu = true;
    seams().installedVersion = "Torquenix_9.1.0";
    EXPECT_EQ(record.retrieveInstalledPackages(), 0);
    EXPECT_THAT(record.installedPackages,
                ElementsAre("XRVNddagt_15.0.2", "XRVNtqclt_9.1.0.0", "XRVNbrk_1.15.1.0", "XRVNtqcfg_9.1.0.0",
                            "XRVNtqpck_9.1.0.0"));
    EXPECT_THAT(platform().texts(LINUX), IsEmpty());
}

TEST_F(InstalledPackages, TheJavaFilesAddAPackageEachAndTheirMessagesStandTheOtherWayRound)
{
    seams().debianUbuntu = true;
    seams().files[JAVA] = S_IFREG | 0755;
    EXPECT_EQ(record.retrieveInstalledPackages(), 0);
    EXPECT_EQ(record.installedPackages.size(), 6U);
    EXPECT_EQ(record.installedPackages.back(), "XRVNtqjre_9.1.0.1");
    EXPECT_THAT(platform().texts(LINUX, 2), ElementsAre("Torquenix Java directory found on the host."));

    CHostInformation other;
    fakes::reset();
    seams().files.erase(JAVA);
    seams().files[JAR] = S_IFREG | 0644;
    EXPECT_EQ(other.retrieveInstalledPackages(), 0);
    EXPECT_EQ(other.installedPackages.size(), 6U);
    EXPECT_EQ(other.installedPackages.back(), "XRVNtqjava_9.1.0.1");
    EXPECT_THAT(platform().texts(LINUX, 2), ElementsAre("Torquenix JRE directory found on the host."));

    CHostInformation both;
    seams().files[JAVA] = S_IFREG | 0755;
    EXPECT_EQ(both.retrieveInstalledPackages(), 0);
    EXPECT_EQ(both.installedPackages.size(), 7U);
    EXPECT_EQ(both.installedPackages[5], "XRVNtqjre_9.1.0.1");
}

TEST_F(InstalledPackages, ADebianHostRunsNoQuery)
{
    seams().debianUbuntu = true;
    EXPECT_EQ(record.retrieveInstalledPackages(), 0);
    EXPECT_THAT(seams().calls, ElementsAre("isDebianUbuntu", "getTQInstalledVersionStr",
                                           std::string("stat ") + JAVA, std::string("stat ") + JAR));
}

TEST_F(InstalledPackages, AnRpmLineLosesReleaseAndArchitecture)
{
    query("XRVNtqclt-10.1.1-1234.x86_64\n");
    EXPECT_EQ(record.retrieveInstalledPackages(), 0);
    EXPECT_THAT(record.installedPackages, ElementsAre("XRVNtqclt_10.1.1"));
    EXPECT_THAT(platform().log,
                ElementsAre(EXECUTING,
                            progress("Current line of command output: [XRVNtqclt-10.1.1-1234.x86_64]"),
                            progress("Adding installed package: [XRVNtqclt_10.1.1]")));
    EXPECT_THAT(seams().calls,
                ElementsAre("isDebianUbuntu", "run_command_and_capture_output rpm -qa XRVN* 2>&1"));
}

TEST_F(InstalledPackages, ALineWithOneDelimiterIsKeptWhole)
{
    query("XRVNtqclt-10.1.1\n");
    EXPECT_EQ(record.retrieveInstalledPackages(), 0);
    EXPECT_THAT(record.installedPackages, ElementsAre("XRVNtqclt_10.1.1"));
    EXPECT_THAT(platform().log,
                ElementsAre(EXECUTING, progress("Current line of command output: [XRVNtqclt-10.1.1]"),
                            progress("Second delimiter not found in the current line."),
                            progress("Adding installed package: [XRVNtqclt_10.1.1]")));
}

TEST_F(InstalledPackages, ALineWithoutADelimiterIsSkippedAndTheRestIsRead)
{
    query("nonsense\nXRVNtqclt-1-2\n");
    EXPECT_EQ(record.retrieveInstalledPackages(), 0);
    EXPECT_THAT(record.installedPackages, ElementsAre("XRVNtqclt_1"));
    EXPECT_TRUE(platform().logged(16, "No version delimiter found in the current line.", LINUX));
}

TEST_F(InstalledPackages, NoPackagesIsAnEmptyListAndNoFailure)
{
    query("");
    EXPECT_EQ(record.retrieveInstalledPackages(), 0);
    EXPECT_THAT(record.installedPackages, IsEmpty());
    EXPECT_THAT(platform().log, ElementsAre(EXECUTING));
}

TEST_F(InstalledPackages, AQueryThatEndsWithAFailureIs7282AndAppendsNothing)
{
    query("XRVNtqclt-1-2\n", 1);
    EXPECT_EQ(record.retrieveInstalledPackages(), 7282);
    EXPECT_THAT(record.installedPackages, IsEmpty());
    EXPECT_THAT(platform().log,
                ElementsAre(EXECUTING,
                            LogEntry{16, "The command to list the packages failed with status [1].", LINUX}));
}

TEST_F(InstalledPackages, AQueryThatCannotRunGivesTheRunnersStatusAndKeepsEarlierEntries)
{
    query("", -1, 7247);
    record.installedPackages = {"earlier"};
    EXPECT_EQ(record.retrieveInstalledPackages(), 7247);
    EXPECT_THAT(record.installedPackages, ElementsAre("earlier"));
    EXPECT_THAT(
        platform().log,
        ElementsAre(EXECUTING,
                    LogEntry{16,
                             "The command failed to execute.  run_command_and_capture_output() returned "
                             "[7247]",
                             LINUX}));
}

TEST_F(InstalledPackages, AListOf2048BytesIsKept)
{
    query(listOfSize(2048));
    EXPECT_EQ(record.retrieveInstalledPackages(), 0);
    EXPECT_EQ(CHostInformation::SeparateStringValuesByTok(record.installedPackages, ",").size(), 2048U);
}

TEST_F(InstalledPackages, AListOf2049BytesIsEmptied)
{
    query(listOfSize(2049));
    EXPECT_EQ(record.retrieveInstalledPackages(), 7289);
    EXPECT_THAT(record.installedPackages, IsEmpty());
    EXPECT_TRUE(platform().logged(
        16, "Installed packages value exceeds the max allowed length of 2048. Setting to empty value.",
        "CHostInformation::retrieveInstalledPackages"));
}

TEST_F(InstalledPackages, ATooLongListHidesTheStatusOfTheQuery)
{
    query("", 1);
    record.installedPackages = {std::string(3000, 'x')};
    EXPECT_EQ(record.retrieveInstalledPackages(), 7289);
}

TEST_F(InstalledPackages, DamagedLinesAreCutByTheRuleWhateverTheyHold)
{
    constexpr char LINES[] = "-\n--\na,b-1-2\n\xff-\xfe\nx-\0y-z\n-lead-1\r\nXRVNa-1\r\n";
    query(std::string(LINES, sizeof LINES - 1));
    EXPECT_EQ(record.retrieveInstalledPackages(), 0);
    EXPECT_THAT(record.installedPackages,
                ElementsAre("_", "_", "a,b_1", "\xff_\xfe", std::string("x_\0y", 4), "_lead", "XRVNa_1\r"));
}

TEST(ParseRpmLine, TellsWhetherASecondDelimiterEndedIt)
{
    EXPECT_TRUE(parseRpmLine("a-1-2")->releaseCut);
    EXPECT_FALSE(parseRpmLine("a-1")->releaseCut);
    EXPECT_EQ(parseRpmLine(""), std::nullopt);
}

// The systems whose hosts are described by builds of their own

namespace {

/// Answers of several commands.
void commands(const std::map<std::string, std::pair<int, std::string>>& answers)
{
    seams().command = [=](const std::string& command, std::string& text, int& status) {
        const auto found = answers.find(command);
        if (found == answers.end())
            return 7247;
        status = found->second.first;
        text = found->second.second;
        return 0;
    };
}

constexpr const char* SOLARIS = "CHostInformation::retrieveInstalledPackagesSolaris";
constexpr const char* AIX_HP = "CHostInformation::retrieveInstalledPackagesAixHP";

} // namespace

TEST_F(InstalledPackages, SolarisListsInTwoStages)
{
    commands({{"pkginfo | grep \"XRVN\" 2>&1", {0, "application XRVNtqclt  Client\n"}},
              {"pkginfo -l XRVNtqclt 2>&1", {0, "   PKGINST:  XRVNtqclt\n   VERSION:  9.1.0.1\n"}}});
    EXPECT_EQ(record.retrieveInstalledPackagesSolaris(), 0);
    EXPECT_THAT(record.installedPackages, ElementsAre("XRVNtqclt_9.1.0.1"));
    EXPECT_THAT(
        platform().log,
        ElementsAre(
            LogEntry{2,
                     "Executing command to get list of Torquenix installed packages: [pkginfo | grep "
                     "\"XRVN\" 2>&1]",
                     SOLARIS},
            LogEntry{2, "Read package name: [XRVNtqclt]", SOLARIS},
            LogEntry{2, "Executing command to get package details: [pkginfo -l XRVNtqclt 2>&1]", SOLARIS},
            LogEntry{2, "Found package version in line: [   VERSION:  9.1.0.1]", SOLARIS},
            LogEntry{2, "Adding installed package name: [XRVNtqclt]; and version: [9.1.0.1]", SOLARIS}));
}

TEST_F(InstalledPackages, SolarisSkipsNamelessLinesAndPackagesWithoutAVersion)
{
    commands({{"pkginfo | grep \"XRVN\" 2>&1", {0, "application\nsystem XRVNbrk Broker\n"}},
              {"pkginfo -l XRVNbrk 2>&1", {0, "   PKGINST:  XRVNbrk\n   VERSION:\n"}}});
    EXPECT_EQ(record.retrieveInstalledPackagesSolaris(), 0);
    EXPECT_THAT(record.installedPackages, IsEmpty());
    EXPECT_TRUE(platform().logged(16, "Package name is empty.", SOLARIS));
    EXPECT_TRUE(platform().logged(
        16, "No package version line found in package details for package: [XRVNbrk]", SOLARIS));
}

TEST_F(InstalledPackages, SolarisReadsAllNamesBeforeItAsksForTheirDetails)
{
    commands({{"pkginfo | grep \"XRVN\" 2>&1", {0, "system XRVNbrk Broker\napplication XRVNtqclt  Client\n"}},
              {"pkginfo -l XRVNbrk 2>&1", {0, "   PKGINST:  XRVNbrk\n"}},
              {"pkginfo -l XRVNtqclt 2>&1", {0, "   VERSION:  9.1.0.1\n   VERSION:  9.9\n"}}});
    EXPECT_EQ(record.retrieveInstalledPackagesSolaris(), 0);
    EXPECT_THAT(record.installedPackages, ElementsAre("XRVNtqclt_9.1.0.1"));
    EXPECT_THAT(seams().calls, ElementsAre("run_command_and_capture_output pkginfo | grep \"XRVN\" 2>&1",
                                           "run_command_and_capture_output pkginfo -l XRVNbrk 2>&1",
                                           "run_command_and_capture_output pkginfo -l XRVNtqclt 2>&1"));
}

TEST_F(InstalledPackages, SolarisFailingListOrDetailsIs7282)
{
    commands({{"pkginfo | grep \"XRVN\" 2>&1", {2, ""}}});
    EXPECT_EQ(record.retrieveInstalledPackagesSolaris(), 7282);
    EXPECT_TRUE(platform().logged(16, "The command to list the packages failed with status [2].", SOLARIS));
    commands({{"pkginfo | grep \"XRVN\" 2>&1", {0, "a XRVNbrk\n"}}, {"pkginfo -l XRVNbrk 2>&1", {1, ""}}});
    EXPECT_EQ(record.retrieveInstalledPackagesSolaris(), 7282);
    EXPECT_TRUE(platform().logged(
        16, "The command to list the package details for [XRVNbrk] failed with status [1]", SOLARIS));
}

TEST_F(InstalledPackages, SolarisACommandThatCannotRunGivesTheRunnersStatus)
{
    commands({});
    EXPECT_EQ(record.retrieveInstalledPackagesSolaris(), 7247);
    EXPECT_TRUE(platform().logged(
        16, "The command failed to execute.  run_command_and_capture_output() returned [7247]", SOLARIS));
}

TEST_F(InstalledPackages, APackageNameThatNoShellShouldSeeIsNotRun)
{
    commands({{"pkginfo | grep \"XRVN\" 2>&1", {0, "a XRVN;reboot\na -rf\n"}}});
    EXPECT_EQ(record.retrieveInstalledPackagesSolaris(), 0);
    EXPECT_THAT(record.installedPackages, IsEmpty());
    EXPECT_THAT(seams().calls, ElementsAre("run_command_and_capture_output pkginfo | grep \"XRVN\" 2>&1"));
    EXPECT_THAT(
        platform().log,
        ElementsAre(LogEntry{2,
                             "Executing command to get list of Torquenix installed packages: [pkginfo | grep "
                             "\"XRVN\" 2>&1]",
                             SOLARIS},
                    LogEntry{2, "Read package name: [XRVN;reboot]", SOLARIS},
                    LogEntry{16, "Package name cannot stand in a command: [XRVN;reboot]", SOLARIS},
                    LogEntry{2, "Read package name: [-rf]", SOLARIS},
                    LogEntry{16, "Package name cannot stand in a command: [-rf]", SOLARIS}));
}

TEST_F(InstalledPackages, AixListsByColons)
{
    commands({{"lslpp -Lc | grep \"XRVN\" 2>&1",
               {0, "XRVNtqclt:XRVNtqclt.rte:10.1.1.0: : :C: :Client\nXRVNbrk:XRVNbrk.rte\n"}},
              {"lslpp -Lc XRVNtqclt 2>&1",
               {0, "#Package Name:Fileset:Level\nXRVNtqclt:XRVNtqclt.rte:10.1.1.0: : :C: :Client\n"}},
              {"lslpp -Lc XRVNbrk 2>&1", {0, "XRVNbrk:XRVNbrk.rte\n"}}});
    EXPECT_EQ(record.retrieveInstalledPackagesAixHP(CHostInformation::OtherUnix::aix), 0);
    EXPECT_THAT(record.installedPackages, ElementsAre("XRVNtqclt_10.1.1.0"));
    EXPECT_TRUE(platform().logged(16, "Could not determine package version. Not adding package", AIX_HP));
}

TEST_F(InstalledPackages, HpuxListsByWords)
{
    commands({{"swlist -l product | grep \"XRVN\" 2>&1", {0, "  XRVNtqclt  10.1.1  Client\n  XRVNbrk\n"}},
              {"swlist -l product XRVNtqclt 2>&1",
               {0, "# Initializing...\n# Target:  h1:/\n\n  XRVNtqclt  10.1.1  Client\n"}},
              {"swlist -l product XRVNbrk 2>&1", {0, "# Target:  h1:/\n  XRVNbrk\n"}}});
    EXPECT_EQ(record.retrieveInstalledPackagesAixHP(CHostInformation::OtherUnix::hpux), 0);
    EXPECT_THAT(record.installedPackages, ElementsAre("XRVNtqclt_10.1.1"));
    EXPECT_TRUE(platform().logged(16, "Could not determine package version. Not adding package", AIX_HP));
}

TEST_F(InstalledPackages, WithoutASystemTheListingIsThatOfHpuxUnlessThisWasBuiltOnAix)
{
    commands({{"swlist -l product | grep \"XRVN\" 2>&1", {0, "  XRVNtqclt  10.1.1  Client\n"}},
              {"swlist -l product XRVNtqclt 2>&1", {0, "  XRVNtqclt  10.1.1  Client\n"}},
              {"lslpp -Lc | grep \"XRVN\" 2>&1", {0, ""}}});
    EXPECT_EQ(record.retrieveInstalledPackagesAixHP(), 0);
    EXPECT_THAT(record.installedPackages, ElementsAre("XRVNtqclt_10.1.1"));
}
