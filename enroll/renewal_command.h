/// `tqenroll --renew`.
#pragma once

#include "enroll/enroll_failure.h"
#include "platform/types.h"

#include <iosfwd>
#include <string>

namespace enroll {

/// Which identities are to be renewed.
struct RenewalOrder {
    std::string server;                  ///< empty for all identities
    cert_type certType = CERT_TYPE_HOST; ///< of the identity towards `server`
    bool ifNeeded = false;               ///< only those of whose certificates' lives two thirds are over
    int port = 0;
};

/// Renews the ordered identities, each on its own: one that fails does not keep the others from it. A line on
/// `out` for each renewed one, a sentence on `err` for each failure. Returns the status of the first failure.
/// With `ifNeeded`, when nothing is to be done, says nothing and writes nothing, the debug log included.
/// Throws Failure: 9 for a store that cannot be used, 10 when an identity that was asked for is not there.
ExitStatus runRenewals(const RenewalOrder& order, std::ostream& out, std::ostream& err);

} // namespace enroll
