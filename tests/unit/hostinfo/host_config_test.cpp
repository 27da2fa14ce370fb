#include "hostinfo/tqclntdb_hostinfo.h"

#include "tests/fakes/clusterinfo/fake_clusterinfo.h"
#include "tests/fakes/platform/fake_platform.h"
#include "tests/fakes/seams/fake_seams.h"
#include "tests/fakes/sysinfo/fake_sysinfo.h"
#include "tests/unit/hostinfo/text_file.h"

#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <vector>

using fakes::clusterDiscovery;
using fakes::LogEntry;
using fakes::platform;
using fakes::seams;
using fakes::sysinfo;
using testing::ElementsAre;
using testing::IsEmpty;
using TQCLNTDB::CHostInformation;

namespace {

constexpr int PROGRESS = 2;
constexpr int ERROR = 16;

constexpr const char* REDHAT_FILE = "/etc/redhat-release";
constexpr const char* SUSE_FILE = "/etc/SuSE-release";
constexpr const char* SUSE_TOOL = "/sbin/SuSEconfig";
constexpr const char* OS_FILE = "/etc/os-release";

using Log = std::vector<LogEntry>;

LogEntry load(int level, const std::string& text)
{
    return {level, text + "\n", "CHostInformation::loadHostConfig"};
}

LogEntry step(const std::string& operation, int level, const std::string& text)
{
    return {level, text, "CHostInformation::" + operation};
}

void append(Log& log, const Log& more)
{
    log.insert(log.end(), more.begin(), more.end());
}

// The parts of a complete load's log, in order. The release files' own entries come first.

Log detected(const std::string& release)
{
    return {load(PROGRESS, "Detected OS Release Version = [ " + release + " ]"),
            load(PROGRESS, "Detected OS Type = [ UNIX ]")};
}

Log configurationRead()
{
    return {step("loadHostInfoFromKXConf", PROGRESS, "Found 2 server entries")};
}

Log noHotfixes()
{
    return {step("retrieveHFXsInstalled", PROGRESS, "Retrieved TQU installed dir [ /usr/torqv/]"),
            step("retrieveHFXsInstalled", PROGRESS,
                 "File path for HFX's retrieval: [ /usr/torqv/pack/pack.summary ]"),
            step("retrieveHFXsInstalled", PROGRESS,
                 "pack.summary file does not exist, considering no HFX's installed on machine")};
}

Log onePackage()
{
    constexpr const char* OPERATION = "retrieveInstalledPackagesLinux";
    return {step(OPERATION, PROGRESS,
                 "Executing command to get list of Torquenix installed packages: [rpm -qa XRVN* 2>&1]"),
            step(OPERATION, PROGRESS, "Current line of command output: [XRVNtqclt-9.1-1.x86_64]"),
            step(OPERATION, PROGRESS, "Adding installed package: [XRVNtqclt_9.1]")};
}

Log oneSharedName()
{
    return {load(PROGRESS, "Sending cluster auto discovered shared names of the hosts."),
            step("retrieveClusterSharedNames", PROGRESS, "GetClusterSharedNames returned = vip1"),
            step("loadSharedNames", PROGRESS, "Shared Names = vip1")};
}

Log machineTquTypeRead()
{
    return {step("getMachineTquType", PROGRESS, "Found MACHINE_TQU_TYPE = MEDIA")};
}

Log platformSet()
{
    return {step("retrieveKqUpdatePlatform", PROGRESS, "KqUpdate platform set to : [linux_x86]")};
}

Log hostIdRead()
{
    return {step("loadUUIDFromHostConfig", PROGRESS, "Retrieved Host Id [ id1 ] for Master Server [ m1 ]")};
}

Log trustVersionRead()
{
    return {step("loadTrustVersionFromHostConfig", PROGRESS,
                 "Retrieved TrustVersion [ 7 ] for Master Server [ m1 ]")};
}

/// What a load writes after the distribution is known, when nothing fails.
Log restOfALoad(const std::string& release)
{
    Log log = detected(release);
    for (const Log& part : {configurationRead(), noHotfixes(), machineTquTypeRead(), onePackage(),
                            platformSet(), hostIdRead(), trustVersionRead(), oneSharedName()})
        append(log, part);
    return log;
}

Log completeLoad(Log distribution, const std::string& release)
{
    append(distribution, restOfALoad(release));
    return distribution;
}

SYSINFO_NAMESPACE::TquClientSystemData systemData()
{
    SYSINFO_NAMESPACE::TquClientSystemData data;
    data.osName = "Linux";
    data.osVersion = "6.1.0";
    data.architecture = "x86_64";
    data.cpuType = "not this one";
    data.vendorName = "GenuineIntel";
    data.modelName = "Model 7 \t\n";
    data.tquClientName = "h1.example";
    data.processorCount = 2;
    data.isVm = 1;
    data.uVmType = 5;
    data.vmType = 3;
    return data;
}

class LoadHostConfig : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        fakes::resetSeams();
        fakes::resetSysinfo();
        fakes::resetClusterDiscovery();
        clusterDiscovery().status = 0;
        clusterDiscovery().names = {"vip1"};
        platform().masterConfig.values["DISABLE_CLUSTER_AUTO_DISCOVERY"] = "NO";
        seams().command = [](const std::string&, std::string& output, int& status) {
            output = "XRVNtqclt-9.1-1.x86_64\n";
            status = 0;
            return 0;
        };
        sysinfo().record = systemData();
        platform().configuredServers = {"m1", "m2"};
        platform().masterConfig.values["MACHINE_TQU_TYPE"] = "MEDIA";
        platform().hostId = {0, "id1"};
        platform().trustVersion = {0, "7"};
        for (const char* path : {REDHAT_FILE, SUSE_FILE, OS_FILE})
            std::filesystem::remove(path);
    }

    /// A release file of this host.
    static void place(const char* path, const std::string& text)
    {
        seams().files[path] = S_IFREG | 0644;
        fakes::writeFile(path, text);
    }

    CHostInformation record{"m1", CERT_TYPE_HOST};
};

