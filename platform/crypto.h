/// Keys, certificate requests, certificates and digests, on OpenSSL.
#pragma once

#include "platform/random.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <openssl/x509.h>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tq {

struct OpenSslRelease {
    void operator()(X509* certificate) const;
    void operator()(X509_REQ* request) const;
    void operator()(EVP_PKEY* key) const;
    void operator()(BIO* stream) const;
};

/// OpenSSL objects that are released with their scope.
using Certificate = std::unique_ptr<X509, OpenSslRelease>;
using CertificateRequest = std::unique_ptr<X509_REQ, OpenSslRelease>;
using Key = std::unique_ptr<EVP_PKEY, OpenSslRelease>;
using MemoryStream = std::unique_ptr<BIO, OpenSslRelease>;

/// Why the last OpenSSL call of this thread failed, in the library's words ("no reason given" when it left
/// none). Empties the thread's error queue.
std::string takeOpenSslError();

/// SHA-256 of bytes, as 64 lower-case hexadecimal digits.
std::string sha256Hex(std::string_view bytes);

/// SHA-256 of a certificate's DER form, as 64 lower-case hexadecimal digits.
std::string certificateFingerprint(const X509& certificate);

/// A random (version 4) UUID in lower case: "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx".
std::string randomUuid();

/// Whether two texts are equal, in a time that depends on their lengths only.
[[nodiscard]] bool equalInConstantTime(std::string_view one, std::string_view other);

/// A new key on the curve P-256; null when OpenSSL cannot make one.
Key generateKey();

/// A private key in PEM (PKCS #8, not encrypted); empty on failure.
std::string keyToPem(const EVP_PKEY& key);

/// The first private key of a PEM text. Null when there is none, when it is damaged, and when it is
/// encrypted: nobody is asked for a password.
Key parseKey(std::string_view pem);

/// A certificate request for a key, signed with it (SHA-256), in PEM. `commonName` (up to 64 bytes of UTF-8)
/// becomes the subject; an authority is free to ignore it. Empty on failure.
std::string makeCertificateRequest(EVP_PKEY& key, std::string_view commonName);

/// The first certificate request of a PEM text; null when there is none or it is damaged.
CertificateRequest parseCertificateRequest(std::string_view pem);

/// Whether the request is signed by the key that it names, so whoever made it holds the private key.
[[nodiscard]] bool isSelfSignatureValid(X509_REQ& request);

/// The first certificate of a PEM text; null when there is none or it is damaged.
Certificate parseCertificate(std::string_view pem);

/// All certificates of a PEM text, in its order. Empty when there is none, and when any is damaged.
std::vector<Certificate> parseCertificateChain(std::string_view pem);

/// A certificate in PEM; empty on failure.
std::string certificateToPem(const X509& certificate);

/// What stands before a host identifier among the URIs of a host's certificate.
inline constexpr std::string_view UUID_URI_PREFIX = "urn:uuid:";

/// What a certificate's subject alternative names say. Other kinds of names are left out.
struct AlternativeNames {
    std::vector<std::string> dnsNames;
    std::vector<std::string> uris;
};

/// The subject alternative names in the certificate's order; none when it has no such extension. Absent when
/// the extension is damaged or stands twice, or when a name holds a NUL character, which would let a longer
/// name pass for a shorter one.
std::optional<AlternativeNames> readAlternativeNames(const X509& certificate);

/// When the certificate begins and ends, in Unix seconds; absent when it does not say so properly.
std::optional<std::int64_t> certificateBeginTime(const X509& certificate);
std::optional<std::int64_t> certificateEndTime(const X509& certificate);

/// Whether the private key belongs to the certificate.
[[nodiscard]] bool isKeyOfCertificate(const EVP_PKEY& key, const X509& certificate);

} // namespace tq
