// Alone in its file, so that a test can put its own in place of the probes of the real host.
#include "sysinfo/system_info.h"

#include "sysinfo/hardware_info.h"
#include "sysinfo/host_info.h"
#include "sysinfo/log_message.h"
#include "sysinfo/os_info.h"
#include "sysinfo/vm_info.h"

#include <utility>

namespace SYSINFO_NAMESPACE {
namespace {

/// The order is fixed: log and external commands of a run follow it.
SystemInfoData runProbes()
{
    const UnixHostInfo host;
    const UnixOsInfo os;
    const LinuxVmInfo machine;
    const LinuxHardwareInfo hardware;
    SystemInfoData data;
    data.hostNames = host.getHostName();
    data.hostIPs = host.getHostIP();
    data.hostID = host.getHostID();
    data.tquClientName = host.getTquClientName();
    data.tquClusterName = host.getTquClusterName();
    data.osName = os.getOsName();
    data.osVersion = os.getOsVersion();
    data.isVm = machine.getIsVm() ? 1 : 0;
    data.vmType = machine.getVmType();
    data.vmID = machine.getVmID();
    data.uVmType = machine.getUVmType();
    data.vendorName = hardware.getVendorName();
    data.modelName = hardware.getModelName();
    data.architecture = hardware.getArchitectureType();
    data.cpuType = hardware.getCpuType();
    data.processorCount = hardware.getProcessorCount();
    data.processorSocketCount = hardware.getProcessorSocketCount();
    data.processorCoreCount = hardware.getProcessorCoreCount();
    data.totalMemory = hardware.getTotalMemory();
    return data;
}

} // namespace

int GetClientSystemInfo(TquClientSystemData& out)
{
    try {
        TquClientSystemData result = CreateTquClientSystemInfo(runProbes());
        out = std::move(result);
        return 0;
    } catch (...) {
        logMessage(LogLevel::progress, "TquClientSystemData::GetClientSystemInfo",
                   "exception getting system data");
        return -1;
    }
}

} // namespace SYSINFO_NAMESPACE