/// A record after a load of systemData() on a host without release files.
CHostInformation loadedRecord()
{
    CHostInformation record("m1", CERT_TYPE_HOST);
    record.hostName = "h1.example";
    record.hostId = "id1";
    record.osType = "UNIX";
    record.osVersion = "Linux (6.1.0)";
    record.osReleaseVersion = "Unknown";
    record.installedPackages = {"XRVNtqclt_9.1"};
    record.clusterSharedNames = {"vip1"};
    record.kqUpdatePlatform = "linux_x86";
    record.hwDescription = "GenuineIntel Model 7, 2 CPUs";
    record.cpuArchitecture = "x86_64";
    record.tquVersion = "Torquenix_9.1.0.1";
    record.isSecureEnabled = true;
    record.servers = {"m1", "m2"};
    record.trustVersion = "7";
    record.machineType = "VIRTUAL";
    record.hypervisorType = "RHV";
    record.machineTquType = "MEDIA";
    return record;
}

void expectSame(const CHostInformation& record, const CHostInformation& expected)
{
    EXPECT_EQ(record.getJSON(true, true), expected.getJSON(true, true));
    EXPECT_EQ(record.certType, expected.certType);
}

// The distributions

TEST_F(LoadHostConfig, HostWithoutReleaseFilesTakesTheSystemsNameAndIsFilledWhole)
{
    EXPECT_EQ(record.loadHostConfig(), 0);
    expectSame(record, loadedRecord());
    EXPECT_EQ(platform().log, restOfALoad("Unknown"));
    EXPECT_EQ(sysinfo().calls, 1);
}

TEST_F(LoadHostConfig, EverythingIsAskedForInOrder)
{
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_THAT(seams().calls,
                ElementsAre("stat /etc/redhat-release", "stat /etc/SuSE-release", "stat /sbin/SuSEconfig",
                            "stat /etc/os-release", "getTQInstalledVersionStr",
                            "stat /usr/torqv/pack/pack.summary", "isDebianUbuntu",
                            "run_command_and_capture_output rpm -qa XRVN* 2>&1", "isDebianUbuntu",
                            "isValidKqupdateOsHdwNamesIdentifier 10", "getOsHdwName 10"));
    EXPECT_THAT(platform().calls,
                ElementsAre("ReadHostConfigExA 1 0 0 0", "FreeHostConfigA", "getTQInstallDir 1024",
                            "TQ_read_master_config", "get_master_config_ptr",
                            "kxconfGetKeyValPair MACHINE_TQU_TYPE", "getHostID 1 m1 64",
                            "getTrustVersion 1 m1 64", "TQ_read_master_config", "get_master_config_ptr",
                            "kxconfGetKeyValPairAsBool DISABLE_CLUSTER_AUTO_DISCOVERY"));
}

