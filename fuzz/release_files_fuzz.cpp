/// Release files of distributions.
#include "fuzz/support/described_host.h"
#include "fuzz/support/target.h"
#include "hostinfo/tqclntdb_hostinfo.h"

#include <optional>
#include <stdexcept>

namespace {

using fuzz::require;
using TQCLNTDB::CHostInformation;

constexpr const char* PATH = "/etc/os-release";

/// Whether some line's first key stands right at its end: such a file ends the command, deliberately.
bool endsAtKey(std::string_view text, std::string_view key)
{
    for (fuzz::Parts lines(text, '\n'); !lines.isAtEnd();) {
        const std::string_view line = lines.next();
        const std::size_t found = line.find(key);
        if (found != std::string_view::npos && found + key.size() == line.size())
            return true;
    }
    return false;
}

using Reader = std::string (CHostInformation::*)(const std::string&) const;

std::optional<std::string> read(Reader reader, std::string_view text, std::string_view key)
{
    const CHostInformation host;
    try {
        std::string value = (host.*reader)(PATH);
        require(value.size() <= std::max(text.size(), std::string_view("Unknown").size()) &&
                    value.find('\n') == std::string::npos,
                "a value is a piece of a line", value);
        return value;
    } catch (const std::out_of_range&) {
        require(endsAtKey(text, key), "only a line that ends at its key throws", text);
        return std::nullopt;
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text = fuzz::textOf(data, size);
    fuzz::host() = fuzz::DescribedHost();
    fuzz::host().files[PATH] = text;
    read(&CHostInformation::getOSName, text, "PRETTY_NAME");
    const auto release = read(&CHostInformation::getOSReleaseVersionFromId, text, "VERSION_ID");
    require(release.has_value() == !endsAtKey(text, "VERSION_ID"), "a line that ends at its key throws",
            text);
    const auto word = read(&CHostInformation::getOSReleaseVersionFromString, text, "release");
    require(!word || word->find(' ') == std::string::npos, "a release word holds no blank", text);
    return 0;
}
