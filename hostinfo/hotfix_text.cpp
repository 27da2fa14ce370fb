#include "hostinfo/hotfix_text.h"

#include <array>
#include <cstdlib>

namespace TQCLNTDB {
namespace {

constexpr const char* BUNDLE_PREFIX = "Torquenix_";
constexpr std::size_t BUNDLE_PREFIX_LENGTH = 10;

using VersionParts = std::array<long, 4>;

/// Numbers as strtol reads them: a sign counts, overflow saturates, no digits give 0.
VersionParts versionParts(const std::string& version)
{
    VersionParts parts{};
    std::size_t start = 0;
    for (long& part : parts) {
        const std::size_t end = version.find_first_of("._", start);
        part = std::strtol(version.substr(start, end - start).c_str(), nullptr, 10);
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
    return parts;
}

} // namespace

std::optional<std::string> bundleNameOf(const std::string& line)
{
    const std::size_t start = line.find(BUNDLE_PREFIX);
    if (start == std::string::npos || line.find("HFX_Torquenix") == std::string::npos ||
        line.find("_SET") == std::string::npos)
        return std::nullopt;
    return line.substr(start, line.find(' ', start) - start);
}

std::optional<std::string> bundleVersionOf(const std::string& name)
{
    const std::string rest = name.substr(BUNDLE_PREFIX_LENGTH);
    const std::size_t end = rest.find("_PET");
    if (end == std::string::npos || end == 0)
        return std::nullopt;
    return rest.substr(0, end);
}

std::int32_t releaseNumberOf(const std::string& version)
{
    const VersionParts parts = versionParts(version);
    const auto bits = [&](std::size_t index) { return static_cast<std::uint64_t>(parts[index]); };
    const std::uint64_t number =
        ((bits(0) & 127) << 24) | ((bits(1) & 15) << 20) | ((bits(2) & 15) << 16) | bits(3);
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(number));
}

} // namespace TQCLNTDB