TEST_F(LoadHostConfig, RedHatFileIsTheOnlyOneReadWhenItExists)
{
    place(REDHAT_FILE, "Red Hat Enterprise Linux Server release 7.9 (Maipo)\n");
    place(SUSE_FILE, "x release 1\n");
    place(OS_FILE, "PRETTY_NAME=Other\nVERSION_ID=2\n");
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.osVersion, "RedHat Linux (6.1.0)");
    EXPECT_EQ(record.osReleaseVersion, "7.9");
    EXPECT_EQ(seams().calls[1], "getTQInstalledVersionStr") << "no other file is looked for";
    const Log distribution{
        step("getOSReleaseVersionFromString", PROGRESS,
             "Found line: [Red Hat Enterprise Linux Server release 7.9 (Maipo)] for parsing release version"),
        step("getOSReleaseVersionWithoutBuildNo", PROGRESS, "Found line: [7.9] for parsing release version"),
        step("getOSReleaseVersionFromString", PROGRESS, "OS Release version [7.9]")};
    EXPECT_EQ(platform().log, completeLoad(distribution, "7.9"));
}

TEST_F(LoadHostConfig, SuSEFileComesBeforeOsRelease)
{
    place(SUSE_FILE, "openSUSE release 13.2\nVERSION = 13.2");
    place(OS_FILE, "PRETTY_NAME=Other\nVERSION_ID=2\n");
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.osVersion, "SuSE Linux (6.1.0)");
    EXPECT_EQ(record.osReleaseVersion, "13.2");
    EXPECT_EQ(seams().calls[2], "getTQInstalledVersionStr") << "no other file is looked for";
    const Log distribution{
        step("getOSReleaseVersionFromString", PROGRESS,
             "Found line: [openSUSE release 13.2] for parsing release version"),
        step("getOSReleaseVersionWithoutBuildNo", PROGRESS, "Found line: [13.2] for parsing release version"),
        step("getOSReleaseVersionFromString", PROGRESS, "OS Release version [13.2]"),
        step("getOSReleaseVersionFromString", PROGRESS,
             "Found line: [VERSION = 13.2] for parsing release version")};
    EXPECT_EQ(platform().log, completeLoad(distribution, "13.2"));
}

TEST_F(LoadHostConfig, SuSEToolAloneIsSuSEOfAnUnknownRelease)
{
    seams().files[SUSE_TOOL] = S_IFREG | 0755;
    place(OS_FILE, "PRETTY_NAME=Other\nVERSION_ID=2\n");
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.osVersion, "SuSE Linux (6.1.0)");
    EXPECT_EQ(record.osReleaseVersion, "Unknown");
    const Log distribution{
        step("getOSReleaseVersionFromString", ERROR, "Unable to open version file: /etc/SuSE-release")};
    EXPECT_EQ(platform().log, completeLoad(distribution, "Unknown"));
}

TEST_F(LoadHostConfig, OsReleaseGivesReleaseAndThenName)
{
    place(OS_FILE, "PRETTY_NAME=\"Ubuntu 20.04.3 LTS\"\nVERSION_ID=\"20.04\"\n");
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.osVersion, "Ubuntu 20.04.3 LTS (6.1.0)");
    EXPECT_EQ(record.osReleaseVersion, "20.04");
    const Log distribution{
        step("getOSReleaseVersionFromId", PROGRESS,
             "Found line: [PRETTY_NAME=\"Ubuntu 20.04.3 LTS\"] for parsing Version Id string"),
        step("getOSReleaseVersionFromId", PROGRESS,
             "Found line: [VERSION_ID=\"20.04\"] for parsing Version Id string"),
        step("getOSReleaseVersionWithoutBuildNo", PROGRESS,
             "Found line: [20.04] for parsing release version"),
        step("getOSReleaseVersionFromId", PROGRESS, "OS Release version [20.04]"),
        step("getOSName", PROGRESS, "OS Name [Ubuntu 20.04.3 LTS]")};
    EXPECT_EQ(platform().log, completeLoad(distribution, "20.04"));
}

