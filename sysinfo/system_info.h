/// The single entry point of the system probes and the record that they fill.
#pragma once

#include <cstdint>
#include <list>
#include <string>

namespace SYSINFO_NAMESPACE {

/// What a string fact reads when its probe failed.
inline constexpr const char* NULL_MARKER = "<NULL>";

/// One address of the host with all of the host's names.
struct IpInfoData {
    std::string ipAddress;
    std::list<std::string> hostNames;
};

/// Working record, filled probe by probe.
struct SystemInfoData {
    std::string osName;
    std::string osVersion;
    std::string vendorName;
    std::string modelName;
    std::string architecture;
    std::string cpuType;
    std::string tquClientName;
    std::string tquClusterName;
    double totalMemory = 0; ///< mebibytes
    std::int64_t processorCount = 0;
    std::int64_t processorSocketCount = 0;
    std::int64_t processorCoreCount = 0;
    std::list<std::string> hostNames;
    std::list<std::string> hostIPs;
    std::string hostID;
    std::int32_t isVm = 0; ///< 0 or 1
    std::int64_t vmType = 0;
    std::int64_t uVmType = 0;
    std::string vmID;
};

/// What a caller gets. A string fact that could not be found reads NULL_MARKER, a count 0.
struct TquClientSystemData {
    std::string osName;
    std::string osVersion;
    std::string hostID;
    std::list<IpInfoData> networkInfo;
    std::string architecture;
    std::string cpuType;
    std::string vendorName;
    std::string modelName;
    std::string tquClientName;
    std::string tquClusterName;
    double totalMemory = 0; ///< mebibytes
    std::int64_t processorCount = 0;
    std::int64_t processorSocketCount = 0;
    std::int64_t processorCoreCount = 0;
    std::int64_t vmType = 0;
    std::int64_t uVmType = 0;
    std::string vmID;
    std::int32_t isVm = 0;
};

/// Runs every probe once, in a fixed order, and fills `out`. Waits for the external commands that the probes
/// run. Returns 0, or -1 after an exception (`out` is then untouched and the log has one entry).
int GetClientSystemInfo(TquClientSystemData& out);

/// Field by field conversion of the working record.
TquClientSystemData CreateTquClientSystemInfo(const SystemInfoData& data);

/// One entry for each address, in order, each with all names of the host.
std::list<IpInfoData> GetNetworkInfo(const SystemInfoData& data);

} // namespace SYSINFO_NAMESPACE
