#include "hostinfo/machine_names.h"
#include "hostinfo/text_file.h"
#include "hostinfo/tqclntdb_hostinfo.h"
#include "platform/debuglog.h"
#include "sysinfo/system_info.h"

using SYSINFO_NAMESPACE::NULL_MARKER;
using SYSINFO_NAMESPACE::TquClientSystemData;

namespace TQCLNTDB {
namespace {

constexpr const char* CONTEXT = "CHostInformation::loadHostConfig";

constexpr const char* REDHAT_RELEASE_FILE = "/etc/redhat-release";
constexpr const char* SUSE_RELEASE_FILE = "/etc/SuSE-release";
constexpr const char* SUSE_CONFIG_TOOL = "/sbin/SuSEconfig";
constexpr const char* OS_RELEASE_FILE = "/etc/os-release";

/// Longest release that is kept, in bytes.
constexpr std::size_t MAX_RELEASE_LENGTH = 8;

constexpr const char* TRAILING_SPACE = " \t\n\r\f\v";

void logFailure(const char* text, int status)
{
    LogLine(LogLevel::error, CONTEXT) << text << status << '\n';
}

int failed(const char* text, int status)
{
    logFailure(text, status);
    return status;
}

void logProgress(const char* text)
{
    LogLine(LogLevel::progress, CONTEXT) << text << '\n';
}

bool isKnown(const std::string& fact)
{
    return fact != NULL_MARKER;
}

struct Distribution {
    std::string name;
    std::string release = "Unknown";
};

/// The distribution by the first release file that exists. The files of the older distributions come first,
/// since their successors carry os-release beside them.
Distribution identifyDistribution(const CHostInformation& host, const TquClientSystemData& system)
{
    if (exists(REDHAT_RELEASE_FILE))
        return {"RedHat Linux", host.getOSReleaseVersionFromString(REDHAT_RELEASE_FILE)};
    if (exists(SUSE_RELEASE_FILE) || exists(SUSE_CONFIG_TOOL))
        return {"SuSE Linux", host.getOSReleaseVersionFromString(SUSE_RELEASE_FILE)};
    if (exists(OS_RELEASE_FILE)) {
        Distribution found;
        found.release = host.getOSReleaseVersionFromId(OS_RELEASE_FILE);
        found.name = host.getOSName(OS_RELEASE_FILE);
        return found;
    }
    return {system.osName};
}

/// A model as it stands in the hardware description: without the white space behind it.
std::string withoutTrailingSpace(std::string text)
{
    text.erase(text.find_last_not_of(TRAILING_SPACE) + 1);
    return text;
}

} // namespace

int CHostInformation::loadHostConfig()
{
    TquClientSystemData system;
    if (const int status = SYSINFO_NAMESPACE::GetClientSystemInfo(system); status != 0)
        return failed("SYSINFO_NAMESPACE::GetClientSystemInfo error : ", status);
    setOperatingSystem(system);
    setHardware(system);
    hostName = system.tquClientName;
    if (const int status = loadHostInfoFromKXConf(); status != 0)
        return failed("loadHostInfoFromKXConf() error : ", status);
    if (const int status = retrieveHFXsInstalled(); status != 0)
        return failed("Failed to get HFX details, errorcode : ", status);
    setMachine(system);
    if (const int status = getMachineTquType(machineTquType); status != 0)
        return failed("getMachineTquType() failed, status = ", status);
    if (const int status = retrieveInstalledPackages(); status != 0)
        logFailure("Failed to get installed package details, errorcode : ", status);
    if (const int status = retrieveKqUpdatePlatform(); status != 0)
        logFailure("Failed to get the KqUpdate platform name, errorcode : ", status);
    if (const int status = loadUUIDFromHostConfig(); status != 0)
        return failed("Failed to get host UUID with error : ", status);
    if (const int status = loadTrustVersionFromHostConfig(); status != 0)
        return failed("Failed to get trustVersion with error : ", status);
    discoverSharedNames();
    isSecureEnabled = true;
    return 0;
}

void CHostInformation::discoverSharedNames()
{
    if (isClusterAutoDiscoveryDisabled() != 0) {
        logProgress("Cluster auto discovery of shared host name is disabled.");
        return;
    }
    logProgress("Sending cluster auto discovered shared names of the hosts.");
    loadSharedNames(); // a host outside any cluster is described all the same
}

void CHostInformation::setOperatingSystem(const TquClientSystemData& system)
{
    const Distribution distribution = identifyDistribution(*this, system);
    osType = "UNIX";
    osReleaseVersion = distribution.release.substr(0, MAX_RELEASE_LENGTH);
    LogLine(LogLevel::progress, CONTEXT) << "Detected OS Release Version = [ " << osReleaseVersion << " ]\n";
    LogLine(LogLevel::progress, CONTEXT) << "Detected OS Type = [ " << osType << " ]\n";
    if (isKnown(system.osVersion))
        osVersion = distribution.name + " (" + system.osVersion + ")";
    else
        logProgress("OS version information is not available");
}

void CHostInformation::setHardware(const TquClientSystemData& system)
{
    if (isKnown(system.vendorName))
        hwDescription = system.vendorName;
    else
        logProgress("VendorName information is not available");
    if (isKnown(system.modelName))
        hwDescription += " " + withoutTrailingSpace(system.modelName);
    else
        logProgress("ModelName information is not available");
    hwDescription += ", ";
    if (system.processorCount > 0)
        hwDescription += std::to_string(system.processorCount) + " CPUs";
    else
        hwDescription += "Invalid CPU count";

    if (isKnown(system.architecture))
        cpuArchitecture = system.architecture;
    else
        logProgress("CPU ArchitectureType information is not available");
}

void CHostInformation::setMachine(const TquClientSystemData& system)
{
    machineType = machineTypeName(system.isVm);
    hypervisorType = hypervisorName(system.uVmType);
}

} // namespace TQCLNTDB