TEST_F(LoadHostConfig, ReleaseIsCutToEightBytes)
{
    place(REDHAT_FILE, "x release 12.345.6789.1234\n");
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.osReleaseVersion, "12.345.6");
    EXPECT_TRUE(platform().logged(PROGRESS, "Detected OS Release Version = [ 12.345.6 ]\n",
                                  "CHostInformation::loadHostConfig"));

    place(REDHAT_FILE, "x release 1234567\xc3\xa4\n"); // the cut falls within a character
    record.loadHostConfig();
    EXPECT_EQ(record.osReleaseVersion, "1234567\xc3");

    place(REDHAT_FILE, "x release 12345678\n");
    record.loadHostConfig();
    EXPECT_EQ(record.osReleaseVersion, "12345678");
}

TEST_F(LoadHostConfig, LineThatEndsRightAtItsKeyEndsTheLoadWithTheException)
{
    place(REDHAT_FILE, "x release\n");
    EXPECT_THROW(record.loadHostConfig(), std::out_of_range);
    expectSame(record, CHostInformation("m1", CERT_TYPE_HOST));
}

// Facts that are not known

TEST_F(LoadHostConfig, UnknownVersionLeavesTheField)
{
    sysinfo().record.osVersion = "<NULL>";
    record.osVersion = "before";
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.osVersion, "before");
    Log expected = restOfALoad("Unknown");
    expected.insert(expected.begin() + 2, load(PROGRESS, "OS version information is not available"));
    EXPECT_EQ(platform().log, expected);
}

TEST_F(LoadHostConfig, UnknownVendorLeavesTheBlankBeforeTheModel)
{
    sysinfo().record.vendorName = "<NULL>";
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.hwDescription, " Model 7, 2 CPUs");
    Log expected = restOfALoad("Unknown");
    expected.insert(expected.begin() + 2, load(PROGRESS, "VendorName information is not available"));
    EXPECT_EQ(platform().log, expected);
}

TEST_F(LoadHostConfig, UnknownModelLeavesTheCommaAfterTheVendor)
{
    sysinfo().record.modelName = "<NULL>";
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.hwDescription, "GenuineIntel, 2 CPUs");
    Log expected = restOfALoad("Unknown");
    expected.insert(expected.begin() + 2, load(PROGRESS, "ModelName information is not available"));
    EXPECT_EQ(platform().log, expected);
}

TEST_F(LoadHostConfig, UnknownArchitectureLeavesTheField)
{
    sysinfo().record.architecture = "<NULL>";
    record.cpuArchitecture = "before";
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.cpuArchitecture, "before");
    Log expected = restOfALoad("Unknown");
    expected.insert(expected.begin() + 2,
                    load(PROGRESS, "CPU ArchitectureType information is not available"));
    EXPECT_EQ(platform().log, expected);
}

TEST_F(LoadHostConfig, UnknownNamesOfHostAndSystemAreKeptAsTheyAre)
{
    sysinfo().record.tquClientName = "<NULL>";
    sysinfo().record.osName = "<NULL>";
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.hostName, "<NULL>");
    EXPECT_EQ(record.osVersion, "<NULL> (6.1.0)");
    EXPECT_EQ(platform().log, restOfALoad("Unknown"));
}

TEST_F(LoadHostConfig, UnknownFactsLeaveTheirFieldsEmpty)
{
    sysinfo().record = {};
    for (std::string* fact :
         {&sysinfo().record.osName, &sysinfo().record.osVersion, &sysinfo().record.vendorName,
          &sysinfo().record.modelName, &sysinfo().record.architecture, &sysinfo().record.tquClientName})
        *fact = "<NULL>";
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.osVersion, "");
    EXPECT_EQ(record.hwDescription, ", Invalid CPU count");
    EXPECT_EQ(record.cpuArchitecture, "");
    EXPECT_EQ(record.machineType, "PHYSICAL");
    EXPECT_EQ(record.hypervisorType, "NONE");
    Log expected = detected("Unknown");
    append(expected, {load(PROGRESS, "OS version information is not available"),
                      load(PROGRESS, "VendorName information is not available"),
                      load(PROGRESS, "ModelName information is not available"),
                      load(PROGRESS, "CPU ArchitectureType information is not available")});
    const Log whole = restOfALoad("Unknown");
    expected.insert(expected.end(), whole.begin() + 2, whole.end());
    EXPECT_EQ(platform().log, expected);
}

