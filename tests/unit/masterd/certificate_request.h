/// Certificate requests of every kind, for tests.
#pragma once

#include "platform/crypto.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>
#include <string>

namespace tests {

/// A request for a key, signed by `signer`, that asks for a subject, names and powers of its own.
inline tq::CertificateRequest greedyRequest(EVP_PKEY& key, EVP_PKEY& signer)
{
    tq::CertificateRequest request(X509_REQ_new());
    X509_NAME_add_entry_by_txt(X509_REQ_get_subject_name(request.get()), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("victim"), -1, -1, 0);
    STACK_OF(X509_EXTENSION)* extensions = sk_X509_EXTENSION_new_null();
    for (const auto& [kind, value] : {std::pair{NID_basic_constraints, "critical,CA:TRUE"},
                                      std::pair{NID_subject_alt_name, "DNS:victim,URI:urn:uuid:victim"},
                                      std::pair{NID_ext_key_usage, "serverAuth"}})
        sk_X509_EXTENSION_push(extensions, X509V3_EXT_conf_nid(nullptr, nullptr, kind, value));
    X509_REQ_add_extensions(request.get(), extensions);
    sk_X509_EXTENSION_pop_free(extensions, X509_EXTENSION_free);
    X509_REQ_set_pubkey(request.get(), &key);
    X509_REQ_sign(request.get(), &signer, EVP_sha256());
    return request;
}

/// A request for a key, signed by it.
inline tq::CertificateRequest requestFor(EVP_PKEY& key)
{
    return tq::parseCertificateRequest(tq::makeCertificateRequest(key, "anything"));
}

inline std::string toPem(const X509_REQ& request)
{
    const tq::MemoryStream stream(BIO_new(BIO_s_mem()));
    PEM_write_bio_X509_REQ(stream.get(), &request);
    char* data = nullptr;
    const long length = BIO_get_mem_data(stream.get(), &data);
    return {data, static_cast<std::size_t>(length)};
}

} // namespace tests
