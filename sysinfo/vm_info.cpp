#include "sysinfo/vm_info.h"

#include "platform/net.h"
#include "sysinfo/host_info.h"
#include "sysinfo/log_message.h"
#include "sysinfo/system_cmd.h"
#include "sysinfo/system_info.h"
#include "sysinfo/vmware_port.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <optional>

namespace SYSINFO_NAMESPACE {

namespace {

constexpr const char* METADATA_ENDPOINT = "http://169.254.169.254/Microsoft.Compute/identity";
constexpr long VMWARE_PRODUCT_UNKNOWN = 7;

/// Zeroed, since classification lowers the whole buffer, not only its text.
using LineBuffer = std::array<char, 2048>;

bool nextLine(SystemCmd& command, LineBuffer& line)
{
    return command.GetStdOutLine(line.data(), static_cast<int>(line.size())) != nullptr;
}

bool contains(const LineBuffer& line, const char* word)
{
    return std::strstr(line.data(), word) != nullptr;
}

void lower(LineBuffer& line)
{
    char* end = line.data() + std::strlen(line.data());
    std::transform(line.data(), end, line.data(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
}

int classify(LineBuffer& line)
{
    return getUVmTypeFromBuf(line.data(), static_cast<unsigned>(line.size()));
}

/// Path of a tool by the shell's `which`: its first line less the line end, whatever the exit status says,
/// since some print the path and then fail on the option. Absent, with the complaint logged, when nothing was
/// printed.
std::optional<std::string> locateTool(const char* whichTool, const char* complaint, const char* function)
{
    SystemCmd command(whichTool, "-a", true);
    command.Execute(nullptr);
    LineBuffer line{};
    if (!nextLine(command, line)) {
        logMessage(LogLevel::progress, function, "%s", complaint);
        return std::nullopt;
    }
    std::string path = line.data();
    if (!path.empty())
        path.pop_back();
    return path;
}

/// Whether a command succeeds and one of its lines, lowered, holds a word.
bool lowerOutputContains(const char* program, const char* word, const char* complaint, const char* function)
{
    SystemCmd command(program, "-vvv", true);
    command.Execute(nullptr);
    if (command.status() != 0) {
        logMessage(LogLevel::progress, function, "%s", complaint);
        return false;
    }
    LineBuffer line{};
    while (nextLine(command, line)) {
        lower(line);
        if (contains(line, word))
            return true;
    }
    return false;
}

/// First family that a tool's lines name, of all lines or of those that hold a word.
int firstFamily(const std::string& tool, const char* onlyWith, const char* complaint, const char* function)
{
    SystemCmd command(tool.c_str(), "", false);
    command.Execute(nullptr);
    if (command.status() != 0) {
        logMessage(LogLevel::progress, function, "%s", complaint);
        return UVM_NONE;
    }
    LineBuffer line{};
    int family = UVM_NONE;
    while (family == UVM_NONE && nextLine(command, line)) {
        if (!onlyWith || contains(line, onlyWith))
            family = classify(line);
    }
    return family;
}

int logFamily(int family, const char* function)
{
    logMessage(LogLevel::progress, function, "uvmType: %d", family);
    return family;
}

/// The product name decides where the manufacturer is Red Hat, who build OpenStack and KVM products alike.
int familyOfProductName(const std::string& dmidecode, const char* function)
{
    logMessage(
        LogLevel::progress, function,
        "Red Hat string found as the manufacturer value in the output of the dmidecode, which conflicts "
        "with other hypervisor types, so finding product name instead..");
    SystemCmd command(dmidecode.c_str(), "-s system-product-name", false);
    command.Execute(nullptr);
    if (command.status() != 0) {
        logMessage(LogLevel::progress, function, "dmidecode product name command failed");
        return UVM_NONE;
    }
    LineBuffer line{};
    return nextLine(command, line) ? classify(line) : UVM_NONE;
}

} // namespace

bool LinuxVmInfo::getIsVm() const
{
    constexpr const char* FUNCTION = "LinuxVmInfo::getIsVm";
    const bool isVm = lowerOutputContains("cat /proc/cpuinfo", "hypervisor", "cat command failed", FUNCTION);
    logMessage(LogLevel::progress, FUNCTION, "isVm: %d", isVm);
    return isVm;
}

bool LinuxVmInfo::isVMware() const
{
    constexpr const char* FUNCTION = "LinuxVmInfo::isVMware";
    const bool isVMware = lowerOutputContains("/sbin/lspci", "vmware", "lspci command failed", FUNCTION);
    logMessage(LogLevel::progress, FUNCTION, "isVMware: %d", isVMware);
    return isVMware;
}

long vmwareProductCode(std::optional<std::uint32_t> product)
{
    switch (product.value_or(0)) {
    case 2:
        return 0;
    case 3:
        return 1;
    case 4:
        return 2;
    default:
        return VMWARE_PRODUCT_UNKNOWN;
    }
}

long LinuxVmInfo::getVMwareType() const
{
    const long vmType = vmwareProductCode(readVMwareProduct());
    logMessage(LogLevel::progress, "LinuxVmInfo::getVMwareType", "vmType: %ld", vmType);
    return vmType;
}

long LinuxVmInfo::getVmType() const
{
    const long vmType = isVMware() ? getVMwareType() : VMWARE_PRODUCT_UNKNOWN;
    logMessage(LogLevel::progress, "LinuxVmInfo::getVmType", "vmType: %ld", vmType);
    return vmType;
}

std::string LinuxVmInfo::getVmID() const
{
    std::string vmId = isVMware() ? hostIdText(knet_gethostid()) : NULL_MARKER;
    logMessage(LogLevel::progress, "LinuxVmInfo::getVmID", "vmId: %s", vmId.c_str());
    return vmId;
}

int LinuxVmInfo::getUVmTypeUsingDmidecodeCommand() const
{
    constexpr const char* FUNCTION = "LinuxVmInfo::getUVmTypeUsingDmidecodeCommand";
    // "dmideocde": support staff search for the text as it is.
    const std::optional<std::string> dmidecode =
        locateTool("which dmidecode", "Failed to find location of dmideocde binary.", FUNCTION);
    if (!dmidecode)
        return logFamily(UVM_NONE, FUNCTION);
    SystemCmd command(dmidecode->c_str(), "-s system-manufacturer ", false);
    command.Execute(nullptr);
    if (command.status() != 0) {
        logMessage(LogLevel::progress, FUNCTION, "dmidecode system-manufacturer failed.");
        return UVM_NONE;
    }
    LineBuffer line{};
    if (!nextLine(command, line)) {
        logMessage(LogLevel::progress, FUNCTION, "dmidecode command output buffer is empty.");
        return UVM_NONE;
    }
    return logFamily(contains(line, "Red Hat") ? familyOfProductName(*dmidecode, FUNCTION) : classify(line),
                     FUNCTION);
}

int LinuxVmInfo::getUVmTypeUsingLspciCommand() const
{
    constexpr const char* FUNCTION = "LinuxVmInfo::getUVmTypeUsingLspciCommand";
    const std::optional<std::string> lspci =
        locateTool("which lspci", "Failed to find location of lspci binary.", FUNCTION);
    return logFamily(lspci ? firstFamily(*lspci, nullptr, "lspci command failed", FUNCTION) : UVM_NONE,
                     FUNCTION);
}

int LinuxVmInfo::getUVmTypeUsingHostnameCtlCommand() const
{
    constexpr const char* FUNCTION = "LinuxVmInfo::getUVmTypeUsingHostnameCtlCommand";
    const std::optional<std::string> hostnamectl =
        locateTool("which hostnamectl", "Failed to find location of hostnamectl binary.", FUNCTION);
    return logFamily(hostnamectl
                         ? firstFamily(*hostnamectl, "Virtualization", "hostnamectl command failed", FUNCTION)
                         : UVM_NONE,
                     FUNCTION);
}

bool LinuxVmInfo::isAzureStackVm() const
{
    constexpr const char* FUNCTION = "LinuxVmInfo::isAzureStackVm";
    SystemCmd command("curl", METADATA_ENDPOINT, true);
    command.Execute(nullptr);
    bool isAzureStack = false;
    if (command.status() != 0)
        logMessage(LogLevel::progress, FUNCTION, "curl command failed");
    for (LineBuffer line{}; command.status() == 0 && !isAzureStack && nextLine(command, line);)
        isAzureStack = contains(line, "subscriptionId");
    if (isAzureStack)
        logMessage(LogLevel::progress, FUNCTION, "subscriptionId found in the output.");
    logMessage(LogLevel::progress, FUNCTION, "isAzureStackVm: %d", isAzureStack);
    return isAzureStack;
}

int LinuxVmInfo::getUVmType() const
{
    constexpr const char* FUNCTION = "LinuxVmInfo::getUVmType";
    int family = getUVmTypeUsingDmidecodeCommand();
    if (family == UVM_NONE) {
        logMessage(LogLevel::progress, FUNCTION,
                   "Failed to get UVMType using dmidecode command, trying with lspci command.");
        family = getUVmTypeUsingLspciCommand();
    }
    if (family == UVM_NONE) {
        logMessage(LogLevel::progress, FUNCTION,
                   "Failed to get UVMType using lspci command, trying with hostnamectl command.");
        family = getUVmTypeUsingHostnameCtlCommand();
    }
    return family == UVM_HYPERV && isAzureStackVm() ? UVM_AZURE_STACK : family;
}

} // namespace SYSINFO_NAMESPACE
