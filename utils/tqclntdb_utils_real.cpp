#include "utils/tqclntdb_utils_real.h"

#include "platform/platformname.h"
#include "utils/tqclntdb_utils.h"

namespace T {

int getTQInstalledVersionStr(std::string& out)
{
    return tqclntdb_utils::getTQInstalledVersionStr(out);
}

bool isDebianUbuntu()
{
    return tqclntdb_utils::isDebianUbuntu();
}

bool isHostTQUnixClient()
{
    return tqclntdb_utils::isHostTQUnixClient();
}

int readTorquenixVersionFile(const std::string& path, std::string& out)
{
    return tqclntdb_utils::readTorquenixVersionFile(path, out);
}

int readUnixTorquenixBinVersionFile(std::string& out)
{
    return tqclntdb_utils::readUnixTorquenixBinVersionFile(out);
}

int run_command_and_capture_output(const char* command, std::string& output, int* status)
{
    return tqclntdb_utils::run_command_and_capture_output(command, output, status, 0, 0);
}

const char* getOsHdwName(int identifier)
{
    return ::getOsHdwName(identifier);
}

bool isValidKqupdateOsHdwNamesIdentifier(int identifier)
{
    return ::isValidKqupdateOsHdwNamesIdentifier(identifier);
}

const char* get_TQ_binary_version2()
{
    return tqclntdb_utils::get_TQ_binary_version2();
}

int stat(const char* path, struct ::stat* attributes)
{
    return ::stat(path, attributes);
}

} // namespace T
