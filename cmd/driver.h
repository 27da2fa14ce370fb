/// One run of tqhostdbcmd, from its start-up to its exit status.
#pragma once

namespace TQCLNTDB {

/// Prepares the process (mask, locale names, debug log), reads the command line, removes outdated cache
/// files, finds the master server where one is needed and runs the operation. Results go to standard output,
/// failures to standard error and the debug log.
///
/// Returns 0 when the operation was done or none was asked for. Every other outcome ends the process through
/// CmdExit: 36 no program name, 12 an administrator's debug log cannot be opened, 20 an unknown option, 0 a
/// value missing after its option, 111 no master server, an operation's status, a web-service failure's error
/// code (7500 when it has none), 0 after any other exception.
int runHostDatabaseCommand(int argc, char** argv);

} // namespace TQCLNTDB
