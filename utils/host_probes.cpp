#include "utils/tqclntdb_utils.h"

#include "platform/paths.h"
#include "utils/product_names.h"
#include "utils/tqclntdb_utils_real.h"

namespace tqclntdb_utils {

bool findProductStr(const std::string& line, std::string& product)
{
    for (const std::string* name : {&TORQUENIX_STR, &FROSTMARCH_STR, &TQOPENSTACK_STR}) {
        if (line.rfind(*name + "-", 0) == 0) {
            product = *name;
            return true;
        }
    }
    return false;
}

bool isDebianUbuntu()
{
    std::string output;
    int status = 0;
    T::run_command_and_capture_output("uname -a", output, &status);
    return output.find("Debian") != std::string::npos || output.find("Ubuntu") != std::string::npos;
}

bool isHostTQUnixClient()
{
    // A folder or a regular file is told by these bits of the file type; block devices and sockets carry one
    // of them too and count as a server's database.
    constexpr mode_t FOLDER_OR_FILE_BITS = 0xc000;
    struct ::stat attributes {};
    if (T::stat(TQ_SERVER_DB, &attributes) != 0)
        return true;
    return (attributes.st_mode & FOLDER_OR_FILE_BITS) == 0;
}

} // namespace tqclntdb_utils
