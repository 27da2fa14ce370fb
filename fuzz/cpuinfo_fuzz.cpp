/// /proc/cpuinfo.
#include "fuzz/support/described_host.h"
#include "fuzz/support/target.h"
#include "sysinfo/cpu_info.h"
#include "sysinfo/hardware_info.h"
#include "sysinfo/vm_info.h"

#include <algorithm>

namespace {

using fuzz::require;

void checkText(const std::string& value, const char* property)
{
    require(!value.empty() && value.find_first_of("\n\r\f") == std::string::npos, property, value);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::describeEveryOutput(fuzz::textOf(data, size));
    const SYSINFO_NAMESPACE::LinuxHardwareInfo hardware;
    const std::string type = hardware.getCpuType();
    checkText(type, "the processor's type is one line");
    require(type.size() <= 1024, "the processor's type is cut", type);
    require(hardware.getModelName().find_first_of("\n\r\f") == std::string::npos, "a model is of one line");
    checkText(hardware.getVendorName(), "a vendor is one line");

    constexpr long MOST_SOCKETS = 32;
    constexpr long MOST_CORES = MOST_SOCKETS * 16;
    const auto lines =
        static_cast<long>(std::count(data, data + size, '\n')) + static_cast<long>(size / 2047) + 1;
    const long sockets = hardware.getProcessorSocketCount();
    const long cores = hardware.getProcessorCoreCount();
    require(sockets >= 0 && sockets <= std::max(MOST_SOCKETS, lines), "sockets are counted");
    require(cores >= 0 && cores <= std::max(MOST_CORES, lines), "cores are counted");
    SYSINFO_NAMESPACE::LinuxVmInfo().getIsVm();
    return 0;
}
