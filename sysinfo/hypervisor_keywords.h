/// Keywords by which the output of system tools names a hypervisor family.
#pragma once

#include <map>
#include <string>

namespace SYSINFO_NAMESPACE {

/// Hypervisor families. 3 and 4 belong to the product family's own platforms, which no probe here detects.
enum UVmType : int {
    UVM_NONE = 0,
    UVM_VMWARE = 1,
    UVM_HYPERV = 2,
    UVM_KQVI = 3,
    UVM_ELASTIC_HV = 4,
    UVM_RED_HAT = 5,
    UVM_NUTANIX = 6,
    UVM_AZURE_STACK = 7,
    UVM_OPENSTACK = 8,
};

/// Keyword to hypervisor family, empty until the first classification. It is searched in ascending byte order
/// and the first keyword found decides, so "openstack" beats "red hat".
extern std::map<std::string, int> hypervisorType;

/// Fills the table.
void MapHypervisorType();

/// Family of the first keyword that occurs anywhere in a lower-case text; 0 when none does.
int GetHypervisorType(const char* text);

/// Lowers all `length` bytes of a buffer in place, also those beyond its text's end, and classifies the text.
int getUVmTypeFromBuf(char* buffer, unsigned int length);

} // namespace SYSINFO_NAMESPACE
