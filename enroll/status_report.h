/// The status of this host towards its master servers, for people, programs and a monitoring system. Pure
/// functions on the facts; `now` is in Unix seconds.
#pragma once

#include "enroll/server_facts.h"

#include <cstdint>
#include <string>
#include <vector>

namespace enroll {

/// From how many days before its end on a certificate is worth a warning.
inline constexpr std::int64_t WARNING_DAYS = 30;

/// What `tqenroll --status` ends with once it has told the status.
enum class Verdict : int {
    allWell = 0, ///< in step with every server, no certificate near its end, no file that is damaged
    /// Behind a server, a certificate that ends within WARNING_DAYS or has ended, or a problem with a file:
    /// one in the place of a lock keeps a server from being updated, and no update says so.
    needsAttention = 1,
    noIdentity = 2, ///< this host has no identity
};

Verdict judge(const std::vector<ServerFacts>& servers, std::int64_t now);

/// One line a server; one that says so when there is none.
std::string formatStatusLines(const std::vector<ServerFacts>& servers, std::int64_t now);

/// One line of JSON:
/// {"servers": [{"server", "state": "inStep" or "behind", "status", "statusText", "lastAttempt",
///   "lastRecordSent", "identities": [{"type": "host" or "cluster", "hostId", "hostName", "certificateEnd",
///   "token": "valid", "expired" or "none"}], "problems": [sentences]}]}
/// Times are Unix seconds. `status` and `statusText` are null in step, `status` also when it cannot be read;
/// times are null for never and for a certificate that cannot be read.
std::string formatStatusJson(const std::vector<ServerFacts>& servers);

/// The text format of Prometheus, for its collector of text files: gauges tqhostdb_last_attempt_seconds and
/// tqhostdb_last_record_sent_seconds (since then; absent for never), tqhostdb_last_status (0 in step, -1 for
/// a failure whose status cannot be read), and tqhostdb_certificate_end_seconds (until then, negative after
/// it; absent for a certificate that cannot be read), each with the label `server`, the last with `type`.
std::string formatStatusMetrics(const std::vector<ServerFacts>& servers, std::int64_t now);

} // namespace enroll
