#include "tests/fakes/seams/fake_seams.h"

#include "utils/tqclntdb_utils_real.h"

#include <cerrno>

namespace fakes {
namespace {

Seams theSeams;

void note(const std::string& name, const std::string& argument = "")
{
    theSeams.calls.push_back(argument.empty() ? name : name + " " + argument);
}

} // namespace

Seams& seams()
{
    return theSeams;
}

void resetSeams()
{
    theSeams = Seams{};
}

} // namespace fakes

using fakes::seams;

namespace T {

int getTQInstalledVersionStr(std::string& out)
{
    fakes::note("getTQInstalledVersionStr");
    if (seams().onInstalledVersion)
        seams().onInstalledVersion();
    out = seams().installedVersion;
    return seams().installedVersionStatus;
}

bool isDebianUbuntu()
{
    fakes::note("isDebianUbuntu");
    return seams().debianUbuntu;
}

bool isHostTQUnixClient()
{
    fakes::note("isHostTQUnixClient");
    return seams().unixClient;
}

int readTorquenixVersionFile(const std::string& path, std::string& out)
{
    fakes::note("readTorquenixVersionFile", path);
    const auto found = seams().versionFiles.find(path);
    if (found == seams().versionFiles.end())
        return 7501;
    out = found->second.second;
    return found->second.first;
}

int readUnixTorquenixBinVersionFile(std::string& out)
{
    fakes::note("readUnixTorquenixBinVersionFile");
    out = seams().binVersionFile.second;
    return seams().binVersionFile.first;
}

int run_command_and_capture_output(const char* command, std::string& output, int* status)
{
    fakes::note("run_command_and_capture_output", command);
    if (seams().command)
        return seams().command(command, output, *status);
    output.clear();
    *status = 0;
    return 0;
}

const char* getOsHdwName(int identifier)
{
    fakes::note("getOsHdwName", std::to_string(identifier));
    return seams().platformNames[identifier].c_str();
}

bool isValidKqupdateOsHdwNamesIdentifier(int identifier)
{
    fakes::note("isValidKqupdateOsHdwNamesIdentifier", std::to_string(identifier));
    return seams().validPlatforms.count(identifier) != 0;
}

const char* get_TQ_binary_version2()
{
    fakes::note("get_TQ_binary_version2");
    return seams().binaryVersion.c_str();
}

int stat(const char* path, struct ::stat* attributes)
{
    fakes::note("stat", path);
    const auto found = seams().files.find(path);
    if (found == seams().files.end()) {
        errno = ENOENT;
        return -1;
    }
    *attributes = {};
    attributes->st_mode = found->second;
    return 0;
}

} // namespace T
