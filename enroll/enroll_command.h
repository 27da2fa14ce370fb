/// The command line of tqenroll.
#pragma once

#include "platform/paths.h"

#include <iosfwd>

namespace enroll {

/// Runs `tqenroll --server NAME --invitation TEXT --fingerprint HEX [--cluster]`, `tqenroll --list` or
/// `tqenroll --remove --server NAME [--cluster]`. Results go to `out`, one sentence about a failure to `err`.
/// The invitation is blotted out in `argv`, where other users of the host could read it. Returns the exit
/// status (ExitStatus in enroll_failure.h).
int runCommand(int argc, char** argv, std::ostream& out, std::ostream& err, int port = TQ_WEB_SERVICE_PORT);

} // namespace enroll
