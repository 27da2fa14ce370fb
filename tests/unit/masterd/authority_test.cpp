#include "masterd/authority.h"
#include "masterd/clock.h"
#include "tests/unit/masterd/certificate_request.h"

#include <gtest/gtest.h>
#include <memory>
#include <openssl/x509_vfy.h>
#include <stdexcept>

namespace {

using masterd::Authority;
using masterd::Identity;

const Identity IDENTITY{"11111111-2222-4333-8444-555555555555", "h1.example"};

/// Whether a certificate verifies under an authority for a purpose (X509_PURPOSE_...).
bool verifies(const X509& certificate, const Authority& authority, int purpose)
{
    const std::unique_ptr<X509_STORE, decltype(&X509_STORE_free)> store(X509_STORE_new(), X509_STORE_free);
    X509_STORE_add_cert(store.get(), authority.own().certificate.get());
    X509_STORE_set_purpose(store.get(), purpose);
    const tq::Certificate copy(X509_dup(&certificate));
    const std::unique_ptr<X509_STORE_CTX, decltype(&X509_STORE_CTX_free)> context(X509_STORE_CTX_new(),
                                                                                  X509_STORE_CTX_free);
    X509_STORE_CTX_init(context.get(), store.get(), copy.get(), nullptr);
    return X509_verify_cert(context.get()) == 1;
}

/// The default authority of the tests that do not change it.
const Authority& authority()
{
    static const Authority shared = Authority::create();
    return shared;
}

tq::Certificate issueTo(X509_REQ& request, int days = 730)
{
    return tq::parseCertificate(authority().issueHostCertificate(request, IDENTITY, days));
}

std::string subjectOf(const X509& certificate)
{
    std::array<char, 256> text{};
    X509_NAME_oneline(X509_get_subject_name(&certificate), text.data(), text.size());
    return text.data();
}

TEST(Authority, KeyAndCertificateComeBackFromTheirText)
{
    const masterd::KeyAndCertificate copy = masterd::fromPem(masterd::toPem(authority().own()));
    EXPECT_EQ(tq::certificateFingerprint(*copy.certificate), authority().fingerprint());
}

TEST(Authority, TextWithoutAPartOrWithAStrangeOneIsRefused)
{
    const Authority other = Authority::create();
    const std::string key = tq::keyToPem(*authority().own().key);
    const std::string certificate = authority().certificatePem();
    for (const std::string& text : {std::string(), key, certificate, key + other.certificatePem(),
                                    key.substr(0, key.size() / 2) + certificate, std::string("junk")})
        EXPECT_THROW(masterd::fromPem(text), std::runtime_error) << text;
    EXPECT_NO_THROW(masterd::fromPem(key + certificate));
}

TEST(Authority, NoTwoHaveANameOrAKeyInCommon)
{
    const Authority other = Authority::create();
    EXPECT_NE(subjectOf(*other.own().certificate), subjectOf(*authority().own().certificate));
    EXPECT_NE(other.fingerprint(), authority().fingerprint());
}

TEST(Authority, ServerCertificateServesItsNamesAndNothingElse)
{
    const masterd::KeyAndCertificate server =
        authority().issueServerCertificate({"master1.example", "127.0.0.2", "::1"});
    X509* certificate = server.certificate.get();
    EXPECT_TRUE(tq::isKeyOfCertificate(*server.key, *certificate));
    EXPECT_TRUE(verifies(*certificate, authority(), X509_PURPOSE_SSL_SERVER));
    EXPECT_FALSE(verifies(*certificate, authority(), X509_PURPOSE_SSL_CLIENT));
    EXPECT_EQ(X509_check_host(certificate, "master1.example", 0, 0, nullptr), 1);
    EXPECT_EQ(X509_check_host(certificate, "master2.example", 0, 0, nullptr), 0);
    EXPECT_EQ(X509_check_ip_asc(certificate, "127.0.0.2", 0), 1);
    EXPECT_EQ(X509_check_ip_asc(certificate, "::1", 0), 1);
    EXPECT_EQ(X509_check_ip_asc(certificate, "127.0.0.3", 0), 0);
}

TEST(Authority, HostCertificateNamesTheIdentityAndIsForClients)
{
    const tq::Key key = tq::generateKey();
    const tq::Certificate certificate = issueTo(*tests::requestFor(*key));
    ASSERT_TRUE(certificate);
    EXPECT_TRUE(tq::isKeyOfCertificate(*key, *certificate));
    EXPECT_TRUE(verifies(*certificate, authority(), X509_PURPOSE_SSL_CLIENT));
    EXPECT_FALSE(verifies(*certificate, authority(), X509_PURPOSE_SSL_SERVER));
    const auto names = tq::readAlternativeNames(*certificate);
    ASSERT_TRUE(names);
    EXPECT_EQ(names->dnsNames, std::vector<std::string>{"h1.example"});
    EXPECT_EQ(names->uris, std::vector<std::string>{"urn:uuid:11111111-2222-4333-8444-555555555555"});
}

TEST(Authority, NothingButThePublicKeyIsTakenFromARequest)
{
    const tq::Key key = tq::generateKey();
    const tq::CertificateRequest greedy = tests::greedyRequest(*key, *key);
    ASSERT_EQ(masterd::certificateRequestFault(*greedy), nullptr);
    const tq::Certificate certificate = issueTo(*greedy);
    EXPECT_EQ(subjectOf(*certificate), "/CN=" + IDENTITY.hostId);
    EXPECT_EQ(X509_check_ca(certificate.get()), 0);
    EXPECT_EQ(X509_get_extended_key_usage(certificate.get()), static_cast<std::uint32_t>(XKU_SSL_CLIENT));
    EXPECT_EQ(tq::readAlternativeNames(*certificate)->dnsNames, std::vector<std::string>{"h1.example"});
}

TEST(Authority, HostCertificateEndsAfterItsDaysOrWithTheAuthority)
{
    const tq::Key key = tq::generateKey();
    const tq::CertificateRequest request = tests::requestFor(*key);
    const std::int64_t now = masterd::unixNow();
    EXPECT_NEAR(static_cast<double>(*tq::certificateEndTime(*issueTo(*request, 2))),
                static_cast<double>(now + 2L * 86400), 5);
    EXPECT_EQ(tq::certificateEndTime(*issueTo(*request, 100000)),
              tq::certificateEndTime(*authority().own().certificate));
}

TEST(Authority, NoTwoCertificatesHaveASerialNumberInCommon)
{
    const tq::Key key = tq::generateKey();
    const tq::CertificateRequest request = tests::requestFor(*key);
    const tq::Certificate one = issueTo(*request);
    const tq::Certificate two = issueTo(*request);
    EXPECT_NE(ASN1_INTEGER_cmp(X509_get0_serialNumber(one.get()), X509_get0_serialNumber(two.get())), 0);
}

TEST(CertificateRequestFault, AcceptsTheCurvesAndRsaKeysThatAreStrongEnough)
{
    for (const char* curve : {"P-256", "P-384", "P-521"}) {
        const tq::Key key(EVP_EC_gen(curve));
        EXPECT_EQ(masterd::certificateRequestFault(*tests::requestFor(*key)), nullptr) << curve;
    }
    const tq::Key rsa(EVP_RSA_gen(2048));
    EXPECT_EQ(masterd::certificateRequestFault(*tests::requestFor(*rsa)), nullptr);
}

TEST(CertificateRequestFault, RefusesWeakAndUnusualKeys)
{
    for (const char* curve : {"P-224", "secp256k1"}) {
        const tq::Key key(EVP_EC_gen(curve));
        ASSERT_TRUE(key) << curve;
        EXPECT_STREQ(masterd::certificateRequestFault(*tests::requestFor(*key)),
                     "its key is not on the curve P-256, P-384 or P-521");
    }
    for (const unsigned int bits : {512U, 1024U}) {
        const tq::Key key(EVP_RSA_gen(bits));
        ASSERT_TRUE(key) << bits;
        const tq::CertificateRequest request = tests::greedyRequest(*key, *key);
        EXPECT_STREQ(masterd::certificateRequestFault(*request), "its RSA key is not of 2048 to 8192 bits");
    }
    const tq::Key edwards(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"));
    ASSERT_TRUE(edwards);
    const tq::CertificateRequest request(X509_REQ_new());
    X509_REQ_set_pubkey(request.get(), edwards.get());
    EXPECT_STREQ(masterd::certificateRequestFault(*request),
                 "its key is neither an elliptic curve nor an RSA key");
}

TEST(CertificateRequestFault, RefusesASignatureByAnotherKeyAndNone)
{
    const tq::Key key = tq::generateKey();
    const tq::Key other = tq::generateKey();
    EXPECT_STREQ(masterd::certificateRequestFault(*tests::greedyRequest(*key, *other)),
                 "it is not signed by its own key");
    const tq::CertificateRequest unsignedRequest(X509_REQ_new());
    EXPECT_STREQ(masterd::certificateRequestFault(*unsignedRequest), "its public key cannot be read");
    X509_REQ_set_pubkey(unsignedRequest.get(), key.get());
    EXPECT_STREQ(masterd::certificateRequestFault(*unsignedRequest), "it is not signed by its own key");
}

} // namespace
