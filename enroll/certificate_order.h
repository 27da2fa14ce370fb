/// What an enrolment or a renewal asks a master server for: a certificate of a new key.
#pragma once

#include "platform/crypto.h"
#include "platform/types.h"

#include <string>

namespace enroll {

struct CertificateOrder {
    tq::Key key;
    std::string body; ///< of the request, JSON
};

/// Makes a key, and the body of the request for its certificate. `invitation` is null for a renewal. Throws
/// Failure (1).
CertificateOrder orderCertificate(cert_type certType, const char* invitation);

} // namespace enroll
