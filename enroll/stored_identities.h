/// The identity store as tqenroll reads it.
#pragma once

#include "platform/crypto.h"
#include "platform/identity_store.h"

#include <string>
#include <vector>

namespace enroll {

/// Throws the Failure (9) of a store that cannot be used.
[[noreturn]] void failStore(const std::string& cause);

/// The store's identities; no store is no identities. Throws Failure (9) for a store that cannot be used.
std::vector<tq::Identity> readIdentities();

/// The first certificate of a file; null when the file cannot be read or holds none.
tq::Certificate readCertificateFile(const std::string& path);

} // namespace enroll
