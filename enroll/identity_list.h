/// The identities of this host as a table for people.
#pragma once

#include "platform/identity_store.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace enroll {

/// "2027-11-20 08:10:42 UTC", with " (ended)" behind it when that lies before `now` (both Unix seconds);
/// "unknown" when the certificate could not be read.
std::string describeEnd(std::optional<std::int64_t> end, std::int64_t now);

/// The same for the certificate of an identity.
std::string describeEndOf(const tq::Identity& identity, std::int64_t now);

/// A head line and a line for each identity, in the order of the store: server, type, host identifier, host
/// name and the end of its certificate, in columns. Empty when there are none.
std::string formatIdentities(const std::vector<tq::Identity>& identities, std::int64_t now);

} // namespace enroll
