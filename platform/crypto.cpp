#include "platform/crypto.h"

#include <array>
#include <climits>
#include <ctime>
#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <stdexcept>

namespace tq {

namespace {

/// Longest common name that a subject may hold.
constexpr std::size_t COMMON_NAME_MAX_BYTES = 64;

struct GeneralNamesRelease {
    void operator()(GENERAL_NAMES* names) const { GENERAL_NAMES_free(names); }
};
using GeneralNames = std::unique_ptr<GENERAL_NAMES, GeneralNamesRelease>;

/// OpenSSL's default would ask on the terminal.
int noPassword(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*argument*/)
{
    return -1;
}

/// A stream that reads `text`, which must outlive it; null when the text is too long for one.
MemoryStream streamOf(std::string_view text)
{
    if (text.size() > INT_MAX)
        return nullptr;
    return MemoryStream(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

MemoryStream emptyStream()
{
    return MemoryStream(BIO_new(BIO_s_mem()));
}

std::string contentOf(BIO& stream)
{
    char* data = nullptr;
    const long length = BIO_get_mem_data(&stream, &data);
    return length > 0 ? std::string(data, static_cast<std::size_t>(length)) : std::string();
}

/// Text of a name with its full length; absent when it holds a NUL.
std::optional<std::string> textOf(const ASN1_STRING& name)
{
    const auto* data = reinterpret_cast<const char*>(ASN1_STRING_get0_data(&name));
    std::string text(data, static_cast<std::size_t>(ASN1_STRING_length(&name)));
    if (text.find('\0') != std::string::npos)
        return std::nullopt;
    return text;
}

std::optional<std::int64_t> unixTime(const ASN1_TIME& time)
{
    std::tm utc{};
    if (ASN1_TIME_to_tm(&time, &utc) != 1)
        return std::nullopt;
    return static_cast<std::int64_t>(timegm(&utc));
}

bool setCommonName(X509_REQ& request, std::string_view commonName)
{
    if (commonName.empty() || commonName.size() > COMMON_NAME_MAX_BYTES)
        return false;
    return X509_NAME_add_entry_by_NID(X509_REQ_get_subject_name(&request), NID_commonName, MBSTRING_UTF8,
                                      reinterpret_cast<const unsigned char*>(commonName.data()),
                                      static_cast<int>(commonName.size()), -1, 0) == 1;
}

} // namespace

void OpenSslRelease::operator()(X509* certificate) const
{
    X509_free(certificate);
}

void OpenSslRelease::operator()(X509_REQ* request) const
{
    X509_REQ_free(request);
}

void OpenSslRelease::operator()(EVP_PKEY* key) const
{
    EVP_PKEY_free(key);
}

void OpenSslRelease::operator()(BIO* stream) const
{
    BIO_free_all(stream);
}

std::string takeOpenSslError()
{
    const unsigned long code = ERR_peek_last_error();
    ERR_clear_error();
    if (code == 0)
        return "no reason given";
    std::array<char, 256> text{};
    ERR_error_string_n(code, text.data(), text.size());
    return text.data();
}

std::string sha256Hex(std::string_view bytes)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("SHA-256 is not to be had: " + takeOpenSslError());
    return hexDigits(digest.data(), length);
}

std::string certificateFingerprint(const X509& certificate)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    if (X509_digest(&certificate, EVP_sha256(), digest.data(), &length) != 1)
        throw std::runtime_error("SHA-256 is not to be had: " + takeOpenSslError());
    return hexDigits(digest.data(), length);
}

std::string randomUuid()
{
    std::string bytes = randomBytes(16);
    bytes[6] = static_cast<char>((bytes[6] & 0x0f) | 0x40); // version: random
    bytes[8] = static_cast<char>((bytes[8] & 0x3f) | 0x80); // variant of RFC 4122
    std::string text = hexDigits(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    for (const std::size_t position : {8U, 13U, 18U, 23U})
        text.insert(position, 1, '-');
    return text;
}

bool equalInConstantTime(std::string_view one, std::string_view other)
{
    return one.size() == other.size() && CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
}

Key generateKey()
{
    return Key(EVP_EC_gen("P-256"));
}

std::string keyToPem(const EVP_PKEY& key)
{
    const MemoryStream stream = emptyStream();
    if (!stream || PEM_write_bio_PrivateKey(stream.get(), &key, nullptr, nullptr, 0, nullptr, nullptr) != 1)
        return "";
    return contentOf(*stream);
}

Key parseKey(std::string_view pem)
{
    const MemoryStream stream = streamOf(pem);
    return Key(stream ? PEM_read_bio_PrivateKey(stream.get(), nullptr, noPassword, nullptr) : nullptr);
}

std::string makeCertificateRequest(EVP_PKEY& key, std::string_view commonName)
{
    const CertificateRequest request(X509_REQ_new());
    const MemoryStream stream = emptyStream();
    if (!request || !stream || X509_REQ_set_version(request.get(), X509_REQ_VERSION_1) != 1 ||
        !setCommonName(*request, commonName) || X509_REQ_set_pubkey(request.get(), &key) != 1 ||
        X509_REQ_sign(request.get(), &key, EVP_sha256()) == 0 ||
        PEM_write_bio_X509_REQ(stream.get(), request.get()) != 1)
        return "";
    return contentOf(*stream);
}

CertificateRequest parseCertificateRequest(std::string_view pem)
{
    const MemoryStream stream = streamOf(pem);
    return CertificateRequest(stream ? PEM_read_bio_X509_REQ(stream.get(), nullptr, noPassword, nullptr)
                                     : nullptr);
}

bool isSelfSignatureValid(X509_REQ& request)
{
    EVP_PKEY* key = X509_REQ_get0_pubkey(&request);
    return key != nullptr && X509_REQ_verify(&request, key) == 1;
}

Certificate parseCertificate(std::string_view pem)
{
    const MemoryStream stream = streamOf(pem);
    return Certificate(stream ? PEM_read_bio_X509(stream.get(), nullptr, noPassword, nullptr) : nullptr);
}

std::vector<Certificate> parseCertificateChain(std::string_view pem)
{
    std::vector<Certificate> chain;
    const MemoryStream stream = streamOf(pem);
    if (!stream)
        return chain;
    ERR_clear_error();
    while (Certificate certificate{PEM_read_bio_X509(stream.get(), nullptr, noPassword, nullptr)})
        chain.push_back(std::move(certificate));
    // The end of the text shows as a missing start line; any other reason is a damaged certificate.
    if (ERR_GET_REASON(ERR_peek_last_error()) != PEM_R_NO_START_LINE)
        chain.clear();
    else
        ERR_clear_error();
    return chain;
}

std::string certificateToPem(const X509& certificate)
{
    const MemoryStream stream = emptyStream();
    if (!stream || PEM_write_bio_X509(stream.get(), &certificate) != 1)
        return "";
    return contentOf(*stream);
}

std::optional<AlternativeNames> readAlternativeNames(const X509& certificate)
{
    int found = 0;
    const GeneralNames names(
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(&certificate, NID_subject_alt_name, &found, nullptr)));
    if (!names) {
        // -1: the certificate has no such extension; anything else is damage or a second one.
        return found == -1 ? std::optional<AlternativeNames>(AlternativeNames{}) : std::nullopt;
    }
    AlternativeNames result;
    for (int i = 0; i < sk_GENERAL_NAME_num(names.get()); ++i) {
        const GENERAL_NAME& name = *sk_GENERAL_NAME_value(names.get(), i);
        if (name.type != GEN_DNS && name.type != GEN_URI)
            continue;
        const std::optional<std::string> text = textOf(*name.d.ia5);
        if (!text)
            return std::nullopt;
        (name.type == GEN_DNS ? result.dnsNames : result.uris).push_back(*text);
    }
    return result;
}

std::optional<std::int64_t> certificateBeginTime(const X509& certificate)
{
    return unixTime(*X509_get0_notBefore(&certificate));
}

std::optional<std::int64_t> certificateEndTime(const X509& certificate)
{
    return unixTime(*X509_get0_notAfter(&certificate));
}

bool isKeyOfCertificate(const EVP_PKEY& key, const X509& certificate)
{
    const bool matches = X509_check_private_key(&certificate, &key) == 1;
    ERR_clear_error();
    return matches;
}

} // namespace tq
