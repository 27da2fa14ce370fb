#include "hostinfo/hotfix_text.h"
#include "hostinfo/text_file.h"
#include "hostinfo/tqclntdb_hostinfo.h"
#include "platform/config.h"
#include "platform/debuglog.h"
#include "platform/status.h"

#include <algorithm>
#include <sstream>

namespace TQCLNTDB {
namespace {

constexpr const char* CONTEXT = "CHostInformation::retrieveHFXsInstalled";
constexpr const char* PACK_SUMMARY = "pack/pack.summary";

/// Highest release number of the releases before this build's own, 9.1.
constexpr std::int32_t LAST_OLDER_RELEASE = 0x090FFFFF;

/// Whether a bundle belongs to this release or a later one; -1 marks a name without a version.
bool isForThisRelease(const std::string& name, std::int32_t release)
{
    if (release == -1)
        return false;
    if (release > LAST_OLDER_RELEASE)
        return true;
    LogLine(LogLevel::progress, CONTEXT)
        << "HFX version [" << name << "] is older than current installed torquenix version, not saving it";
    return false;
}

std::vector<std::string> bundlesIn(std::istream& summary, const CHostInformation& host)
{
    std::vector<std::string> bundles;
    for (std::string line; std::getline(summary, line);) {
        LogLine(LogLevel::progress, CONTEXT) << "Found line: [" << line << "] for parsing HFX string";
        const std::optional<std::string> name = bundleNameOf(line);
        if (!name || !isForThisRelease(*name, host.getHFXsVersion(*name)))
            continue;
        bundles.push_back(*name);
        LogLine(LogLevel::progress, CONTEXT) << "Saved HFX name : [ " << *name << " ]";
    }
    return bundles;
}

} // namespace

int CHostInformation::retrieveHFXsInstalled()
{
    char directory[1024] = {};
    if (const int status = getTQInstallDir(directory, sizeof directory); status != 0) {
        LogLine(LogLevel::error, CONTEXT) << "Retrieval of TQU installed dir failed with error: " << status;
        return status;
    }
    LogLine(LogLevel::progress, CONTEXT) << "Retrieved TQU installed dir [ " << directory << "]";
    const std::string path = std::string(directory) + PACK_SUMMARY;
    LogLine(LogLevel::progress, CONTEXT) << "File path for HFX's retrieval: [ " << path << " ]";

    if (!exists(path.c_str())) {
        LogLine(LogLevel::progress, CONTEXT)
            << "pack.summary file does not exist, considering no HFX's installed on machine";
        return EC_success;
    }
    LogLine(LogLevel::progress, CONTEXT) << "Successfully found pack.summary file";
    std::optional<std::istringstream> summary = openLines(path);
    if (!summary) {
        LogLine(LogLevel::error, CONTEXT) << "Unable to open pack.summary/history.log file";
        return EC_version_file_not_opened;
    }
    storeHFXs(bundlesIn(*summary, *this));
    return EC_success;
}

void CHostInformation::storeHFXs(std::vector<std::string> bundles)
{
    std::sort(bundles.begin(), bundles.end());
    bundles.erase(std::unique(bundles.begin(), bundles.end()), bundles.end());
    if (bundles.empty())
        LogLine(LogLevel::progress, CONTEXT) << "No HFXs found on this host ";
    for (const std::string& name : bundles) {
        installedHFXs.push_back(name);
        LogLine(LogLevel::progress, CONTEXT) << "Stored unique HFX : " << name;
    }
}

std::int32_t CHostInformation::getHFXsVersion(const std::string& name) const
{
    const std::optional<std::string> version = bundleVersionOf(name);
    if (!version)
        return -1;
    LogLine(LogLevel::progress, "CHostInformation::getHFXsVersion")
        << "Retrieved HFX version: [" << *version << "]";
    return releaseNumberOf(*version);
}

} // namespace TQCLNTDB