TEST_F(LoadHostConfig, OnlyTheModelIsTrimmedAndOnlyAtItsEnd)
{
    sysinfo().record.vendorName = " V ";
    sysinfo().record.modelName = "\t M 1 \t\n\r\f\v ";
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.hwDescription, " V  \t M 1, 2 CPUs");
}

TEST_F(LoadHostConfig, ModelOfWhiteSpaceAloneLeavesTheBlank)
{
    sysinfo().record.modelName = " \n";
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.hwDescription, "GenuineIntel , 2 CPUs");
}

TEST_F(LoadHostConfig, ProcessorCountOfZeroOrLessIsInvalid)
{
    const std::vector<std::pair<std::int64_t, std::string>> rows{
        {0, "Invalid CPU count"},
        {-1, "Invalid CPU count"},
        {1, "1 CPUs"},
        {9223372036854775807, "9223372036854775807 CPUs"},
    };
    for (const auto& [count, text] : rows) {
        sysinfo().record.processorCount = count;
        CHostInformation fresh("m1", CERT_TYPE_HOST);
        EXPECT_EQ(fresh.loadHostConfig(), 0);
        EXPECT_EQ(fresh.hwDescription, "GenuineIntel Model 7, " + text);
    }
}

TEST_F(LoadHostConfig, UnlistedMachineCodesAreUnknownAndNone)
{
    sysinfo().record.isVm = 2;
    sysinfo().record.uVmType = 9;
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.machineType, "UNKNOWN");
    EXPECT_EQ(record.hypervisorType, "NONE");
}

TEST_F(LoadHostConfig, AbsentMachineTquTypeIsNoError)
{
    platform().masterConfig.values.erase("MACHINE_TQU_TYPE");
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.machineTquType, "");
    EXPECT_TRUE(record.isSecureEnabled);
}

TEST_F(LoadHostConfig, TrustVersionThatIsNotRecordedIsEmptyAndASuccess)
{
    platform().trustVersion = {227, ""};
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.trustVersion, "");
    EXPECT_TRUE(record.isSecureEnabled);
    Log expected = restOfALoad("Unknown");
    expected[expected.size() - oneSharedName().size() - 1].text =
        "Retrieved TrustVersion [  ] for Master Server [ m1 ]";
    EXPECT_EQ(platform().log, expected);
}

TEST_F(LoadHostConfig, ClusterTypeAsksForTheClustersIdentity)
{
    CHostInformation cluster("m2", CERT_TYPE_CLUSTER);
    EXPECT_EQ(cluster.loadHostConfig(), 0);
    EXPECT_THAT(platform().calls, testing::IsSupersetOf({"getHostID 2 m2 64", "getTrustVersion 2 m2 64"}));
}

// Failures that end the load

TEST_F(LoadHostConfig, FailedSystemInformationLeavesTheRecordUntouched)
{
    sysinfo().status = -1;
    EXPECT_EQ(record.loadHostConfig(), -1);
    expectSame(record, CHostInformation("m1", CERT_TYPE_HOST));
    EXPECT_THAT(platform().log,
                ElementsAre(load(ERROR, "SYSINFO_NAMESPACE::GetClientSystemInfo error : -1")));
    EXPECT_THAT(seams().calls, IsEmpty());
}

TEST_F(LoadHostConfig, ExceptionOfTheSystemInformationPasses)
{
    sysinfo().onCall = [] { throw std::bad_alloc(); };
    EXPECT_THROW(record.loadHostConfig(), std::bad_alloc);
    expectSame(record, CHostInformation("m1", CERT_TYPE_HOST));
}

/// The log of a load on a host without release files that ends with a failed step's own entry and the load's.
Log endedLoad(const std::vector<Log>& before, const LogEntry& own, const std::string& text)
{
    Log log = detected("Unknown");
    for (const Log& part : before)
        append(log, part);
    log.push_back(own);
    log.push_back(load(ERROR, text));
    return log;
}

/// What systemData() alone fills.
CHostInformation recordOfSystemData()
{
    CHostInformation expected("m1", CERT_TYPE_HOST);
    const CHostInformation whole = loadedRecord();
    expected.hostName = whole.hostName;
    expected.osType = whole.osType;
    expected.osVersion = whole.osVersion;
    expected.osReleaseVersion = whole.osReleaseVersion;
    expected.hwDescription = whole.hwDescription;
    expected.cpuArchitecture = whole.cpuArchitecture;
    return expected;
}

