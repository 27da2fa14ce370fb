/// Processors and memory of this host.
#pragma once

#include <string>

namespace SYSINFO_NAMESPACE {

/// Every call probes afresh and logs its result, except getTotalMemory, whose text getMemoryInfo has logged.
/// A text that cannot be found is NULL_MARKER.
class LinuxHardwareInfo {
public:
    /// Machine field of uname, for example "x86_64".
    std::string getArchitectureType() const;

    /// "architecture (Family:f Model:m Stepping:s)", the last three from /proc/cpuinfo; at most 1024 bytes.
    std::string getCpuType() const;

    /// Model name, else plain model, of /proc/cpuinfo.
    std::string getModelName() const;

    /// First vendor of /proc/cpuinfo.
    std::string getVendorName() const;

    /// Processors online; 0 when the system does not tell.
    int getProcessorCount() const;

    /// Sockets as /proc/cpuinfo tells them; without physical ids the number of processors.
    long getProcessorSocketCount() const;

    /// Cores as /proc/cpuinfo tells them; without core ids the number of sockets.
    long getProcessorCoreCount() const;

    /// Value of the first line of /proc/meminfo that holds the key anywhere, for example "4036680 kB". Empty
    /// when there is none.
    std::string getMemoryInfo(const std::string& key) const;

    /// Memory in mebibytes; 0 when it cannot be found.
    double getTotalMemory() const;
};

} // namespace SYSINFO_NAMESPACE
