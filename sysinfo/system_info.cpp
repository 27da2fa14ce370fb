#include "sysinfo/system_info.h"

namespace SYSINFO_NAMESPACE {

std::list<IpInfoData> GetNetworkInfo(const SystemInfoData& data)
{
    std::list<IpInfoData> network;
    for (const std::string& address : data.hostIPs)
        network.push_back({address, data.hostNames});
    return network;
}

TquClientSystemData CreateTquClientSystemInfo(const SystemInfoData& data)
{
    TquClientSystemData result;
    result.osName = data.osName;
    result.osVersion = data.osVersion;
    result.hostID = data.hostID;
    result.networkInfo = GetNetworkInfo(data);
    result.architecture = data.architecture;
    result.cpuType = data.cpuType;
    result.vendorName = data.vendorName;
    result.modelName = data.modelName;
    result.tquClientName = data.tquClientName;
    result.tquClusterName = data.tquClusterName;
    result.totalMemory = data.totalMemory;
    result.processorCount = data.processorCount;
    result.processorSocketCount = data.processorSocketCount;
    result.processorCoreCount = data.processorCoreCount;
    result.vmType = data.vmType;
    result.uVmType = data.uVmType;
    result.vmID = data.vmID;
    result.isVm = data.isVm;
    return result;
}

} // namespace SYSINFO_NAMESPACE
