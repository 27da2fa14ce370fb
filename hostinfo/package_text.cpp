#include "hostinfo/package_text.h"

#include "hostinfo/tqclntdb_hostinfo.h"

#include <sstream>

namespace TQCLNTDB {
namespace {

/// The first two words of a line; those that are missing are empty.
std::pair<std::string, std::string> firstTwoWords(const std::string& line)
{
    std::istringstream words(line);
    std::string first;
    std::string second;
    words >> first >> second;
    return {first, second};
}

bool isComment(const std::string& line)
{
    return line.rfind('#', 0) == 0;
}

std::optional<std::string> unlessEmpty(std::string text)
{
    if (text.empty())
        return std::nullopt;
    return text;
}

} // namespace

std::optional<RpmEntry> parseRpmLine(const std::string& line)
{
    const std::size_t first = line.find('-');
    if (first == std::string::npos)
        return std::nullopt;
    const std::size_t second = line.find('-', first + 1);
    RpmEntry parsed{line.substr(0, second), second != std::string::npos};
    parsed.entry[first] = '_';
    return parsed;
}

std::string solarisPackageName(const std::string& line)
{
    return firstTwoWords(line).second;
}

std::optional<std::string> solarisPackageVersion(const std::string& line)
{
    auto [key, version] = firstTwoWords(line);
    return key.rfind("VERSION", 0) == 0 ? unlessEmpty(std::move(version)) : std::nullopt;
}

std::string aixPackageName(const std::string& line)
{
    return CHostInformation::stringToVector(line, ':').front();
}

std::optional<std::string> aixPackageVersion(const std::string& line)
{
    constexpr std::size_t LEVEL_FIELD = 2;
    const std::vector<std::string> fields = CHostInformation::stringToVector(line, ':');
    if (isComment(line) || fields.size() <= LEVEL_FIELD)
        return std::nullopt;
    return unlessEmpty(fields[LEVEL_FIELD]);
}

std::string hpuxPackageName(const std::string& line)
{
    return isComment(line) ? "" : firstTwoWords(line).first;
}

std::optional<std::string> hpuxPackageVersion(const std::string& line)
{
    return hpuxPackageName(line).empty() ? std::nullopt : unlessEmpty(firstTwoWords(line).second);
}

} // namespace TQCLNTDB
