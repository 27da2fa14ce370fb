/// The master server's own certificate authority.
#pragma once

#include "masterd/identity.h"
#include "platform/crypto.h"

#include <string>
#include <string_view>
#include <vector>

namespace masterd {

/// A private key and the certificate of its public half.
struct KeyAndCertificate {
    tq::Key key;
    tq::Certificate certificate;
};

/// Key first, then the certificate, in PEM: one file, so that the two are always of one mind.
std::string toPem(const KeyAndCertificate& pair);

/// The reverse of toPem(). Throws std::runtime_error, saying what is wrong, when a part is missing or
/// damaged, or when the two do not belong together.
KeyAndCertificate fromPem(std::string_view pem);

/// Why a certificate request is not accepted, as a short English text; null for a good one. Its key must be
/// on P-256, P-384 or P-521 or be RSA of 2048 to 8192 bits, and must have signed the request. Nothing else
/// of the request is looked at: the authority writes subject, names and purposes itself.
const char* certificateRequestFault(X509_REQ& request);

/// Issues certificates. Every operation that issues throws std::runtime_error when OpenSSL cannot do it.
class Authority {
public:
    /// Takes over the authority's key and certificate.
    explicit Authority(KeyAndCertificate own) : own_(std::move(own)) {}

    /// A new authority with a key and name of its own, good for ten years.
    static Authority create();

    [[nodiscard]] const KeyAndCertificate& own() const { return own_; }
    [[nodiscard]] std::string certificatePem() const;
    /// SHA-256 of the authority's certificate in DER, in hexadecimal digits: an administrator carries it to
    /// the hosts.
    [[nodiscard]] std::string fingerprint() const;

    /// A new key and certificate of the web service, for server authentication, ending with the authority.
    /// `names` (not empty) are host names and IP addresses.
    [[nodiscard]] KeyAndCertificate issueServerCertificate(const std::vector<std::string>& names) const;

    /// A certificate for client authentication in PEM, for the public key of a request that has no fault. Its
    /// alternative names are "urn:uuid:<hostId>" and the host name; it ends after `days` days, or with the
    /// authority.
    [[nodiscard]] std::string issueHostCertificate(X509_REQ& request, const Identity& identity,
                                                   int days) const;

private:
    KeyAndCertificate own_;
};

} // namespace masterd
