/// Rules for the outputs of package managers. Pure; any text gives a value.
#pragma once

#include <optional>
#include <string>

namespace TQCLNTDB {

/// How a line of `rpm -qa` was cut.
struct RpmEntry {
    std::string entry;       ///< name, "_", version
    bool releaseCut = false; ///< whether a second "-" ended it
    bool operator==(const RpmEntry&) const = default;
};

/// Entry of a line "name-version-release.arch": cut at the second "-", the first one made "_". Absent for a
/// line without any "-".
std::optional<RpmEntry> parseRpmLine(const std::string& line);

/// Second word of a line of pkginfo (category, name, description); empty when there is none.
std::string solarisPackageName(const std::string& line);

/// Version on a line of pkginfo -l: the word after one that begins with "VERSION".
std::optional<std::string> solarisPackageVersion(const std::string& line);

/// First of the colon-separated fields of a line of lslpp -Lc, the package name.
std::string aixPackageName(const std::string& line);

/// Third field of such a line, the level; absent when it is empty or missing, and in a comment.
std::optional<std::string> aixPackageVersion(const std::string& line);

/// First word of a line of swlist (product, revision, title); empty for a comment.
std::string hpuxPackageName(const std::string& line);

/// Second word of such a line.
std::optional<std::string> hpuxPackageVersion(const std::string& line);

} // namespace TQCLNTDB
