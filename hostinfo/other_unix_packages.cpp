// Package listings of the Unix systems whose hosts are described by builds of their own.
#include "hostinfo/package_query.h"
#include "hostinfo/package_text.h"
#include "hostinfo/tqclntdb_hostinfo.h"
#include "platform/debuglog.h"
#include "platform/shell_word.h"
#include "platform/status.h"

#include <sstream>

namespace TQCLNTDB {
namespace {

/// How one system lists its packages: a command that names them, and one for each that tells its version.
struct PackageLister {
    const char* context;
    const char* listCommand;
    const char* detailsBefore; ///< the command's text before the package name; " 2>&1" follows it
    std::string (*nameOf)(const std::string& line);
    std::optional<std::string> (*versionOf)(const std::string& line);
    bool namesPackageWithoutVersion; ///< whether the complaint about a missing version names the package
};

int listNames(const PackageLister& lister, std::vector<std::string>& names)
{
    std::string output;
    if (const int status = captureList(lister.context, lister.listCommand, output); status != 0)
        return status;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        const std::string name = lister.nameOf(line);
        if (name.empty()) {
            LogLine(LogLevel::error, lister.context) << "Package name is empty.";
            continue;
        }
        LogLine(LogLevel::progress, lister.context) << "Read package name: [" << name << "]";
        if (tq::isPlainShellWord(name))
            names.push_back(name);
        else
            LogLine(LogLevel::error, lister.context)
                << "Package name cannot stand in a command: [" << name << "]";
    }
    return EC_success;
}

std::optional<std::string> versionIn(const PackageLister& lister, const std::string& details)
{
    std::istringstream lines(details);
    for (std::string line; std::getline(lines, line);) {
        if (std::optional<std::string> version = lister.versionOf(line)) {
            LogLine(LogLevel::progress, lister.context) << "Found package version in line: [" << line << "]";
            return version;
        }
    }
    return std::nullopt;
}

void logMissingVersion(const PackageLister& lister, const std::string& name)
{
    if (lister.namesPackageWithoutVersion)
        LogLine(LogLevel::error, lister.context)
            << "No package version line found in package details for package: [" << name << "]";
    else
        LogLine(LogLevel::error, lister.context) << "Could not determine package version. Not adding package";
}

int addPackage(const PackageLister& lister, const std::string& name, std::vector<std::string>& packages)
{
    const std::string command = lister.detailsBefore + name + " 2>&1";
    LogLine(LogLevel::progress, lister.context)
        << "Executing command to get package details: [" << command << "]";
    std::string details;
    const FailureText failure{
        "The command to list the package details for [" + name + "] failed with status [", "]"};
    if (const int status = capture(lister.context, command, failure, details); status != 0)
        return status;
    const std::optional<std::string> version = versionIn(lister, details);
    if (!version) {
        logMissingVersion(lister, name);
        return EC_success;
    }
    LogLine(LogLevel::progress, lister.context)
        << "Adding installed package name: [" << name << "]; and version: [" << *version << "]";
    packages.push_back(name + "_" + *version);
    return EC_success;
}

int listPackages(const PackageLister& lister, std::vector<std::string>& packages)
{
    std::vector<std::string> names;
    if (const int status = listNames(lister, names); status != 0)
        return status;
    for (const std::string& name : names) {
        if (const int status = addPackage(lister, name, packages); status != 0)
            return status;
    }
    return EC_success;
}

} // namespace

int CHostInformation::retrieveInstalledPackagesSolaris()
{
    return listPackages({"CHostInformation::retrieveInstalledPackagesSolaris", "pkginfo | grep \"XRVN\" 2>&1",
                         "pkginfo -l ", solarisPackageName, solarisPackageVersion, true},
                        installedPackages);
}

int CHostInformation::retrieveInstalledPackagesAixHP()
{
#ifdef _AIX
    return retrieveInstalledPackagesAixHP(OtherUnix::aix);
#else
    return retrieveInstalledPackagesAixHP(OtherUnix::hpux);
#endif
}

int CHostInformation::retrieveInstalledPackagesAixHP(OtherUnix system)
{
    constexpr const char* CONTEXT = "CHostInformation::retrieveInstalledPackagesAixHP";
    const PackageLister aix{
        CONTEXT, "lslpp -Lc | grep \"XRVN\" 2>&1", "lslpp -Lc ", aixPackageName, aixPackageVersion, false};
    const PackageLister hpux{CONTEXT,
                             "swlist -l product | grep \"XRVN\" 2>&1",
                             "swlist -l product ",
                             hpuxPackageName,
                             hpuxPackageVersion,
                             false};
    return listPackages(system == OtherUnix::aix ? aix : hpux, installedPackages);
}

} // namespace TQCLNTDB
