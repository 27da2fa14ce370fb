#include "masterd/authority.h"

#include "masterd/clock.h"
#include "masterd/names.h"
#include "platform/net.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/x509v3.h>
#include <stdexcept>

namespace masterd {

namespace {

constexpr long DAY_SECONDS = 86400;
constexpr int AUTHORITY_DAYS = 3650;
/// Certificates begin in the past, so that a host whose clock is behind can use them at once.
constexpr long BEGIN_BEFORE_SECONDS = 3600;
constexpr int RSA_MIN_BITS = 2048;
/// Larger keys only cost the server time.
constexpr int RSA_MAX_BITS = 8192;

struct Release {
    void operator()(GENERAL_NAMES* names) const { GENERAL_NAMES_free(names); }
    void operator()(GENERAL_NAME* name) const { GENERAL_NAME_free(name); }
    void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
    void operator()(BIGNUM* number) const { BN_free(number); }
};

/// For calls of OpenSSL that answer 1 when all went well.
void require(bool done, const char* what)
{
    if (!done)
        throw std::runtime_error(std::string("cannot make a certificate (") + what +
                                 "): " + tq::takeOpenSslError());
}

void setRandomSerial(X509& certificate)
{
    std::string bytes = tq::randomBytes(16);
    bytes[0] = static_cast<char>((bytes[0] & 0x3f) | 0x40); // positive, and of the same length always
    const std::unique_ptr<BIGNUM, Release> number(BN_bin2bn(
        reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()), nullptr));
    require(number && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(&certificate)) != nullptr,
            "serial number");
}

void setSubject(X509& certificate, const std::string& commonName)
{
    require(X509_NAME_add_entry_by_txt(X509_get_subject_name(&certificate), "CN", MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(commonName.c_str()),
                                       static_cast<int>(commonName.size()), -1, 0) == 1,
            "subject");
}

/// From an hour ago until `end` (Unix seconds).
void setPeriod(X509& certificate, std::int64_t end)
{
    std::time_t endTime = end;
    require(X509_gmtime_adj(X509_getm_notBefore(&certificate), -BEGIN_BEFORE_SECONDS) != nullptr &&
                ASN1_TIME_set(X509_getm_notAfter(&certificate), endTime) != nullptr,
            "period");
}

/// `issuer` is the certificate itself for one that signs itself.
void addExtension(X509& certificate, X509& issuer, int kind, const char* value)
{
    X509V3_CTX context{};
    X509V3_set_ctx(&context, &issuer, &certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, Release> extension(
        X509V3_EXT_conf_nid(nullptr, &context, kind, value));
    require(extension && X509_add_ext(&certificate, extension.get(), -1) == 1, value);
}

/// Takes over `value`, which belongs to a name of type `type`.
void addName(GENERAL_NAMES& names, int type, ASN1_STRING* value)
{
    std::unique_ptr<GENERAL_NAME, Release> name(GENERAL_NAME_new());
    if (!name || value == nullptr) {
        ASN1_STRING_free(value);
        require(false, "alternative name");
        return;
    }
    GENERAL_NAME_set0_value(name.get(), type, value);
    require(sk_GENERAL_NAME_push(&names, name.get()) > 0, "alternative name");
    static_cast<void>(name.release()); // the list owns it now
}

/// A name as it stands, byte by byte: nothing in it can be read as more than one name.
ASN1_STRING* nameText(const std::string& text)
{
    ASN1_STRING* value = ASN1_STRING_type_new(V_ASN1_IA5STRING);
    if (value != nullptr && ASN1_STRING_set(value, text.data(), static_cast<int>(text.size())) != 1) {
        ASN1_STRING_free(value);
        return nullptr;
    }
    return value;
}

void addAlternativeNames(X509& certificate, GENERAL_NAMES& names)
{
    require(X509_add1_ext_i2d(&certificate, NID_subject_alt_name, &names, 0, 0) == 1, "alternative names");
}

tq::Certificate newCertificate(EVP_PKEY& publicKey, const std::string& commonName, std::int64_t end)
{
    tq::Certificate certificate(X509_new());
    require(certificate && X509_set_version(certificate.get(), X509_VERSION_3) == 1 &&
                X509_set_pubkey(certificate.get(), &publicKey) == 1,
            "public key");
    setRandomSerial(*certificate);
    setSubject(*certificate, commonName);
    setPeriod(*certificate, end);
    return certificate;
}

/// A certificate that may do nothing but what `purpose` (an extended key usage) says, signed by `authority`.
void finish(X509& certificate, const KeyAndCertificate& authority, const char* purpose, GENERAL_NAMES& names)
{
    X509& issuer = *authority.certificate;
    require(X509_set_issuer_name(&certificate, X509_get_subject_name(&issuer)) == 1, "issuer");
    addExtension(certificate, issuer, NID_basic_constraints, "critical,CA:FALSE");
    addExtension(certificate, issuer, NID_key_usage, "critical,digitalSignature");
    addExtension(certificate, issuer, NID_ext_key_usage, purpose);
    addExtension(certificate, issuer, NID_subject_key_identifier, "hash");
    addExtension(certificate, issuer, NID_authority_key_identifier, "keyid:always");
    addAlternativeNames(certificate, names);
    require(X509_sign(&certificate, authority.key.get(), EVP_sha256()) > 0, "signature");
}

tq::Key newKey()
{
    tq::Key key = tq::generateKey();
    require(key != nullptr, "key");
    return key;
}

bool isAcceptedCurve(const EVP_PKEY& key)
{
    std::array<char, 64> name{};
    static constexpr std::array<const char*, 3> ACCEPTED{"prime256v1", "secp384r1", "secp521r1"};
    return EVP_PKEY_get_group_name(&key, name.data(), name.size(), nullptr) == 1 &&
           std::any_of(ACCEPTED.begin(), ACCEPTED.end(),
                       [&](const char* accepted) { return std::strcmp(accepted, name.data()) == 0; });
}

const char* publicKeyFault(const EVP_PKEY& key)
{
    const int kind = EVP_PKEY_get_base_id(&key);
    if (kind == EVP_PKEY_EC)
        return isAcceptedCurve(key) ? nullptr : "its key is not on the curve P-256, P-384 or P-521";
    if (kind != EVP_PKEY_RSA)
        return "its key is neither an elliptic curve nor an RSA key";
    if (EVP_PKEY_get_bits(&key) < RSA_MIN_BITS || EVP_PKEY_get_bits(&key) > RSA_MAX_BITS)
        return "its RSA key is not of 2048 to 8192 bits";
    return nullptr;
}

} // namespace

