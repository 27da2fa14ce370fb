/// What a client shows of itself: its certificate and its token.
#pragma once

#include "masterd/identity.h"
#include "masterd/secret.h"

#include <openssl/x509.h>
#include <optional>
#include <string>
#include <string_view>

namespace masterd {

/// Host id and host name that a certificate of the authority names: its only "urn:uuid:" name and its only
/// DNS name. Absent when either is missing, stands more than once or holds a NUL. The type is not in a
/// certificate; the store knows it.
std::optional<Identity> readNamedIdentity(const X509& certificate);

/// The token of an "Authorization" header "Bearer <token>" (the word without regard to case).
std::optional<Secret> parseBearer(std::string_view header);

} // namespace masterd
