#include "enroll/enrollment_reply.h"

#include "platform/json.h"
#include "tests/fakes/tls/test_pki.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using enroll::EnrollmentReply;
using enroll::parseEnrollmentReply;
using ::testing::HasSubstr;

namespace {

const std::string HOST_ID = "6f0f0000-1111-4222-8333-444455556666";

/// A host's key and certificate, and the authority above it.
struct Pki {
    fakes::Issued authority = fakes::makeSelfSigned(fakes::authorityOptions("authority"));
    fakes::Issued host = fakes::makeCertificate(
        authority,
        {.commonName = "h1", .dnsNames = {"h1.example", "alias"}, .uris = {"urn:uuid:" + HOST_ID}});
};

const Pki& pki()
{
    static const Pki made;
    return made;
}

/// The body of a good reply, less the key `without`, and with `key` set to `value` (JSON text).
std::string body(const std::string& key = "", const std::string& value = "", const std::string& without = "")
{
    const tq::JsonRef object(json_pack("{s:s, s:s, s:s, s:s}", "hostId", HOST_ID.c_str(), "certificate",
                                       pki().host.pem().c_str(), "caCertificates",
                                       pki().authority.pem().c_str(), "trustVersion", "1"));
    if (!key.empty())
        json_object_set_new(object.get(), key.c_str(),
                            json_loads(value.c_str(), JSON_DECODE_ANY | JSON_ALLOW_NUL, nullptr));
    if (!without.empty())
        json_object_del(object.get(), without.c_str());
    return tq::JsonText(json_dumps(object.get(), 0)).get();
}

/// A JSON text of a PEM text.
std::string quoted(const std::string& text)
{
    const tq::JsonRef value(json_string(text.c_str()));
    return tq::JsonText(json_dumps(value.get(), JSON_ENCODE_ANY)).get();
}

std::string faultOf(const std::string& text)
{
    try {
        parseEnrollmentReply(text, *pki().host.key);
    } catch (const enroll::UnusableReply& fault) {
        return fault.what();
    }
    return "none";
}

} // namespace

TEST(ParseEnrollmentReply, TakesAGoodOne)
{
    const EnrollmentReply reply = parseEnrollmentReply(body(), *pki().host.key);
    EXPECT_EQ(reply.hostId, HOST_ID);
    EXPECT_EQ(reply.hostName, "h1.example");
    EXPECT_EQ(reply.certificate, pki().host.pem());
    EXPECT_EQ(reply.caCertificates, pki().authority.pem());
    EXPECT_EQ(reply.trustVersion, "1");
}

TEST(ParseEnrollmentReply, TheTrustVersionMayBeAbsentAndUnknownKeysAreIgnored)
{
    EXPECT_FALSE(parseEnrollmentReply(body("", "", "trustVersion"), *pki().host.key).trustVersion);
    EXPECT_EQ(faultOf(body("other", "[1]")), "none");
}

TEST(ParseEnrollmentReply, RefusesWhatIsNoObject)
{
    for (const char* text : {"", "null", "[]", "\"x\"", "<html>", "{", "{} {}"})
        EXPECT_THAT(faultOf(text), HasSubstr("not a JSON object")) << text;
    EXPECT_THAT(faultOf(std::string((1U << 20U) + 1, ' ')), HasSubstr("too large"));
}

TEST(ParseEnrollmentReply, RefusesMissingKeysAndWrongTypes)
{
    for (const char* key : {"hostId", "certificate", "caCertificates"})
        EXPECT_THAT(faultOf(body("", "", key)), HasSubstr(std::string("no \"") + key + "\"")) << key;
    for (const char* key : {"hostId", "certificate", "caCertificates", "trustVersion"}) {
        for (const char* value : {"5", "null", "{}", "\"\""})
            EXPECT_THAT(faultOf(body(key, value)), HasSubstr(std::string("\"") + key + "\" is not a text"))
                << key << value;
    }
}

