#include "masterd/client_identity.h"
#include "tests/fakes/tls/test_pki.h"

#include <gtest/gtest.h>

namespace {

using masterd::Identity;

std::optional<Identity> namedIn(const std::vector<std::string>& dnsNames,
                                const std::vector<std::string>& uris)
{
    fakes::CertificateOptions options;
    options.dnsNames = dnsNames;
    options.uris = uris;
    return masterd::readNamedIdentity(*fakes::makeSelfSigned(options).certificate);
}

TEST(ReadNamedIdentity, TakesTheUuidAndTheHostName)
{
    const std::optional<Identity> identity = namedIn({"h1.example"}, {"urn:uuid:abc"});
    ASSERT_TRUE(identity);
    EXPECT_EQ(identity->hostId, "abc");
    EXPECT_EQ(identity->hostName, "h1.example");
}

TEST(ReadNamedIdentity, NamesThatAreMissingOrStandTwiceNameNobody)
{
    EXPECT_FALSE(namedIn({}, {}));
    EXPECT_FALSE(namedIn({"h1.example"}, {}));
    EXPECT_FALSE(namedIn({}, {"urn:uuid:abc"}));
    EXPECT_FALSE(namedIn({"h1.example", "h2.example"}, {"urn:uuid:abc"}));
    EXPECT_FALSE(namedIn({"h1.example"}, {"urn:uuid:abc", "urn:uuid:def"}));
    EXPECT_FALSE(namedIn({"h1.example"}, {"https://abc"}));
    EXPECT_FALSE(namedIn({"h1.example"}, {"urn:uuid"}));
}

TEST(ReadNamedIdentity, NameWithANulNamesNobody)
{
    EXPECT_FALSE(namedIn({std::string("h1.example\0.evil", 16)}, {"urn:uuid:abc"}));
    EXPECT_FALSE(namedIn({"h1.example"}, {std::string("urn:uuid:abc\0d", 14)}));
}

TEST(ParseBearer, TakesTheTokenWhateverTheCaseOfTheWord)
{
    const std::string token = masterd::makeSecret().text();
    for (const char* word : {"Bearer ", "bearer ", "BEARER "}) {
        const auto parsed = masterd::parseBearer(word + token);
        ASSERT_TRUE(parsed) << word;
        EXPECT_EQ(parsed->text(), token);
    }
}

TEST(ParseBearer, OtherHeadersHoldNoToken)
{
    const std::string token = masterd::makeSecret().text();
    for (const std::string& header :
         {std::string(), std::string("Bearer"), std::string("Bearer "), token, "Basic " + token,
          "Bearer  " + token, "Bearer" + token, "Bearer " + token + " "})
        EXPECT_FALSE(masterd::parseBearer(header)) << header;
}

} // namespace
