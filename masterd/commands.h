/// What each command of tqmasterd does. They throw CommandFailure when it cannot be done, or its result
/// cannot be printed.
#pragma once

#include "masterd/data_folder.h"
#include "masterd/identity.h"

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace masterd {

/// Makes a data folder and prints "fingerprint: <SHA-256 of the authority>".
void runInit(const DataFolder& folder, const std::vector<std::string>& names, std::ostream& out);

struct InviteOptions {
    std::string hostName;
    IdentityType type = IdentityType::host;
    std::int64_t validSeconds = 86400;
};
/// Prints "invitation: <text>", which opens one enrolment and cannot be shown again, and "fingerprint:
/// <hex>".
void runInvite(const DataFolder& folder, const InviteOptions& options, std::ostream& out);

/// Ends a host's identities and withdraws its open invitations; fails when there are none. Prints their
/// numbers. A running service knows at once.
void runRevoke(const DataFolder& folder, const std::string& hostName, std::ostream& out);

struct ServeOptions {
    std::string address = "0.0.0.0";
    int port = 0;
    bool logRequests = true;
    std::string requestLog; ///< file to append the request log to; empty: standard error
};
/// Serves until SIGTERM or SIGINT; SIGHUP reads the settings again. Prints "listening on <address> port
/// <number>" once clients can connect.
void runServe(const DataFolder& folder, const ServeOptions& options, std::ostream& out);

} // namespace masterd
