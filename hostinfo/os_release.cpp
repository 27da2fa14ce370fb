#include "hostinfo/os_release.h"

#include "hostinfo/text_file.h"
#include "hostinfo/tqclntdb_hostinfo.h"
#include "platform/debuglog.h"

#include <algorithm>
#include <sstream>

namespace TQCLNTDB {
namespace {

constexpr const char* QUOTES_AND_BLANKS = "\" ";

/// Length of a dot and a build number of four digits.
constexpr std::size_t BUILD_NUMBER_LENGTH = 5;

/// Text of a line from one character after a key; nothing for a line without it.
std::optional<std::string> textAfter(const std::string& key, const std::string& line)
{
    const std::size_t found = line.find(key);
    if (found == std::string::npos)
        return std::nullopt;
    return line.substr(found + key.size() + 1);
}

/// Release of the last line that the parser finds one in; "Unknown" when there is none.
std::string lastRelease(const CHostInformation& host, const std::string& path, const char* context,
                        const char* purpose, std::optional<std::string> (*parse)(const std::string&))
{
    std::string release = "Unknown";
    std::optional<std::istringstream> lines = openLines(path);
    if (!lines) {
        LogLine(LogLevel::error, context) << "Unable to open version file: " << path;
        return release;
    }
    for (std::string line; std::getline(*lines, line);) {
        LogLine(LogLevel::progress, context) << "Found line: [" << line << "] for parsing " << purpose;
        if (const std::optional<std::string> version = parse(line)) {
            release = host.getOSReleaseVersionWithoutBuildNo(*version);
            LogLine(LogLevel::progress, context) << "OS Release version [" << release << "]";
        }
    }
    return release;
}

} // namespace

std::optional<std::string> parseDisplayName(const std::string& line)
{
    const std::optional<std::string> value = textAfter("PRETTY_NAME", line);
    return value ? std::optional(CHostInformation::trimLR(*value, QUOTES_AND_BLANKS)) : std::nullopt;
}

std::optional<std::string> parseVersionId(const std::string& line)
{
    const std::optional<std::string> value = textAfter("VERSION_ID", line);
    return value ? std::optional(CHostInformation::trimLR(*value, QUOTES_AND_BLANKS)) : std::nullopt;
}

std::optional<std::string> parseReleaseWord(const std::string& line)
{
    if (line.find(' ') == std::string::npos)
        return std::nullopt;
    const std::optional<std::string> value = textAfter("release", line);
    return value ? std::optional(value->substr(0, value->find(' '))) : std::nullopt;
}

std::optional<std::string> cutBuildNumber(const std::string& version)
{
    if (std::count(version.begin(), version.end(), '.') < 2)
        return std::nullopt;
    return version.substr(0, version.size() - std::min(version.size(), BUILD_NUMBER_LENGTH));
}

std::string CHostInformation::getOSName(const std::string& path) const
{
    constexpr const char* CONTEXT = "CHostInformation::getOSName";
    std::optional<std::istringstream> lines = openLines(path);
    if (!lines) {
        LogLine(LogLevel::progress, CONTEXT) << "Unable to open file: " << path;
        return "";
    }
    for (std::string line; std::getline(*lines, line);) {
        if (const std::optional<std::string> name = parseDisplayName(line)) {
            LogLine(LogLevel::progress, CONTEXT) << "OS Name [" << *name << "]";
            return *name;
        }
    }
    return "";
}

std::string CHostInformation::getOSReleaseVersionFromId(const std::string& path) const
{
    return lastRelease(*this, path, "CHostInformation::getOSReleaseVersionFromId", "Version Id string",
                       parseVersionId);
}

std::string CHostInformation::getOSReleaseVersionFromString(const std::string& path) const
{
    return lastRelease(*this, path, "CHostInformation::getOSReleaseVersionFromString", "release version",
                       parseReleaseWord);
}

std::string CHostInformation::getOSReleaseVersionWithoutBuildNo(const std::string& version) const
{
    constexpr const char* CONTEXT = "CHostInformation::getOSReleaseVersionWithoutBuildNo";
    LogLine(LogLevel::progress, CONTEXT) << "Found line: [" << version << "] for parsing release version";
    const std::optional<std::string> shortened = cutBuildNumber(version);
    if (!shortened)
        return version;
    LogLine(LogLevel::progress, CONTEXT) << "OS Release version [" << *shortened << "]";
    return *shortened;
}

} // namespace TQCLNTDB
