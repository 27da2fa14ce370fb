/// `tqenroll --status`.
#pragma once

#include "enroll/status_report.h"

#include <iosfwd>

namespace enroll {

enum class StatusForm { lines, json, metrics };

/// Shows the status of this host towards each of its master servers. Changes no file and takes no lock.
/// Throws Failure: 9 for a store that cannot be used, 12 when the status could not be told or shown.
Verdict runStatus(StatusForm form, std::ostream& out);

} // namespace enroll
