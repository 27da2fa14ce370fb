#include "hostinfo/tqclntdb_hostinfo.h"
#include "platform/debuglog.h"

namespace TQCLNTDB {
namespace {

const std::string& shown(const std::string& value)
{
    return value;
}

std::string shown(const std::vector<std::string>& list)
{
    return CHostInformation::vectorToString(list);
}

int shown(bool value)
{
    return value ? 1 : 0;
}

/// Whether both values are equal; a difference is logged.
template <typename Value>
bool same(const char* label, const Value& left, const Value& right, const char* ending,
          const char* joiner = " and ")
{
    if (left == right)
        return true;
    LogLine(LogLevel::progress, "CHostInformation::operator==")
        << label << shown(left) << joiner << shown(right) << ending << '\n';
    return false;
}

} // namespace

// The endings differ on purpose: support staff search the log for these lines as they have always been.
bool CHostInformation::operator==(const CHostInformation& other) const
{
    if (this == &other)
        return true;
    return same("Installed HFX ", installedHFXs, other.installedHFXs, " mismatched ") &&
           same("Installed packages ", installedPackages, other.installedPackages, " mismatched ") &&
           same("KqUpdate platform ", kqUpdatePlatform, other.kqUpdatePlatform, " mismatched ") &&
           same("UUID ", hostId, other.hostId, " mismatched.") &&
           same("host name ", hostName, other.hostName, " mismatched.") &&
           same("master server ", masterServer, other.masterServer, " mismatched.") &&
           same("OS type ", osType, other.osType, " mismatched ") &&
           same("OS version ", osVersion, other.osVersion, " mismatched ") &&
           same("Hardware description ", hwDescription, other.hwDescription, " mismatched ") &&
           same("CPU architecture ", cpuArchitecture, other.cpuArchitecture, " mismatched ") &&
           same("TQU version ", tquVersion, other.tquVersion, " mismatched ") &&
           same("Servers ", servers, other.servers, " mismatched ") &&
           // clusterSharedNames would stand here. A difference in it is no difference of the records, and
           // its line ("Shared Names " ... "and " ... " mismatched ") never reaches the log, on purpose.
           same("isSecureEnabled [", isSecureEnabled, other.isSecureEnabled, "] mismatched ", "] and [") &&
           same("Trust version ", trustVersion, other.trustVersion, " mismatched.") &&
           same("machineType ", machineType, other.machineType, " mismatched ") &&
           same("hypervisorType ", hypervisorType, other.hypervisorType, " mismatched ") &&
           same("machineTquType ", machineTquType, other.machineTquType, " mismatched.");
}

} // namespace TQCLNTDB
