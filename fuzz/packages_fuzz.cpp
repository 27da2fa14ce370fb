/// Outputs of the package managers. The parts of an input are the outputs in the order of the commands: uname
/// and rpm; or a list of packages and one output for each package.
#include "fuzz/support/described_host.h"
#include "fuzz/support/target.h"
#include "hostinfo/tqclntdb_hostinfo.h"

#include <functional>

namespace {

using fuzz::require;
using TQCLNTDB::CHostInformation;

constexpr std::size_t MOST_BYTES = 2048;

void checkRpm()
{
    CHostInformation host;
    host.retrieveInstalledPackages();
    const std::string joined = CHostInformation::SeparateStringValuesByTok(host.installedPackages, ",");
    require(joined.size() <= MOST_BYTES, "a list that is too long is emptied", joined);
    for (const std::string& entry : host.installedPackages)
        require(entry.find_first_of("-\n") == std::string::npos && entry.find('_') != std::string::npos,
                "an entry is a name, \"_\" and a version", entry);
}

/// Lists the packages of another Unix: after the query each command asks for one package, whose name must be
/// no more to the shell than a word.
void checkOtherUnix(std::string_view text, const std::function<void(CHostInformation&)>& list)
{
    fuzz::describeOutputs(text);
    CHostInformation host;
    list(host);
    constexpr std::string_view ENDING = " 2>&1";
    const std::vector<std::string>& commands = fuzz::host().commands;
    for (std::size_t i = 1; i < commands.size(); ++i) {
        std::string_view command = commands[i];
        require(command.ends_with(ENDING), "a command takes errors for output", command);
        command.remove_suffix(ENDING.size());
        require(command.find_first_of("|&;<>()$`\\\"'*?[]#~!{}\n\t") == std::string_view::npos,
                "a command holds plain words", command);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text = fuzz::textOf(data, size);
    fuzz::describeOutputs(text);
    checkRpm();
    using OtherUnix = CHostInformation::OtherUnix;
    checkOtherUnix(text, [](CHostInformation& host) { host.retrieveInstalledPackagesSolaris(); });
    checkOtherUnix(text, [](CHostInformation& host) { host.retrieveInstalledPackagesAixHP(OtherUnix::aix); });
    checkOtherUnix(text,
                   [](CHostInformation& host) { host.retrieveInstalledPackagesAixHP(OtherUnix::hpux); });
    return 0;
}
