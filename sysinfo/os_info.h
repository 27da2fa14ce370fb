/// Name and version of this host's operating system.
#pragma once

#include <string>

namespace SYSINFO_NAMESPACE {

/// Product name for uname's system name: "MacOSX" for "Darwin", any other as it is.
std::string osNameFrom(const std::string& systemName);

/// Product version for uname's system name and release: the release as it is, except on Darwin, whose kernel
/// 19.6.0 belongs to 10.15.6.
std::string osVersionFrom(const std::string& systemName, const std::string& release);

/// Every call asks uname afresh and logs its result. A text that cannot be found is NULL_MARKER.
class UnixOsInfo {
public:
    std::string getOsName() const;
    std::string getOsVersion() const;
};

} // namespace SYSINFO_NAMESPACE
