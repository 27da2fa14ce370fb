/// /proc/meminfo.
#include "fuzz/support/described_host.h"
#include "fuzz/support/target.h"
#include "sysinfo/hardware_info.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::describeEveryOutput(fuzz::textOf(data, size));
    const SYSINFO_NAMESPACE::LinuxHardwareInfo hardware;
    for (const char* key : {"MemTotal", "SwapFree", ""}) {
        const std::string value = hardware.getMemoryInfo(key);
        fuzz::require(value.size() < 2048 && value.find_first_of("\n\r\f") == std::string::npos &&
                          value.rfind(' ', 0) != 0,
                      "a value is a piece of a line without leading blanks", value);
    }
    hardware.getTotalMemory();
    return 0;
}
