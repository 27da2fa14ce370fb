/// Version files: the parts of an input are the text of the binary directory's and that of the server's.
#include "fuzz/support/described_host.h"
#include "fuzz/support/target.h"
#include "platform/paths.h"
#include "utils/tqclntdb_utils.h"

#include <fstream>

namespace {

using fuzz::require;

constexpr int PARTS = 4;

/// A version's number has up to seven digits, and a sign where a component is beyond 31 bits.
bool isVersionNumber(int number)
{
    constexpr int HIGHEST = 9'999'999;
    return number >= -HIGHEST && number <= HIGHEST;
}

void checkPadded(const std::string& text)
{
    const std::string padded = tqclntdb_utils::padTorquenixVersionNumberStr(text.c_str(), PARTS);
    require(padded.find_first_not_of("0123456789.") == std::string::npos, "a padded number is dotted",
            padded);
    require(padded.empty() || tqclntdb_utils::padTorquenixVersionNumberStr(padded.c_str(), PARTS) == padded,
            "a padded number is padded", padded);
}

void checkInstalled()
{
    std::string version;
    require(tqclntdb_utils::getTQInstalledVersionStr(version) == 0, "the built-in release is always there");
    require(version.find('_') != std::string::npos && version.find('\n') == std::string::npos,
            "a version is a product, \"_\" and a number", version);
    require(isVersionNumber(tqclntdb_utils::tqReleaseVersionStringToNumber(version)),
            "a version has a number of seven digits", version);
    checkPadded(tqclntdb_utils::getInstalledPackagesVersionNumberStr(PARTS));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::Parts parts(fuzz::textOf(data, size));
    const std::string client(parts.next());
    const std::string server(parts.next());
    std::ofstream(TQ_BIN_VERSION_FILE, std::ios::binary) << client;
    std::ofstream(TQ_VERSION_FILE, std::ios::binary) << server;

    fuzz::host() = fuzz::DescribedHost();
    checkInstalled();
    fuzz::host().files[TQ_SERVER_DB] = ""; // a server now
    checkInstalled();
    checkPadded(client);
    require(isVersionNumber(tqclntdb_utils::tqReleaseVersionStringToNumber(client)),
            "any text has a number of seven digits or none", client);
    return 0;
}
