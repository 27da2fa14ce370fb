#include "sysinfo/os_info.h"

#include "platform/portable.h"
#include "sysinfo/log_message.h"
#include "sysinfo/system_info.h"

#include <ace/OS_NS_sys_utsname.h>

namespace SYSINFO_NAMESPACE {
namespace {

constexpr const char* DARWIN = "Darwin";

} // namespace

std::string osNameFrom(const std::string& systemName)
{
    return systemName == DARWIN ? "MacOSX" : systemName;
}

std::string osVersionFrom(const std::string& systemName, const std::string& release)
{
    if (systemName != DARWIN)
        return release;
    int major = 10;
    int minor = 8;
    int patch = 0;
    V_sscanf(release.c_str(), "%d.%d.%d", &major, &minor, &patch);
    // The kernel runs four ahead of the product, and the kernel's minor is the product's patch.
    char version[64];
    V_snprintf(version, sizeof version, "%d.%lld.%d", 10, major - 4LL, minor);
    return version;
}

std::string UnixOsInfo::getOsName() const
{
    constexpr const char* CONTEXT = "UnixOsInfo::getOsName";
    ACE_utsname names{};
    if (ACE_OS::uname(&names) == -1) {
        logMessage(LogLevel::progress, CONTEXT, "ACE_utsname failed");
        return NULL_MARKER;
    }
    std::string name = osNameFrom(names.sysname);
    logMessage(LogLevel::progress, CONTEXT, "osName: %s", name.c_str());
    return name;
}

std::string UnixOsInfo::getOsVersion() const
{
    constexpr const char* CONTEXT = "UnixOsInfo::getOsVersion";
    ACE_utsname names{};
    if (ACE_OS::uname(&names) == -1) {
        logMessage(LogLevel::progress, CONTEXT, "ACE_utsname failed");
        return NULL_MARKER;
    }
    std::string version = osVersionFrom(names.sysname, names.release);
    logMessage(LogLevel::progress, CONTEXT, "osVersion: %s", version.c_str());
    return version;
}

} // namespace SYSINFO_NAMESPACE
