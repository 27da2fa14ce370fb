#include "sysinfo/hypervisor_keywords.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace SYSINFO_NAMESPACE {

std::map<std::string, int> hypervisorType;

void MapHypervisorType()
{
    hypervisorType = {
        {"vmware", UVM_VMWARE},       {"microsoft", UVM_HYPERV}, {"red hat", UVM_RED_HAT},
        {"rhev", UVM_RED_HAT},        {"kvm", UVM_RED_HAT},      {"nutanix", UVM_NUTANIX},
        {"openstack", UVM_OPENSTACK},
    };
}

int GetHypervisorType(const char* text)
{
    if (hypervisorType.empty())
        MapHypervisorType();
    for (const auto& [keyword, family] : hypervisorType) {
        if (std::strstr(text, keyword.c_str()))
            return family;
    }
    return UVM_NONE;
}

int getUVmTypeFromBuf(char* buffer, unsigned int length)
{
    std::transform(buffer, buffer + length, buffer,
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return GetHypervisorType(buffer);
}

} // namespace SYSINFO_NAMESPACE