std::string toPem(const KeyAndCertificate& pair)
{
    const std::string key = tq::keyToPem(*pair.key);
    const std::string certificate = tq::certificateToPem(*pair.certificate);
    require(!key.empty() && !certificate.empty(), "text form");
    return key + certificate;
}

KeyAndCertificate fromPem(std::string_view pem)
{
    KeyAndCertificate pair{tq::parseKey(pem), tq::parseCertificate(pem)};
    if (!pair.key)
        throw std::runtime_error("it holds no usable private key");
    if (!pair.certificate)
        throw std::runtime_error("it holds no usable certificate");
    if (!tq::isKeyOfCertificate(*pair.key, *pair.certificate))
        throw std::runtime_error("its private key and its certificate do not belong together");
    return pair;
}

const char* certificateRequestFault(X509_REQ& request)
{
    const EVP_PKEY* key = X509_REQ_get0_pubkey(&request);
    if (key == nullptr)
        return "its public key cannot be read";
    if (const char* fault = publicKeyFault(*key); fault != nullptr)
        return fault;
    return tq::isSelfSignatureValid(request) ? nullptr : "it is not signed by its own key";
}

Authority Authority::create()
{
    KeyAndCertificate own{newKey(), nullptr};
    own.certificate = newCertificate(*own.key, "Torquenix authority " + tq::randomHex(8),
                                     unixNow() + AUTHORITY_DAYS * DAY_SECONDS);
    X509& certificate = *own.certificate;
    require(X509_set_issuer_name(&certificate, X509_get_subject_name(&certificate)) == 1, "issuer");
    addExtension(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
    addExtension(certificate, certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
    addExtension(certificate, certificate, NID_subject_key_identifier, "hash");
    require(X509_sign(&certificate, own.key.get(), EVP_sha256()) > 0, "signature");
    return Authority(std::move(own));
}

std::string Authority::certificatePem() const
{
    return tq::certificateToPem(*own_.certificate);
}

std::string Authority::fingerprint() const
{
    return tq::certificateFingerprint(*own_.certificate);
}

KeyAndCertificate Authority::issueServerCertificate(const std::vector<std::string>& names) const
{
    const std::unique_ptr<GENERAL_NAMES, Release> alternativeNames(GENERAL_NAMES_new());
    require(alternativeNames != nullptr, "alternative names");
    for (const std::string& name : names) {
        if (knet_is_ip_string(name.c_str()))
            addName(*alternativeNames, GEN_IPADD, a2i_IPADDRESS(name.c_str()));
        else
            addName(*alternativeNames, GEN_DNS, nameText(name));
    }
    KeyAndCertificate pair{newKey(), nullptr};
    pair.certificate = newCertificate(*pair.key, "Torquenix master server",
                                      tq::certificateEndTime(*own_.certificate).value_or(0));
    finish(*pair.certificate, own_, "serverAuth", *alternativeNames);
    return pair;
}

std::string Authority::issueHostCertificate(X509_REQ& request, const Identity& identity, int days) const
{
    const std::unique_ptr<GENERAL_NAMES, Release> names(GENERAL_NAMES_new());
    require(names != nullptr, "alternative names");
    addName(*names, GEN_URI, nameText(std::string(tq::UUID_URI_PREFIX) + identity.hostId));
    addName(*names, GEN_DNS, nameText(identity.hostName));
    EVP_PKEY* publicKey = X509_REQ_get0_pubkey(&request);
    require(publicKey != nullptr, "public key");
    const std::int64_t end =
        std::min(unixNow() + days * DAY_SECONDS, tq::certificateEndTime(*own_.certificate).value_or(0));
    const tq::Certificate certificate = newCertificate(*publicKey, identity.hostId, end);
    finish(*certificate, own_, "clientAuth", *names);
    std::string pem = tq::certificateToPem(*certificate);
    require(!pem.empty(), "text form");
    return pem;
}

} // namespace masterd
