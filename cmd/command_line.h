/// The command line of tqhostdbcmd: one operation, flags and values.
#pragma once

#include <string>

namespace TQCLNTDB {

enum class Operation {
    none,
    localInfo,
    update,
    read,
    readAllHosts,
    deleteHost,
    reloadConfiguration,
};

struct CommandLine {
    Operation operation = Operation::none; ///< the last operation option on the line
    std::string hostName;
    std::string hostId;
    bool display = false;
    bool force = false;
    bool security = false;
    bool host = false;
    bool daemon = false;
    bool error = false;  ///< an unknown option, or a value option without its value
    int errorStatus = 0; ///< 20 after an unknown option; deliberately 0 after a missing value alone
};

/// Reads the arguments after the program's name. Option names are compared whole and without regard to case;
/// a word that is no option is skipped. After a value option, an argument that begins with "-" is no value:
/// it is skipped without being looked at. Each unknown option is logged at level 16, and reading goes on.
CommandLine parseCommandLine(int argc, const char* const* argv);

} // namespace TQCLNTDB
