/// Prints what the readers of release files, processors, memory and hypervisors make of given files.
///
///     sample_readers FILE...
///
/// Each file in turn is what every external command prints that a reader runs: cat, dmidecode, lspci,
/// hostnamectl and curl. One line for each file and reader: the file, the reader, and the value in
/// hexadecimal or "throws" when the reader throws std::out_of_range, separated by tabs.
#include "hostinfo/tqclntdb_hostinfo.h"
#include "sysinfo/hardware_info.h"
#include "sysinfo/vm_info.h"

#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using SYSINFO_NAMESPACE::LinuxHardwareInfo;
using SYSINFO_NAMESPACE::LinuxVmInfo;
using TQCLNTDB::CHostInformation;

/// What stands before the names of the files in a shell line of the command runner.
constexpr std::string_view OUTPUT_TO = " </dev/null >";
constexpr std::string_view ERRORS_TO = " 2>";

/// The file that external commands print now.
std::string sample;

using Reader = std::pair<const char*, std::function<std::string(const std::string& file)>>;

const std::vector<Reader>& readers()
{
    static const CHostInformation host;
    static const LinuxHardwareInfo hardware;
    static const LinuxVmInfo machine;
    using std::to_string;
    static const std::vector<Reader> all = {
        {"displayName", [](const std::string& file) { return host.getOSName(file); }},
        {"versionId", [](const std::string& file) { return host.getOSReleaseVersionFromId(file); }},
        {"releaseWord", [](const std::string& file) { return host.getOSReleaseVersionFromString(file); }},
        {"cpuType", [](const std::string&) { return hardware.getCpuType(); }},
        {"modelName", [](const std::string&) { return hardware.getModelName(); }},
        {"vendorName", [](const std::string&) { return hardware.getVendorName(); }},
        {"sockets", [](const std::string&) { return to_string(hardware.getProcessorSocketCount()); }},
        {"cores", [](const std::string&) { return to_string(hardware.getProcessorCoreCount()); }},
        {"memory", [](const std::string&) { return hardware.getMemoryInfo("MemTotal"); }},
        {"isVm", [](const std::string&) { return to_string(int{machine.getIsVm()}); }},
        {"isVMware", [](const std::string&) { return to_string(int{machine.isVMware()}); }},
        {"dmidecode",
         [](const std::string&) { return to_string(machine.getUVmTypeUsingDmidecodeCommand()); }},
        {"lspci", [](const std::string&) { return to_string(machine.getUVmTypeUsingLspciCommand()); }},
        {"hostnamectl",
         [](const std::string&) { return to_string(machine.getUVmTypeUsingHostnameCtlCommand()); }},
        {"metadata", [](const std::string&) { return to_string(int{machine.isAzureStackVm()}); }},
    };
    return all;
}

std::string hexadecimal(const std::string& text)
{
    std::string digits;
    for (const char c : text) {
        char two[3];
        std::snprintf(two, sizeof two, "%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
        digits += two;
    }
    return digits;
}

std::string valueOf(const Reader& reader, const std::string& file)
{
    try {
        return hexadecimal(reader.second(file));
    } catch (const std::out_of_range&) {
        return "throws";
    }
}

void readAll(const std::string& file)
{
    sample = file;
    for (const Reader& reader : readers())
        std::cout << file << '\t' << reader.first << '\t' << valueOf(reader, file) << '\n';
    std::cout.flush();
}

} // namespace

// The linker's name for a call that is wrapped. No shell is started: thousands of them would take minutes.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" int __wrap_system(const char* command)
{
    const std::string line = command;
    const std::size_t out = line.find(OUTPUT_TO);
    const std::size_t err = line.find(ERRORS_TO);
    if (out == std::string::npos || err == std::string::npos)
        return -1;
    const std::size_t path = out + OUTPUT_TO.size();
    std::ofstream output(line.substr(path, err - path), std::ios::binary);
    if (line.find("which ") < out)
        output << "/usr/sbin/tool\n";
    else
        output << std::ifstream(sample, std::ios::binary).rdbuf();
    return 0;
}
// NOLINTEND(bugprone-reserved-identifier)

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i)
        readAll(argv[i]);
    return 0;
}