TEST(ParseEnrollmentReply, RefusesAHostIdThatIsNoUuid)
{
    for (const char* value :
         {"\"h1\"", "\"../../../etc/passwd\"", "\"6f0f0000-1111-4222-8333-44445555666\"",
          "\"6f0f0000-1111-4222-8333-4444555566667\"", "\"6f0f0000x1111-4222-8333-444455556666\"",
          "\"6f0f0000-1111-4222-8333-44445555666g\""})
        EXPECT_THAT(faultOf(body("hostId", value)), HasSubstr("not a UUID")) << value;
}

TEST(ParseEnrollmentReply, RefusesACertificateForAnotherKey)
{
    const fakes::Issued other = fakes::makeCertificate(
        pki().authority, {.commonName = "h1", .dnsNames = {"h1.example"}, .uris = {"urn:uuid:" + HOST_ID}});
    EXPECT_THAT(faultOf(body("certificate", quoted(other.pem()))), HasSubstr("another key"));
}

TEST(ParseEnrollmentReply, RefusesACertificateThatDoesNotNameTheHostId)
{
    EXPECT_THAT(faultOf(body("hostId", "\"6f0f0000-1111-4222-8333-444455556667\"")),
                HasSubstr("does not name the host identifier 6f0f0000-1111-4222-8333-444455556667"));
}

TEST(ParseEnrollmentReply, RefusesCertificatesWithoutHostNameOrWithANulInAName)
{
    const std::string request = tq::makeCertificateRequest(*pki().host.key, "h1");
    const tq::Certificate nameless =
        fakes::certify(pki().authority, request, {.commonName = "h1", .uris = {"urn:uuid:" + HOST_ID}});
    EXPECT_THAT(faultOf(body("certificate", quoted(tq::certificateToPem(*nameless)))),
                HasSubstr("names no host"));

    const tq::Certificate cut = fakes::certify(pki().authority, request,
                                               {.commonName = "h1",
                                                .dnsNames = {"h1.example"},
                                                .uris = {"urn:uuid:" + HOST_ID + std::string("\0x", 2)}});
    EXPECT_THAT(faultOf(body("certificate", quoted(tq::certificateToPem(*cut)))), HasSubstr("does not name"));
}

TEST(ParseEnrollmentReply, RefusesAHostNameThatCannotBeUsed)
{
    const std::string request = tq::makeCertificateRequest(*pki().host.key, "h1");
    for (const char* name : {"", "a b", "a/b", "a\x1b[31m", "a\nb"}) {
        const tq::Certificate made =
            fakes::certify(pki().authority, request,
                           {.commonName = "h1", .dnsNames = {name}, .uris = {"urn:uuid:" + HOST_ID}});
        EXPECT_THAT(faultOf(body("certificate", quoted(tq::certificateToPem(*made)))),
                    HasSubstr("cannot be used"))
            << name;
    }
}

TEST(ParseEnrollmentReply, RefusesDamagedCertificates)
{
    EXPECT_THAT(faultOf(body("certificate", "\"no certificate\"")), HasSubstr("holds no certificate"));
    EXPECT_THAT(faultOf(body("caCertificates", "\"no certificate\"")), HasSubstr("\"caCertificates\" holds"));
    std::string damaged = pki().authority.pem();
    damaged[100] = damaged[100] == 'A' ? 'B' : 'A';
    damaged.insert(60, "!!");
    EXPECT_THAT(faultOf(body("caCertificates", quoted(pki().authority.pem() + damaged))),
                HasSubstr("\"caCertificates\" holds"));
}

TEST(IsUuid, TellsUuidsFromOtherTexts)
{
    EXPECT_TRUE(enroll::isUuid(HOST_ID));
    EXPECT_TRUE(enroll::isUuid("6F0F0000-1111-4222-8333-44445555ABCD"));
    for (const char* text : {"", "6f0f0000111142228333444455556666", "6f0f0000-1111-4222-8333-44445555666-",
                             "------------------------------------"})
        EXPECT_FALSE(enroll::isUuid(text)) << text;
}
