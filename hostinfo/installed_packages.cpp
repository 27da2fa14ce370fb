#include "hostinfo/package_query.h"
#include "hostinfo/package_text.h"
#include "hostinfo/text_file.h"
#include "hostinfo/tqclntdb_hostinfo.h"
#include "platform/debuglog.h"
#include "platform/paths.h"
#include "platform/portable.h"
#include "platform/status.h"
#include "utils/tqclntdb_utils.h"
#include "utils/tqclntdb_utils_real.h"

#include <sstream>

namespace TQCLNTDB {
namespace {

constexpr const char* CONTEXT = "CHostInformation::retrieveInstalledPackagesLinux";

/// Longest list that is sent, joined with commas.
constexpr std::size_t MAX_LIST_LENGTH = 2048;

/// Parts that ship with this release under versions of their own; no package manager knows them.
constexpr const char* DEDUPLICATION_AGENT_VERSION = "15.0.2";
constexpr const char* SERVICE_BROKER_VERSION = "1.15.1.0";

constexpr int VERSION_COMPONENTS = 4;

/// Entry of one line of the query, with the log's account of how it was cut.
std::optional<std::string> entryOfLine(const std::string& line)
{
    LogLine(LogLevel::progress, CONTEXT) << "Current line of command output: [" << line << "]";
    const std::optional<RpmEntry> parsed = parseRpmLine(line);
    if (!parsed) {
        LogLine(LogLevel::error, CONTEXT) << "No version delimiter found in the current line.";
        return std::nullopt;
    }
    if (!parsed->releaseCut)
        LogLine(LogLevel::progress, CONTEXT) << "Second delimiter not found in the current line.";
    LogLine(LogLevel::progress, CONTEXT) << "Adding installed package: [" << parsed->entry << "]";
    return parsed->entry;
}

} // namespace

void CHostInformation::listDebianPackages()
{
    const std::string version = tqclntdb_utils::getInstalledPackagesVersionNumberStr(VERSION_COMPONENTS);
    const auto add = [this](const std::string& package, const std::string& packageVersion) {
        installedPackages.push_back(package + "_" + packageVersion);
    };
    add("XRVNddagt", DEDUPLICATION_AGENT_VERSION);
    add("XRVNtqclt", version);
    add("XRVNbrk", SERVICE_BROKER_VERSION);
    add("XRVNtqcfg", version);
    add("XRVNtqpck", version);
    // The two messages name each other's directory; support staff search for them as they are.
    if (exists(TQ_JAVA_BINARY)) {
        LogLine(LogLevel::progress, CONTEXT) << "Torquenix Java directory found on the host.";
        add("XRVNtqjre", version);
    }
    if (exists(TQ_JAVA_ARCHIVE)) {
        LogLine(LogLevel::progress, CONTEXT) << "Torquenix JRE directory found on the host.";
        add("XRVNtqjava", version);
    }
}

int CHostInformation::listRpmPackages()
{
    char command[tqclntdb_utils::MAX_COMMAND_LENGTH];
    V_snprintf(command, sizeof command, "rpm -qa %s 2>&1", "XRVN*");
    std::string output;
    if (const int status = captureList(CONTEXT, command, output); status != 0)
        return status;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        if (std::optional<std::string> entry = entryOfLine(line))
            installedPackages.push_back(std::move(*entry));
    }
    return EC_success;
}

int CHostInformation::retrieveInstalledPackagesLinux()
{
    if (!T::isDebianUbuntu())
        return listRpmPackages();
    listDebianPackages();
    return EC_success;
}

int CHostInformation::retrieveInstalledPackages()
{
    const int status = retrieveInstalledPackagesLinux();
    if (SeparateStringValuesByTok(installedPackages, ",").size() <= MAX_LIST_LENGTH)
        return status;
    LogLine(LogLevel::error, "CHostInformation::retrieveInstalledPackages")
        << "Installed packages value exceeds the max allowed length of " << MAX_LIST_LENGTH
        << ". Setting to empty value.";
    installedPackages.clear();
    return EC_package_list_too_long;
}

} // namespace TQCLNTDB
