/// Keeps this host's record current on every master server that it belongs to.
#pragma once

#include "platform/types.h"

#include <string>

namespace TQCLNTDB {

/// Updates the host's record on its master servers and, on an active cluster node, the virtual host's record
/// on the cluster's. A `daemon` run holds the daemon lock; one that finds it taken does nothing and returns.
/// Successful when each pass that ran updated at least one server; else throws, as an int, the last pass's
/// status, which is 0 when every server was skipped or busy. After a failure the daemon lock stays until the
/// process ends.
void updateHostInDB(bool force, bool daemon);

/// One pass: all master servers of one identity. Returns as updateHostDBForAllMasters. Throws the status of
/// a failed look-up as an int, and an `ec_status` when there is no server.
int fetchMastersAndUpdateHostDB(cert_type certType, bool force, int& successCount);

/// Updates the servers in the order given, each under its own lock, and keeps each one's status file: the
/// failing status after a failure, no file after a success. A server without a usable certificate authority
/// or whose lock is busy is skipped. `successCount` becomes the number of servers updated.
/// Returns the status of the last server that failed or had no usable authority (0 when only its mode says
/// so), 0 when there was none.
int updateHostDBForAllMasters(cert_type certType, const char* const* servers, bool force, int count,
                              int& successCount);

/// Updates one server in up to 5 attempts, 10 seconds apart. Returns 0 or the last attempt's status: that of
/// the client, a web-service failure's error code, or 114 for an unknown exception.
int updateHostInMasterServer(cert_type certType, const std::string& server, bool force);

} // namespace TQCLNTDB
