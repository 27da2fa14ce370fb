/// The operation that the command line asks for, with its progress in the log and its result on display.
#pragma once

#include "cmd/command_line.h"
#include "hostinfo/tqclntdb_hostinfo.h"

#include <sstream>
#include <vector>

namespace TQCLNTDB {

/// What one run was asked for and works on.
struct OperationRun {
    CommandLine line;
    CHostInformation record;             ///< filled by a read
    std::vector<CHostInformation> hosts; ///< filled by a read of all hosts
    /// Deliberately never emptied: each entry made from it repeats the earlier ones.
    std::ostringstream messages;
};

/// Performs the operation, against `MasterServer` where it talks to one server, and prints what the line
/// wants displayed. Returns when it succeeded; throws what the operation throws, and the status of a failed
/// local information as an int.
void performOperation(OperationRun& run);

} // namespace TQCLNTDB