TEST_F(LoadHostConfig, ConfigurationThatCannotBeReadEndsTheLoad)
{
    platform().hostConfigStatus = 13;
    EXPECT_EQ(record.loadHostConfig(), 13);
    EXPECT_EQ(platform().log, endedLoad({}, step("loadHostInfoFromKXConf", ERROR, "Failed to read kx.conf"),
                                        "loadHostInfoFromKXConf() error : 13"));
    expectSame(record, recordOfSystemData());
}

TEST_F(LoadHostConfig, ConfigurationThatCannotBeOpenedForTheMachineTquTypeEndsTheLoad)
{
    platform().masterConfigStatus = 12;
    EXPECT_EQ(record.loadHostConfig(), 12);
    EXPECT_EQ(platform().log,
              endedLoad({configurationRead(), noHotfixes()},
                        step("getMachineTquType", ERROR, "TQ_read_master_config() failed, status = 12"),
                        "getMachineTquType() failed, status = 12"));
    CHostInformation expected = recordOfSystemData();
    expected.servers = {"m1", "m2"};
    expected.tquVersion = "Torquenix_9.1.0.1";
    expected.machineType = "VIRTUAL";
    expected.hypervisorType = "RHV";
    expectSame(record, expected);
}

TEST_F(LoadHostConfig, FailedHostIdEndsTheLoadWithTheFieldsWrittenSoFar)
{
    platform().hostId.status = 7612;
    EXPECT_EQ(record.loadHostConfig(), 7612);
    EXPECT_EQ(
        platform().log,
        endedLoad({configurationRead(), noHotfixes(), machineTquTypeRead(), onePackage(), platformSet()},
                  step("loadUUIDFromHostConfig", ERROR, "Host Id retrieval failed with error: 7612"),
                  "Failed to get host UUID with error : 7612"));
    CHostInformation expected = loadedRecord();
    expected.hostId = "";
    expected.trustVersion = "";
    expected.clusterSharedNames.clear();
    expected.isSecureEnabled = false;
    expectSame(record, expected);
}

TEST_F(LoadHostConfig, FailedHostIdKeepsTheBundlesThatWereFoundBefore)
{
    std::filesystem::create_directories("/usr/torqv/pack");
    place("/usr/torqv/pack/pack.summary", "HFX_Torquenix_9.1_PET1_SET1 installed\n");
    platform().hostId.status = 7612;
    EXPECT_EQ(record.loadHostConfig(), 7612);
    EXPECT_THAT(record.installedHFXs, ElementsAre("Torquenix_9.1_PET1_SET1"));
    std::filesystem::remove_all("/usr/torqv/pack");
}

TEST_F(LoadHostConfig, FailedHotfixInventoryEndsTheLoad)
{
    platform().installDirStatus = 36;
    EXPECT_EQ(record.loadHostConfig(), 36);
    EXPECT_EQ(platform().log, endedLoad({configurationRead()},
                                        step("retrieveHFXsInstalled", ERROR,
                                             "Retrieval of TQU installed dir failed with error: 36"),
                                        "Failed to get HFX details, errorcode : 36"));
    EXPECT_EQ(record.machineType, "");
    EXPECT_FALSE(record.isSecureEnabled);
}

// Failures that the load survives

TEST_F(LoadHostConfig, FailedPackageQueryIsLoggedAndPassedOver)
{
    seams().command = [](const std::string&, std::string&, int&) { return 7247; };
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_THAT(record.installedPackages, IsEmpty());
    EXPECT_TRUE(platform().logged(ERROR, "Failed to get installed package details, errorcode : 7247\n",
                                  "CHostInformation::loadHostConfig"));
    EXPECT_TRUE(record.isSecureEnabled);
}

TEST_F(LoadHostConfig, DisabledDiscoveryLeavesTheSharedNamesEmptyAndTheFlagSet)
{
    platform().masterConfig.values["DISABLE_CLUSTER_AUTO_DISCOVERY"] = "YES";
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_THAT(record.clusterSharedNames, IsEmpty());
    EXPECT_THAT(clusterDiscovery().includeIP, IsEmpty()); // not even asked
    EXPECT_TRUE(record.isSecureEnabled);
    EXPECT_EQ(platform().log.back(),
              load(PROGRESS, "Cluster auto discovery of shared host name is disabled."));
}

