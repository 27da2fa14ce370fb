#include "tests/fakes/tls/test_pki.h"

#include <arpa/inet.h>
#include <array>
#include <netinet/in.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>
#include <stdexcept>

namespace fakes {

namespace {

void require(bool done, const char* what)
{
    if (!done)
        throw std::runtime_error(std::string(what) + ": " + tq::takeOpenSslError());
}

void addName(GENERAL_NAMES* names, int type, const std::string& text)
{
    ASN1_STRING* value = type == GEN_IPADD ? ASN1_OCTET_STRING_new() : ASN1_IA5STRING_new();
    ASN1_STRING_set(value, text.data(), static_cast<int>(text.size()));
    GENERAL_NAME* name = GENERAL_NAME_new();
    GENERAL_NAME_set0_value(name, type, value);
    sk_GENERAL_NAME_push(names, name);
}

std::string addressBytes(const std::string& address)
{
    std::array<unsigned char, 4> bytes{};
    require(inet_pton(AF_INET, address.c_str(), bytes.data()) == 1, "address");
    return {bytes.begin(), bytes.end()};
}

void addAlternativeNames(X509& certificate, const CertificateOptions& options)
{
    GENERAL_NAMES* names = sk_GENERAL_NAME_new_null();
    for (const std::string& name : options.dnsNames)
        addName(names, GEN_DNS, name);
    for (const std::string& uri : options.uris)
        addName(names, GEN_URI, uri);
    for (const std::string& address : options.addresses)
        addName(names, GEN_IPADD, addressBytes(address));
    if (sk_GENERAL_NAME_num(names) > 0)
        require(X509_add1_ext_i2d(&certificate, NID_subject_alt_name, names, 0, 0) == 1, "names");
    GENERAL_NAMES_free(names);
}

void addExtension(X509& certificate, int nid, const std::string& value)
{
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, nid, value.c_str());
    require(extension != nullptr && X509_add_ext(&certificate, extension, -1) == 1, "extension");
    X509_EXTENSION_free(extension);
}

tq::Certificate build(const X509_NAME* issuerName, EVP_PKEY& issuerKey, EVP_PKEY& key,
                      const CertificateOptions& options)
{
    static long serial = 1000;
    tq::Certificate certificate(X509_new());
    X509& made = *certificate;
    X509_set_version(&made, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(&made), ++serial);
    X509_gmtime_adj(X509_getm_notBefore(&made), options.startSeconds);
    X509_gmtime_adj(X509_getm_notAfter(&made), options.endSeconds);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(&made), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(options.commonName.c_str()), -1, -1, 0);
    X509_set_issuer_name(&made, issuerName == nullptr ? X509_get_subject_name(&made) : issuerName);
    X509_set_pubkey(&made, &key);
    addExtension(made, NID_basic_constraints, options.authority ? "critical,CA:TRUE" : "critical,CA:FALSE");
    if (!options.extendedKeyUsage.empty())
        addExtension(made, NID_ext_key_usage, options.extendedKeyUsage);
    addAlternativeNames(made, options);
    require(X509_sign(&made, &issuerKey, EVP_sha256()) > 0, "signature");
    return certificate;
}

tq::Key makeKey(const CertificateOptions& options)
{
    return options.rsaBits == 0 ? tq::generateKey() : tq::Key(EVP_RSA_gen(options.rsaBits));
}

} // namespace

Issued makeSelfSigned(const CertificateOptions& options)
{
    tq::Key key = makeKey(options);
    tq::Certificate certificate = build(nullptr, *key, *key, options);
    return {std::move(certificate), std::move(key)};
}

Issued makeCertificate(const Issued& issuer, const CertificateOptions& options)
{
    tq::Key key = makeKey(options);
    tq::Certificate certificate =
        build(X509_get_subject_name(issuer.certificate.get()), *issuer.key, *key, options);
    return {std::move(certificate), std::move(key)};
}

tq::Certificate certify(const Issued& issuer, const std::string& requestPem,
                        const CertificateOptions& options)
{
    const tq::CertificateRequest request = tq::parseCertificateRequest(requestPem);
    if (!request)
        return nullptr;
    const tq::Key key(X509_REQ_get_pubkey(request.get()));
    return build(X509_get_subject_name(issuer.certificate.get()), *issuer.key, *key, options);
}

std::string encryptedKeyPem(const EVP_PKEY& key, const std::string& password)
{
    const tq::MemoryStream stream(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_PKCS8PrivateKey(stream.get(), &key, EVP_aes_128_cbc(), password.data(),
                                          static_cast<int>(password.size()), nullptr, nullptr) == 1,
            "encrypted key");
    char* data = nullptr;
    const long length = BIO_get_mem_data(stream.get(), &data);
    return {data, static_cast<std::size_t>(length)};
}

CertificateOptions serverOptions()
{
    CertificateOptions options;
    options.commonName = "server";
    options.dnsNames = {"localhost"};
    options.addresses = {"127.0.0.1"};
    return options;
}

CertificateOptions authorityOptions(const std::string& commonName)
{
    CertificateOptions options;
    options.commonName = commonName;
    options.authority = true;
    return options;
}

} // namespace fakes
