/// The command line of tqmasterd.
#pragma once

#include <string>

namespace masterd {

/// Runs `tqmasterd init | invite | serve | revoke`; results go to standard output, failures to standard
/// error. Relative paths count from `startFolder`; with an empty one they are refused. Returns the exit
/// status (ExitStatus in command_failure.h).
int runCommandLine(int argc, const char* const* argv, const std::string& startFolder);

} // namespace masterd
