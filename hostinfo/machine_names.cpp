#include "hostinfo/machine_names.h"

#include "sysinfo/hypervisor_keywords.h"

#include <array>

namespace TQCLNTDB {
namespace {

/// By the codes of SYSINFO_NAMESPACE::UVmType, from 1 on.
constexpr std::array HYPERVISOR_NAMES{
    "VMWARE", "HYPERV", "KQVI", "ELASTIC_HV", "RHV", "NUTANIX_AHV", "AZURE_STACK", "OPEN_STACK",
};
static_assert(HYPERVISOR_NAMES.size() == SYSINFO_NAMESPACE::UVM_OPENSTACK, "the last code has a name");

} // namespace

const char* hypervisorName(std::int64_t code)
{
    if (code < 1 || code > static_cast<std::int64_t>(HYPERVISOR_NAMES.size()))
        return "NONE";
    return HYPERVISOR_NAMES[static_cast<std::size_t>(code - 1)];
}

const char* machineTypeName(std::int64_t code)
{
    switch (code) {
    case 0:
        return "PHYSICAL";
    case 1:
        return "VIRTUAL";
    default:
        return "UNKNOWN";
    }
}

} // namespace TQCLNTDB
