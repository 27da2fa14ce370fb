/// Whether this host is a virtual machine, and which hypervisor family hosts it.
#pragma once

#include "sysinfo/hypervisor_keywords.h"

#include <cstdint>
#include <optional>
#include <string>

namespace SYSINFO_NAMESPACE {

/// Probes of a Linux host. No state: every call runs its commands afresh, logs its result, and never fails
/// towards its caller: a tool that is missing or fails reads as "not found".
class LinuxVmInfo {
public:
    /// Whether the processor's flags in /proc/cpuinfo carry "hypervisor".
    bool getIsVm() const;

    /// Whether /sbin/lspci lists a VMware device.
    bool isVMware() const;

    /// VMware product code from the hypervisor's I/O port: 0, 1 or 2; 7 for any other product and without an
    /// answer. To be asked only after isVMware().
    long getVMwareType() const;

    /// getVMwareType() on a VMware guest, else 7.
    long getVmType() const;

    /// The host identifier in hexadecimal on a VMware guest, else "<NULL>".
    std::string getVmID() const;

    /// Family named by the manufacturer that dmidecode reports, or, when that is Red Hat, by the product
    /// name.
    int getUVmTypeUsingDmidecodeCommand() const;

    /// Family named by the first line of lspci that names one.
    int getUVmTypeUsingLspciCommand() const;

    /// Family named by the "Virtualization" line of hostnamectl.
    int getUVmTypeUsingHostnameCtlCommand() const;

    /// Whether the cloud provider's metadata endpoint answers with a subscription.
    bool isAzureStackVm() const;

    /// Family (UVmType) from dmidecode, else lspci, else hostnamectl; a Hyper-V guest is asked whether it
    /// runs on Azure Stack.
    int getUVmType() const;
};

/// Product code of a product number; 7 for one that is unknown or absent.
long vmwareProductCode(std::optional<std::uint32_t> product);

} // namespace SYSINFO_NAMESPACE
