/// Outputs of dmidecode, lspci, hostnamectl and curl, and of the `which` before each. The parts of an input
/// are the outputs in the order of the commands.
#include "fuzz/support/described_host.h"
#include "fuzz/support/target.h"
#include "sysinfo/vm_info.h"

namespace {

using SYSINFO_NAMESPACE::LinuxVmInfo;

bool isDetectedFamily(int family)
{
    using namespace SYSINFO_NAMESPACE;
    return family >= UVM_NONE && family <= UVM_OPENSTACK && family != UVM_KQVI && family != UVM_ELASTIC_HV;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text = fuzz::textOf(data, size);
    const LinuxVmInfo machine;
    fuzz::describeOutputs(text);
    fuzz::require(isDetectedFamily(machine.getUVmType()), "a family that can be detected");
    // Not getVmType(): it asks the hardware where lspci names VMware.
    fuzz::describeOutputs(text);
    machine.isVMware();
    machine.getIsVm();
    machine.isAzureStackVm();
    return 0;
}
