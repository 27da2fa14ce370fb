/// One renewal: an identity of this host gets a new key and certificate.
#pragma once

#include "platform/identity_store.h"
#include "platform/web_limits.h"

#include <cstdint>
#include <optional>
#include <string>

namespace enroll {

/// The period of a certificate, in Unix seconds.
struct CertificateLife {
    std::int64_t begin = 0;
    std::int64_t end = 0;
};

enum class RenewalNeed {
    none,
    due,   ///< two thirds of its life are over
    ended, ///< only a new invitation helps
};

RenewalNeed chooseRenewal(const CertificateLife& life, std::int64_t now);

/// The period of the first certificate of a file; absent when the file cannot be read or holds none.
std::optional<CertificateLife> readCertificateLife(const std::string& path);

/// Renews an identity of the store, as it was loaded, with its server: shows the present certificate and a
/// token (which is asked for when there is none and kept beside the renewed identity), and sends a request
/// for a certificate of a new key. The answer has to be for that key and this host id. Key and certificate
/// are stored together; the identity is then returned with its new file names. Throws Failure, 11 when only a
/// new invitation helps; the store is then as it was. The invitation's sentence names `tqmasterd invite`.
tq::Identity renew(const tq::Identity& identity, int port, const tq::WebLimits& limits);

} // namespace enroll
