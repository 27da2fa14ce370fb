#include "sysinfo/hardware_info.h"

#include "platform/portable.h"
#include "sysinfo/cat_file.h"
#include "sysinfo/cpu_info.h"
#include "sysinfo/line_value.h"
#include "sysinfo/log_message.h"

#include <ace/OS_NS_sys_utsname.h>
#include <cstdlib>
#include <unistd.h>

namespace SYSINFO_NAMESPACE {
namespace {

constexpr const char* CPU_INFO_FILE = "/proc/cpuinfo";
constexpr const char* MEMORY_INFO_FILE = "/proc/meminfo";

/// Sockets and cores that take part in the counts: where the file tells none, the next wider count stands in.
void useCpuInfoFile(long* sockets, long* cores)
{
    constexpr const char* CONTEXT = "useCpuInfoFile";
    *sockets = 0;
    *cores = 0;
    CatFile cpuInfo(CPU_INFO_FILE);
    if (cpuInfo.status() != 0) {
        logMessage(LogLevel::error, CONTEXT, "cat command failed: %d", cpuInfo.status());
        return;
    }
    CpuTopology topology;
    for (std::string line; cpuInfo.nextLine(line);) {
        if (!topology.addLine(line))
            logMessage(LogLevel::warning, CONTEXT, "Unexpected line: %s", line.c_str());
    }
    *sockets = topology.sockets();
    *cores = topology.cores();
    logMessage(LogLevel::progress, CONTEXT, "processor count = %ld", topology.processors());
    logMessage(LogLevel::progress, CONTEXT, "core count      = %ld", *cores);
    logMessage(LogLevel::progress, CONTEXT, "socket count    = %ld", *sockets);
    if (*sockets == 0) {
        // The entry shows the count as it was, and the next one the count that was put in: kept that way.
        logMessage(LogLevel::warning, CONTEXT, "adjusted socket count = %ld", *sockets);
        *sockets = topology.processors();
    }
    if (*cores == 0) {
        logMessage(LogLevel::warning, CONTEXT, "adjusted core count   = %ld", *sockets);
        *cores = *sockets;
    }
}

} // namespace

std::string LinuxHardwareInfo::getArchitectureType() const
{
    constexpr const char* CONTEXT = "LinuxHardwareInfo::getArchitectureType";
    std::string architecture = NULL_MARKER;
    ACE_utsname names{};
    if (ACE_OS::uname(&names) == -1)
        logMessage(LogLevel::progress, CONTEXT, "ACE_utsname failed");
    else
        architecture = names.machine;
    logMessage(LogLevel::progress, CONTEXT, "architecture: %s", architecture.c_str());
    return architecture;
}

std::string LinuxHardwareInfo::getCpuType() const
{
    constexpr const char* CONTEXT = "LinuxHardwareInfo::getCpuType";
    const std::string architecture = getArchitectureType();
    CpuIdentity cpu;
    CatFile cpuInfo(CPU_INFO_FILE, CONTEXT);
    for (std::string line; cpuInfo.nextLine(line);)
        cpu.addLine(line);
    char cpuType[1025];
    V_snprintf(cpuType, sizeof cpuType, "%s (Family:%s Model:%s Stepping:%s)", architecture.c_str(),
               cpu.family.c_str(), cpu.model.c_str(), cpu.stepping.c_str());
    logMessage(LogLevel::progress, CONTEXT, "cpuType: %s", cpuType);
    return cpuType;
}

std::string LinuxHardwareInfo::getModelName() const
{
    constexpr const char* CONTEXT = "LinuxHardwareInfo::getModelName";
    CpuModelName model;
    CatFile cpuInfo(CPU_INFO_FILE, CONTEXT);
    for (std::string line; cpuInfo.nextLine(line);)
        model.addLine(line);
    std::string name = model.text();
    logMessage(LogLevel::progress, CONTEXT, "modelName: %s", name.c_str());
    return name;
}

std::string LinuxHardwareInfo::getVendorName() const
{
    constexpr const char* CONTEXT = "LinuxHardwareInfo::getVendorName";
    std::string vendor = NULL_MARKER;
    CatFile cpuInfo(CPU_INFO_FILE, CONTEXT);
    for (std::string line; cpuInfo.nextLine(line);) {
        const std::string value = contains(line, "vendor") ? valueAfterLast(':', line).value_or("") : "";
        if (!value.empty()) {
            vendor = value;
            break;
        }
    }
    logMessage(LogLevel::progress, CONTEXT, "vendorName: %s", vendor.c_str());
    return vendor;
}

int LinuxHardwareInfo::getProcessorCount() const
{
    constexpr const char* CONTEXT = "LinuxHardwareInfo::getProcessorCount";
    int count = static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
    if (count < 1) {
        logMessage(LogLevel::progress, CONTEXT, "sysconf(_SC_NPROCESSORS_ONLN) failed");
        count = 0;
    }
    logMessage(LogLevel::progress, CONTEXT, "activeCoreCount: %d", count);
    return count;
}

long LinuxHardwareInfo::getProcessorSocketCount() const
{
    long sockets = 0;
    long cores = 0;
    useCpuInfoFile(&sockets, &cores);
    logMessage(LogLevel::progress, "LinuxHardwareInfo::getProcessorSocketCount", "processorSocketCount = %ld",
               sockets);
    return sockets;
}

long LinuxHardwareInfo::getProcessorCoreCount() const
{
    long sockets = 0;
    long cores = 0;
    useCpuInfoFile(&sockets, &cores);
    logMessage(LogLevel::progress, "LinuxHardwareInfo::getProcessorCoreCount", "processorCoreCount = %ld",
               cores);
    return cores;
}

std::string LinuxHardwareInfo::getMemoryInfo(const std::string& key) const
{
    constexpr const char* CONTEXT = "LinuxHardwareInfo::getMemoryInfo";
    logMessage(LogLevel::progress, CONTEXT, "logparams - memKey: %s", key.c_str());
    CatFile memoryInfo(MEMORY_INFO_FILE, CONTEXT, LogLevel::error);
    if (memoryInfo.status() != 0)
        return "";
    std::string value;
    for (std::string line; memoryInfo.nextLine(line);) {
        if (contains(line, key)) {
            value = withoutLeadingBlanks(valueAfterLast(':', line).value_or(""));
            break;
        }
    }
    logMessage(LogLevel::progress, CONTEXT, "memInfo XML: %s", value.c_str());
    return value;
}

double LinuxHardwareInfo::getTotalMemory() const
{
    constexpr double MEBIBYTES_PER_KIBIBYTE = 0.0009765625;
    return std::strtod(getMemoryInfo("MemTotal").c_str(), nullptr) * MEBIBYTES_PER_KIBIBYTE;
}

} // namespace SYSINFO_NAMESPACE
