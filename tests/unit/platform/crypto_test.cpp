#include "platform/crypto.h"

#include "platform/random.h"
#include "tests/fakes/tls/test_pki.h"

#include <ctime>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <regex>
#include <set>

namespace {

/// A key in PEM that a password protects.
std::string encryptedPem(const EVP_PKEY& key)
{
    const tq::MemoryStream stream(BIO_new(BIO_s_mem()));
    std::string password = "secret";
    PEM_write_bio_PKCS8PrivateKey(stream.get(), &key, EVP_aes_128_cbc(), password.data(),
                                  static_cast<int>(password.size()), nullptr, nullptr);
    char* data = nullptr;
    const long length = BIO_get_mem_data(stream.get(), &data);
    return {data, static_cast<std::size_t>(length)};
}

fakes::Issued issuedFor(const std::vector<std::string>& dnsNames, const std::vector<std::string>& uris = {})
{
    fakes::CertificateOptions options;
    options.dnsNames = dnsNames;
    options.uris = uris;
    return fakes::makeSelfSigned(options);
}

TEST(Sha256Hex, IsThePublishedDigest)
{
    EXPECT_EQ(tq::sha256Hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(tq::sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(CertificateFingerprint, IsTheDigestOfTheDerForm)
{
    const fakes::Issued issued = issuedFor({"h1"});
    unsigned char* der = nullptr;
    const int length = i2d_X509(issued.certificate.get(), &der);
    ASSERT_GT(length, 0);
    const std::string bytes(reinterpret_cast<char*>(der), static_cast<std::size_t>(length));
    OPENSSL_free(der);
    EXPECT_EQ(tq::certificateFingerprint(*issued.certificate), tq::sha256Hex(bytes));
}

TEST(RandomUuid, IsOfVersionFourAndNeverTheSame)
{
    const std::regex form("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) {
        const std::string uuid = tq::randomUuid();
        EXPECT_TRUE(std::regex_match(uuid, form)) << uuid;
        EXPECT_TRUE(seen.insert(uuid).second) << uuid;
    }
}

TEST(EqualInConstantTime, ComparesLengthAndEveryByte)
{
    EXPECT_TRUE(tq::equalInConstantTime("", ""));
    EXPECT_TRUE(tq::equalInConstantTime("abc", "abc"));
    EXPECT_FALSE(tq::equalInConstantTime("abc", "abd"));
    EXPECT_FALSE(tq::equalInConstantTime("abc", "bbc"));
    EXPECT_FALSE(tq::equalInConstantTime("abc", "ab"));
    EXPECT_FALSE(tq::equalInConstantTime("", "a"));
}

TEST(Key, IsOnP256AndComesBackFromItsPem)
{
    const tq::Key key = tq::generateKey();
    ASSERT_TRUE(key);
    std::string curve(64, '\0');
    std::size_t length = 0;
    ASSERT_EQ(EVP_PKEY_get_group_name(key.get(), curve.data(), curve.size(), &length), 1);
    EXPECT_EQ(curve.substr(0, length), "prime256v1");
    const tq::Key copy = tq::parseKey(tq::keyToPem(*key));
    ASSERT_TRUE(copy);
    EXPECT_EQ(EVP_PKEY_eq(key.get(), copy.get()), 1);
}

TEST(Key, TextWithoutAUsableKeyGivesNone)
{
    const std::string pem = tq::keyToPem(*tq::generateKey());
    for (const std::string& text : {std::string(), std::string("junk"), pem.substr(0, pem.size() / 2),
                                    issuedFor({"h1"}).pem(), std::string(1000, '\0')})
        EXPECT_FALSE(tq::parseKey(text)) << text;
}

TEST(Key, EncryptedOneIsRefusedWithoutAskingForAPassword)
{
    const std::string pem = encryptedPem(*tq::generateKey());
    ASSERT_NE(pem.find("ENCRYPTED"), std::string::npos);
    EXPECT_FALSE(tq::parseKey(pem));
}

TEST(CertificateRequest, NamesItsSubjectAndIsSignedByItsKey)
{
    const tq::Key key = tq::generateKey();
    const tq::CertificateRequest request =
        tq::parseCertificateRequest(tq::makeCertificateRequest(*key, "h1.example"));
    ASSERT_TRUE(request);
    EXPECT_TRUE(tq::isSelfSignatureValid(*request));
    EXPECT_EQ(EVP_PKEY_eq(X509_REQ_get0_pubkey(request.get()), key.get()), 1);
    std::string subject(128, '\0');
    X509_NAME_oneline(X509_REQ_get_subject_name(request.get()), subject.data(), 128);
    EXPECT_STREQ(subject.c_str(), "/CN=h1.example");
}

TEST(CertificateRequest, SubjectHasOneToSixtyFourBytes)
{
    const tq::Key key = tq::generateKey();
    EXPECT_NE(tq::makeCertificateRequest(*key, std::string(64, 'a')), "");
    EXPECT_EQ(tq::makeCertificateRequest(*key, std::string(65, 'a')), "");
    EXPECT_EQ(tq::makeCertificateRequest(*key, ""), "");
    EXPECT_EQ(tq::makeCertificateRequest(*key, "\xff"), "");
}

TEST(CertificateRequest, OneThatAnotherKeySignedIsSeenThrough)
{
    const tq::Key key = tq::generateKey();
    const tq::Key other = tq::generateKey();
    const tq::CertificateRequest request =
        tq::parseCertificateRequest(tq::makeCertificateRequest(*key, "h1"));
    X509_REQ_set_pubkey(request.get(), other.get());
    EXPECT_FALSE(tq::isSelfSignatureValid(*request));
    const tq::CertificateRequest empty(X509_REQ_new());
    EXPECT_FALSE(tq::isSelfSignatureValid(*empty));
}

TEST(CertificateRequest, OtherTextGivesNone)
{
    for (const std::string& text : {std::string(), std::string("junk"), issuedFor({"h1"}).pem()})
        EXPECT_FALSE(tq::parseCertificateRequest(text)) << text;
}

TEST(Certificate, ComesBackFromItsPem)
{
    const fakes::Issued issued = issuedFor({"h1"});
    const tq::Certificate copy = tq::parseCertificate("any text before\n" + issued.pem());
    ASSERT_TRUE(copy);
    EXPECT_EQ(tq::certificateFingerprint(*copy), tq::certificateFingerprint(*issued.certificate));
    EXPECT_FALSE(tq::parseCertificate(""));
    EXPECT_FALSE(tq::parseCertificate(issued.keyPem()));
}

TEST(CertificateChain, HoldsAllCertificatesInTheirOrder)
{
    const fakes::Issued one = issuedFor({"h1"});
    const fakes::Issued two = issuedFor({"h2"});
    const std::vector<tq::Certificate> chain = tq::parseCertificateChain(one.pem() + "\n" + two.pem());
    ASSERT_EQ(chain.size(), 2U);
    EXPECT_EQ(tq::certificateFingerprint(*chain[0]), tq::certificateFingerprint(*one.certificate));
    EXPECT_EQ(tq::certificateFingerprint(*chain[1]), tq::certificateFingerprint(*two.certificate));
}

TEST(CertificateChain, IsEmptyWithoutACertificateAndWhenOneIsDamaged)
{
    const std::string good = issuedFor({"h1"}).pem();
    std::string damaged = good;
    damaged.replace(damaged.size() / 2, 4, "!!!!");
    for (const std::string& text : {std::string(), std::string("junk"), damaged, good + damaged,
                                    damaged + good, good + good.substr(0, good.size() / 2)})
        EXPECT_TRUE(tq::parseCertificateChain(text).empty()) << text;
    EXPECT_EQ(tq::parseCertificateChain(good).size(), 1U); // what failed before leaves no trace
}

TEST(AlternativeNames, AreReadByKindInTheirOrder)
{
    const auto names =
        tq::readAlternativeNames(*issuedFor({"h1", "h2"}, {"urn:uuid:a", "https://b"}).certificate);
    ASSERT_TRUE(names);
    EXPECT_EQ(names->dnsNames, (std::vector<std::string>{"h1", "h2"}));
    EXPECT_EQ(names->uris, (std::vector<std::string>{"urn:uuid:a", "https://b"}));
}

TEST(AlternativeNames, CertificateWithoutThemHasNone)
{
    const auto names = tq::readAlternativeNames(*issuedFor({}).certificate);
    ASSERT_TRUE(names);
    EXPECT_TRUE(names->dnsNames.empty());
    EXPECT_TRUE(names->uris.empty());
}

TEST(AlternativeNames, NameWithANulIsRefused)
{
    EXPECT_FALSE(tq::readAlternativeNames(*issuedFor({std::string("h1\0.evil", 8)}).certificate));
    EXPECT_FALSE(tq::readAlternativeNames(*issuedFor({"h1"}, {std::string("urn:a\0b", 7)}).certificate));
}

TEST(CertificateEndTime, IsInUnixSeconds)
{
    fakes::CertificateOptions options;
    options.endSeconds = 5000;
    const auto end = tq::certificateEndTime(*fakes::makeSelfSigned(options).certificate);
    ASSERT_TRUE(end);
    EXPECT_NEAR(static_cast<double>(*end), static_cast<double>(std::time(nullptr) + 5000), 5);
    const tq::Certificate without(X509_new());
    EXPECT_FALSE(tq::certificateEndTime(*without));
}

TEST(CertificateBeginTime, IsInUnixSeconds)
{
    fakes::CertificateOptions options;
    options.startSeconds = -7000;
    const auto begin = tq::certificateBeginTime(*fakes::makeSelfSigned(options).certificate);
    ASSERT_TRUE(begin);
    EXPECT_NEAR(static_cast<double>(*begin), static_cast<double>(std::time(nullptr) - 7000), 5);
    const tq::Certificate without(X509_new());
    EXPECT_FALSE(tq::certificateBeginTime(*without));
}

TEST(IsKeyOfCertificate, KnowsTheRightKey)
{
    const fakes::Issued issued = issuedFor({"h1"});
    EXPECT_TRUE(tq::isKeyOfCertificate(*issued.key, *issued.certificate));
    EXPECT_FALSE(tq::isKeyOfCertificate(*tq::generateKey(), *issued.certificate));
}

TEST(TakeOpenSslError, TellsTheReasonOnce)
{
    EXPECT_FALSE(tq::parseCertificate("junk"));
    EXPECT_NE(tq::takeOpenSslError().find("no start line"), std::string::npos);
    EXPECT_EQ(tq::takeOpenSslError(), "no reason given");
}

} // namespace
