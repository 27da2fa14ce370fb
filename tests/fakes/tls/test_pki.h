/// Authorities and certificates for tests, good ones and every kind of bad one.
#pragma once

#include "platform/crypto.h"

#include <string>
#include <vector>

namespace fakes {

struct CertificateOptions {
    std::string commonName = "test";
    std::vector<std::string> dnsNames = {}; ///< may hold NUL characters
    std::vector<std::string> addresses = {};
    std::vector<std::string> uris = {};
    bool authority = false;            ///< basic constraints CA:TRUE, else CA:FALSE
    std::string extendedKeyUsage = {}; ///< for example "clientAuth"; empty for none
    long startSeconds = -3600;         ///< from now
    long endSeconds = 3600;            ///< from now
    unsigned int rsaBits = 0;          ///< 0 for a key on P-256
};

/// A certificate with its key.
struct Issued {
    tq::Certificate certificate;
    tq::Key key;

    [[nodiscard]] std::string pem() const { return tq::certificateToPem(*certificate); }
    [[nodiscard]] std::string keyPem() const { return tq::keyToPem(*key); }
};

/// A certificate that names itself as its issuer.
Issued makeSelfSigned(const CertificateOptions& options);

/// A certificate of an issuer.
Issued makeCertificate(const Issued& issuer, const CertificateOptions& options);

/// A certificate of an issuer for the public key of a certificate request in PEM; null when it has none.
tq::Certificate certify(const Issued& issuer, const std::string& requestPem,
                        const CertificateOptions& options);

/// A private key in PEM that asks for a password.
std::string encryptedKeyPem(const EVP_PKEY& key, const std::string& password);

/// Options of a server for 127.0.0.1 and "localhost", and of an authority.
CertificateOptions serverOptions();
CertificateOptions authorityOptions(const std::string& commonName);

} // namespace fakes