TEST_F(LoadHostConfig, FailedDiscoveryIsIgnored)
{
    clusterDiscovery().status = 256;
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_THAT(record.clusterSharedNames, IsEmpty());
    EXPECT_TRUE(record.isSecureEnabled);
}

TEST_F(LoadHostConfig, FailedLoadLeavesTheSecurityFlagAsItWas)
{
    platform().hostId.status = 7612;
    record.isSecureEnabled = true;
    EXPECT_EQ(record.loadHostConfig(), 7612);
    EXPECT_TRUE(record.isSecureEnabled);
}

TEST_F(LoadHostConfig, FailedTrustVersionEndsTheLoad)
{
    platform().trustVersion.status = 7611;
    EXPECT_EQ(record.loadHostConfig(), 7611);
    EXPECT_EQ(platform().log, endedLoad({configurationRead(), noHotfixes(), machineTquTypeRead(),
                                         onePackage(), platformSet(), hostIdRead()},
                                        step("loadTrustVersionFromHostConfig", ERROR,
                                             "TrustVersion retrieval failed with error: 7611"),
                                        "Failed to get trustVersion with error : 7611"));
    CHostInformation expected = loadedRecord();
    expected.trustVersion = "";
    expected.clusterSharedNames.clear();
    expected.isSecureEnabled = false;
    expectSame(record, expected);
}

// Failures that the load survives

TEST_F(LoadHostConfig, PlatformNameThatIsTooLongIsSurvived)
{
    const std::string name(33, 'p');
    seams().platformNames[10] = name;
    EXPECT_EQ(record.loadHostConfig(), 0);
    CHostInformation expected = loadedRecord();
    expected.kqUpdatePlatform = "";
    expectSame(record, expected);
    Log log = detected("Unknown");
    for (const Log& part : {configurationRead(), noHotfixes(), machineTquTypeRead(), onePackage()})
        append(log, part);
    append(log, {step("retrieveKqUpdatePlatform", ERROR,
                      "KqUpdate platform value [" + name +
                          "] exceeds the max allowed length of 32. Setting value to empty string."),
                 step("retrieveKqUpdatePlatform", PROGRESS, "KqUpdate platform set to : []"),
                 load(ERROR, "Failed to get the KqUpdate platform name, errorcode : 7290")});
    append(log, hostIdRead());
    append(log, trustVersionRead());
    append(log, oneSharedName());
    EXPECT_EQ(platform().log, log);
}

TEST_F(LoadHostConfig, PlatformThatIsNotValidIsSurvived)
{
    seams().validPlatforms.clear();
    EXPECT_EQ(record.loadHostConfig(), 0);
    CHostInformation expected = loadedRecord();
    expected.kqUpdatePlatform = "";
    expectSame(record, expected);
    EXPECT_TRUE(platform().logged(ERROR, "Failed to get the KqUpdate platform name, errorcode : 7291\n",
                                  "CHostInformation::loadHostConfig"));
}

TEST_F(LoadHostConfig, MissingInstalledVersionIsSurvivedInSilence)
{
    seams().installedVersionStatus = 7500;
    seams().installedVersion = "";
    EXPECT_EQ(record.loadHostConfig(), 0);
    CHostInformation expected = loadedRecord();
    expected.tquVersion = "";
    expectSame(record, expected);
    EXPECT_EQ(platform().log, restOfALoad("Unknown"));
}

// A load is meant for a fresh record

TEST_F(LoadHostConfig, SecondLoadDeliberatelyDoublesListsAndStartsHardwareWithTheVendor)
{
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_THAT(record.servers, ElementsAre("m1", "m2", "m1", "m2"));
    EXPECT_THAT(record.clusterSharedNames, ElementsAre("vip1", "vip1"));
    EXPECT_THAT(record.installedPackages, ElementsAre("XRVNtqclt_9.1", "XRVNtqclt_9.1"));
    EXPECT_EQ(record.hwDescription, "GenuineIntel Model 7, 2 CPUs");
}

TEST_F(LoadHostConfig, SecondLoadWithoutAVendorDeliberatelyLengthensHardware)
{
    sysinfo().record.vendorName = "<NULL>";
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.loadHostConfig(), 0);
    EXPECT_EQ(record.hwDescription, " Model 7, 2 CPUs Model 7, 2 CPUs");
}

} // namespace
