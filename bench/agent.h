/// Hosts of a made-up fleet towards a real master server: identities of their own, kept in a file.
#pragma once

#include <memory>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <string>
#include <vector>

namespace bench {

struct OpenSslRelease {
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509_REQ* request) const { X509_REQ_free(request); }
    void operator()(BIO* stream) const { BIO_free(stream); }
};

struct Agent {
    std::string hostName;
    std::string hostId;
    std::string token;
    std::unique_ptr<X509, OpenSslRelease> certificate;
    std::unique_ptr<EVP_PKEY, OpenSslRelease> key;

    /// Where the host's record lies.
    [[nodiscard]] std::string path() const { return "/torquenix/config/hosts/" + hostId; }
};

/// A new P-256 key. Throws Failure.
std::unique_ptr<EVP_PKEY, OpenSslRelease> makeKey();

/// A certificate request in PEM. Throws Failure.
std::string makeCertificateRequest(EVP_PKEY& key, const std::string& hostName);

/// A certificate of a text in PEM; null for anything else.
std::unique_ptr<X509, OpenSslRelease> parseCertificate(const std::string& pem);

/// An agent as one line of a file of agents, without the line's end. Throws Failure.
std::string toLine(const Agent& agent);

/// All agents of a file that holds one a line. Throws Failure.
std::vector<Agent> readAgents(const std::string& path);

} // namespace bench
