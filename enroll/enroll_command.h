/// The command line of tqenroll.
#pragma once

#include "platform/paths.h"

#include <iosfwd>

namespace enroll {

/// Runs one of
///     tqenroll --server NAME --invitation TEXT --fingerprint HEX [--cluster]
///     tqenroll --list
///     tqenroll --remove --server NAME [--cluster]
///     tqenroll --status [--json | --metrics]
///     tqenroll --renew [--if-needed] [--server NAME [--cluster]]
/// Results go to `out`, one sentence about each failure to `err`. The invitation is blotted out in `argv`,
/// where other users of the host could read it. Returns the exit status: ExitStatus in enroll_failure.h, or
/// Verdict in status_report.h once a status was told.
int runCommand(int argc, char** argv, std::ostream& out, std::ostream& err, int port = TQ_WEB_SERVICE_PORT);

} // namespace enroll
