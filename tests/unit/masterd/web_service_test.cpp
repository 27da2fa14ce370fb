// The resources, without the network: who may do what, and what each request is answered.
#include "masterd/web_service.h"

#include "masterd/clock.h"
#include "masterd/data_folder.h"
#include "platform/json.h"
#include "tests/fakes/tls/test_pki.h"
#include "tests/unit/masterd/certificate_request.h"
#include "tests/unit/masterd/running_service.h"

#include <gtest/gtest.h>

namespace {

using masterd::IdentityType;
using masterd::WebReply;
using tests::jsonMember;
using tests::jsonObject;

const std::string HOSTS = "/torquenix/config/hosts";
const std::string ENROLLMENTS = "/torquenix/security/enrollments";
const std::string RENEWALS = "/torquenix/security/renewals";
const std::string TOKENS = "/torquenix/security/tokens";

/// A client with its identity.
struct Client {
    tq::Key key = tq::generateKey();
    std::string hostId;
    tq::Certificate certificate;
    std::string token;
};

class WebService : public testing::Test {
protected:
    WebService()
        : folder_(scratch_.file("data")), authority_(masterd::initDataFolder(folder_, {"localhost"})),
          store_(folder_.databaseFile()), settings_(folder_.settingsFile()),
          service_(authority_, store_, settings_)
    {
    }

    WebReply send(const std::string& method, const std::string& target, const std::string& body = "",
                  const X509* certificate = nullptr, const std::string& authorization = "")
    {
        return service_.handle({method, target, authorization, body, certificate});
    }
    WebReply send(const Client& client, const std::string& method, const std::string& target,
                  const std::string& body = "")
    {
        return send(method, target, body, client.certificate.get(), "Bearer " + client.token);
    }
    std::string invite(const std::string& hostName, std::int64_t seconds = 600)
    {
        return store_.invite(hostName, IdentityType::host, masterd::unixNow() + seconds).text();
    }
    WebReply enroll(const std::string& invitation, const std::string& request)
    {
        return send("POST", ENROLLMENTS,
                    jsonObject({{"invitation", invitation}, {"certificateRequest", request}}));
    }
    Client enrolled(const std::string& hostName)
    {
        Client client;
        const WebReply reply = enroll(invite(hostName), tq::makeCertificateRequest(*client.key, "x"));
        EXPECT_EQ(reply.status, 201) << reply.body;
        client.hostId = jsonMember(reply.body, "hostId");
        client.certificate = tq::parseCertificate(jsonMember(reply.body, "certificate"));
        client.token = jsonMember(send("POST", TOKENS, "{}", client.certificate.get()).body, "token");
        EXPECT_FALSE(client.token.empty());
        return client;
    }
    static void expectError(const WebReply& reply, int status)
    {
        EXPECT_EQ(reply.status, status) << reply.body;
        EXPECT_EQ(jsonMember(reply.body, "errorCode"), std::to_string(7000 + status)) << reply.body;
        EXPECT_FALSE(jsonMember(reply.body, "errMessage").empty()) << reply.body;
    }

    tests::ScratchDirectory scratch_;
    masterd::DataFolder folder_;
    masterd::Authority authority_;
    masterd::Store store_;
    masterd::SettingsFile settings_;
    masterd::WebService service_;
};

TEST_F(WebService, ErrorBodyIsJsonWhateverTheMessageHolds)
{
    expectError(masterd::errorReply(400, "a \"quoted\" \xff text\n"), 400);
}

TEST_F(WebService, EnrolmentGivesAnIdentityOfTheInvitedName)
{
    const Client host = enrolled("h1.example");
    const auto names = tq::readAlternativeNames(*host.certificate);
    EXPECT_EQ(names->dnsNames, std::vector<std::string>{"h1.example"});
    EXPECT_EQ(names->uris, std::vector<std::string>{"urn:uuid:" + host.hostId});
    EXPECT_EQ(store_.findIdentity(host.hostId)->hostName, "h1.example");
}

TEST_F(WebService, EnrolmentAgainKeepsTheHostIdUntilARevocation)
{
    const Client first = enrolled("h1");
    const Client second = enrolled("h1");
    EXPECT_EQ(second.hostId, first.hostId);
    EXPECT_EQ(tq::readAlternativeNames(*second.certificate)->uris,
              std::vector<std::string>{"urn:uuid:" + first.hostId});
    EXPECT_NE(enrolled("h2").hostId, first.hostId);
    store_.revoke("h1", masterd::unixNow());
    EXPECT_NE(enrolled("h1").hostId, first.hostId);
}

TEST_F(WebService, EnrolmentAnswersAuthorityAndTrustVersion)
{
    const tq::Key key = tq::generateKey();
    const WebReply reply = enroll(invite("h1"), tq::makeCertificateRequest(*key, "x"));
    EXPECT_EQ(jsonMember(reply.body, "caCertificates"), authority_.certificatePem());
    EXPECT_EQ(jsonMember(reply.body, "trustVersion"), "1");
    EXPECT_EQ(jsonMember(reply.body, "hostId").size(), 36U);
}

TEST_F(WebService, EnrolmentWithAnInvitationThatIsUnknownUsedOrExpiredIsForbidden)
{
    const tq::Key key = tq::generateKey();
    const std::string request = tq::makeCertificateRequest(*key, "x");
    const std::string used = invite("h1");
    EXPECT_EQ(enroll(used, request).status, 201);
    for (const std::string& invitation :
         {used, invite("h1", -1), masterd::makeSecret().text(), std::string("x")})
        expectError(enroll(invitation, request), 403);
}

TEST_F(WebService, EnrolmentWithABadRequestKeepsTheInvitation)
{
    const std::string invitation = invite("h1");
    const tq::Key key = tq::generateKey();
    const tq::Key weak(EVP_RSA_gen(1024));
    const tq::Key other = tq::generateKey();
    expectError(enroll(invitation, "junk"), 400);
    expectError(enroll(invitation, tests::toPem(*tests::greedyRequest(*weak, *weak))), 400);
    expectError(enroll(invitation, tests::toPem(*tests::greedyRequest(*key, *other))), 400);
    EXPECT_EQ(enroll(invitation, tests::toPem(*tests::greedyRequest(*key, *key))).status, 201);
}

TEST_F(WebService, EnrolmentWithoutItsTwoTextsIsABadRequest)
{
    for (const char* body :
         {"", "{", "[]", "{}", R"({"invitation":"x"})", R"({"invitation":1,"certificateRequest":"x"})"})
        expectError(send("POST", ENROLLMENTS, body), 400);
    expectError(send("POST", ENROLLMENTS, jsonObject({{"invitation", invite("h1")}})), 400);
}

TEST_F(WebService, WithoutAClientCertificateEverythingElseIsForbidden)
{
    for (const auto& [method, target] : {std::pair<std::string, std::string>{"POST", TOKENS},
                                         {"POST", RENEWALS},
                                         {"GET", HOSTS},
                                         {"POST", HOSTS},
                                         {"PUT", HOSTS + "/x"},
                                         {"DELETE", HOSTS + "/x"},
                                         {"GET", HOSTS + "/reloadconfig"},
                                         {"GET", ENROLLMENTS},
                                         {"GET", "/"},
                                         {"GET", "/%"},
                                         {"BREW", "/torquenix"}})
        expectError(send(method, target, "{}"), 403);
}

TEST_F(WebService, CertificateOfNobodyIsForbidden)
{
    fakes::CertificateOptions options;
    expectError(send("POST", TOKENS, "{}", fakes::makeSelfSigned(options).certificate.get()), 403);
    options.dnsNames = {"h1"};
    options.uris = {"urn:uuid:unknown"};
    expectError(send("POST", TOKENS, "{}", fakes::makeSelfSigned(options).certificate.get()), 403);
}

TEST_F(WebService, CertificateWithAnotherHostNameThanItsIdentitysIsForbidden)
{
    fakes::CertificateOptions options;
    options.dnsNames = {"h2"};
    options.uris = {"urn:uuid:" + enrolled("h1").hostId};
    expectError(send("POST", TOKENS, "{}", fakes::makeSelfSigned(options).certificate.get()), 403);
}

TEST_F(WebService, RevokedIdentityIsForbiddenEverythingAtOnce)
{
    const Client host = enrolled("h1");
    store_.revoke("h1", masterd::unixNow());
    expectError(send(host, "POST", TOKENS, "{}"), 403);
    expectError(send(host, "GET", HOSTS), 403);
    expectError(send(host, "PUT", HOSTS + '/' + host.hostId, "{}"), 403);
    expectError(send(host, "POST", RENEWALS,
                     jsonObject({{"certificateRequest", tq::makeCertificateRequest(*host.key, "x")}})),
                403);
}

TEST_F(WebService, TokenTellsHowLongItIsGood)
{
    const Client host = enrolled("h1");
    EXPECT_EQ(jsonMember(send(host, "POST", TOKENS, "{}").body, "expiresIn"), "3600");
    EXPECT_EQ(send(host, "POST", TOKENS, "").status, 201);
    expectError(send(host, "POST", TOKENS, "[]"), 400);
}

TEST_F(WebService, WithoutAGoodTokenEverythingButATokenIsUnauthorized)
{
    const Client host = enrolled("h1");
    const Client other = enrolled("h2");
    for (const std::string& authorization :
         {std::string(), std::string("Bearer "), std::string("Bearer x"), host.token, "Basic " + host.token,
          "Bearer " + masterd::makeSecret().text(), "Bearer " + other.token}) {
        expectError(send("GET", HOSTS, "", host.certificate.get(), authorization), 401);
        expectError(send("PUT", HOSTS + '/' + host.hostId, "{}", host.certificate.get(), authorization), 401);
        expectError(send("POST", RENEWALS, "{}", host.certificate.get(), authorization), 401);
        expectError(send("GET", "/nothing", "", host.certificate.get(), authorization), 401);
    }
    EXPECT_EQ(send(host, "GET", HOSTS).status, 200);
}

TEST_F(WebService, RenewalKeepsTheHostIdAndTakesTheNewKey)
{
    const Client host = enrolled("h1");
    const tq::Key fresh = tq::generateKey();
    const WebReply reply =
        send(host, "POST", RENEWALS,
             jsonObject({{"certificateRequest", tq::makeCertificateRequest(*fresh, "x")}}));
    EXPECT_EQ(reply.status, 200) << reply.body;
    EXPECT_EQ(jsonMember(reply.body, "hostId"), host.hostId);
    const tq::Certificate renewed = tq::parseCertificate(jsonMember(reply.body, "certificate"));
    ASSERT_TRUE(renewed);
    EXPECT_TRUE(tq::isKeyOfCertificate(*fresh, *renewed));
    EXPECT_EQ(send("GET", HOSTS, "", renewed.get(), "Bearer " + host.token).status, 200);
    expectError(send(host, "POST", RENEWALS, "{}"), 400);
}

TEST_F(WebService, PutStoresAndAnswersTheWholeHost)
{
    const Client host = enrolled("h1");
    const std::string head = R"({"uuid":")" + host.hostId + R"(","hostName":"h1")";
    const WebReply made = send(host, "PUT", HOSTS + '/' + host.hostId, R"({"osType":"a","machineType":"b"})");
    EXPECT_EQ(made.status, 200);
    EXPECT_EQ(made.body, head + R"(,"osType":"a","machineType":"b"})");
    EXPECT_EQ(send(host, "PUT", HOSTS + '/' + host.hostId, R"({"osType":"c","hostName":"evil"})").body,
              head + R"(,"osType":"c"})");
    EXPECT_EQ(send(host, "GET", HOSTS + '/' + host.hostId).body, head + R"(,"osType":"c"})");
}

TEST_F(WebService, PutThatIsRefusedStoresNothing)
{
    const Client host = enrolled("h1");
    for (const char* body :
         {"", "[]", "{", R"({"osType":1})", R"({"servers":"a"})", R"({"isSecureEnabled":"true"})"})
        expectError(send(host, "PUT", HOSTS + '/' + host.hostId, body), 400);
    expectError(send(host, "GET", HOSTS + '/' + host.hostId), 404);
}

TEST_F(WebService, PostMakesARecordOnce)
{
    const Client host = enrolled("h1");
    const WebReply made = send(host, "POST", HOSTS, R"({"osType":"a"})");
    EXPECT_EQ(made.status, 201);
    EXPECT_EQ(jsonMember(made.body, "uuid"), host.hostId);
    expectError(send(host, "POST", HOSTS, R"({"osType":"b"})"), 409);
    EXPECT_EQ(jsonMember(send(host, "GET", HOSTS + '/' + host.hostId).body, "osType"), "a");
    expectError(send(host, "POST", HOSTS, "[]"), 400);
}

TEST_F(WebService, HostReadsAllButWritesAndDeletesItsOwnRecordOnly)
{
    const Client host = enrolled("h1");
    const Client other = enrolled("h2");
    EXPECT_EQ(send(other, "PUT", HOSTS + '/' + other.hostId, "{}").status, 200);
    EXPECT_EQ(send(host, "GET", HOSTS + '/' + other.hostId).status, 200);
    expectError(send(host, "PUT", HOSTS + '/' + other.hostId, "{}"), 403);
    expectError(send(host, "DELETE", HOSTS + '/' + other.hostId), 403);
    expectError(send(host, "PUT", HOSTS + "/00000000-0000-4000-8000-000000000000", "{}"), 403);
    EXPECT_EQ(send(host, "GET", HOSTS + '/' + other.hostId).status, 200);
}

TEST_F(WebService, PathTricksDoNotReachAnotherRecord)
{
    const Client host = enrolled("h1");
    const Client other = enrolled("h2");
    EXPECT_EQ(send(other, "PUT", HOSTS + '/' + other.hostId, "{}").status, 200);
    for (const std::string& id :
         {host.hostId + "%2F" + other.hostId, host.hostId + "%00", host.hostId + "%2f..",
          other.hostId + "%00" + host.hostId, "%20" + host.hostId})
        expectError(send(host, "DELETE", HOSTS + '/' + id), 403);
    for (const std::string& tail :
         {'/' + host.hostId + "/../" + other.hostId, "/./" + host.hostId, '/' + host.hostId + '/'})
        expectError(send(host, "DELETE", HOSTS + tail), 404);
    EXPECT_EQ(send(host, "GET", HOSTS + '/' + other.hostId).status, 200);
}

TEST_F(WebService, EncodedHostIdIsTheSameHostId)
{
    const Client host = enrolled("h1");
    std::string encoded = "%";
    encoded += "0123456789abcdef"[host.hostId[0] >> 4];
    encoded += "0123456789abcdef"[host.hostId[0] & 15];
    EXPECT_EQ(send(host, "PUT", HOSTS + '/' + encoded + host.hostId.substr(1), "{}").status, 200);
}

TEST_F(WebService, DeleteEndsTheRecordAndTheNextPutMakesItAgain)
{
    const Client host = enrolled("h1");
    const std::string path = HOSTS + '/' + host.hostId;
    expectError(send(host, "DELETE", path), 404);
    EXPECT_EQ(send(host, "PUT", path, "{}").status, 200);
    const WebReply deleted = send(host, "DELETE", path);
    EXPECT_EQ(deleted.status, 204);
    EXPECT_EQ(deleted.body, "");
    expectError(send(host, "GET", path), 404);
    EXPECT_EQ(send(host, "PUT", path, "{}").status, 200);
}

TEST_F(WebService, ListIsInOrderOfHostNameWithAndWithoutTheLastSlash)
{
    const Client b = enrolled("b");
    const Client a = enrolled("a");
    send(b, "PUT", HOSTS + '/' + b.hostId, "{}");
    send(a, "PUT", HOSTS + '/' + a.hostId, "{}");
    const std::string expected = R"({"hosts":[{"uuid":")" + a.hostId + R"(","hostName":"a"},{"uuid":")" +
                                 b.hostId + R"(","hostName":"b"}]})";
    EXPECT_EQ(send(a, "GET", HOSTS).body, expected);
    EXPECT_EQ(send(a, "GET", HOSTS + '/').body, expected);
    EXPECT_EQ(send(a, "GET", HOSTS + '?').body, expected);
    EXPECT_EQ(send(a, "HEAD", HOSTS).body, expected);
}

TEST_F(WebService, FilterTakesOneNameAndAnyOtherIsABadRequest)
{
    const Client host = enrolled("h1");
    send(host, "PUT", HOSTS + '/' + host.hostId, "{}");
    const std::string one = R"({"hosts":[{"uuid":")" + host.hostId + R"(","hostName":"h1"}]})";
    EXPECT_EQ(send(host, "GET", HOSTS + "?filter=hostName%20eq%20'h1'").body, one);
    EXPECT_EQ(send(host, "GET", HOSTS + "/?filter=hostName%20eq%20%27h1%27").body, one);
    EXPECT_EQ(send(host, "GET", HOSTS + "?filter=hostName%20eq%20'h2'").body, R"({"hosts":[]})");
    for (const char* query :
         {"?filter=hostName%20ne%20'h1'", "?filter=", "?limit=1", "?filter=hostName%20eq%20h1"})
        expectError(send(host, "GET", HOSTS + query), 400);
}

TEST_F(WebService, OtherResourcesTakeNoQuery)
{
    const Client host = enrolled("h1");
    expectError(send(host, "PUT", HOSTS + '/' + host.hostId + "?force=1", "{}"), 400);
    expectError(send(host, "GET", HOSTS + "/reloadconfig?x"), 400);
}

TEST_F(WebService, ReloadReadsTheSettingsAgainFromEitherResource)
{
    const Client host = enrolled("h1");
    int lifetime = 100;
    for (const std::string& target : {HOSTS, std::string("/torquenix/security/settings")}) {
        tests::writeText(folder_.settingsFile(),
                         "{\"tokenLifetimeSeconds\": " + std::to_string(++lifetime) + "}");
        EXPECT_EQ(send(host, "GET", target + "/reloadconfig").status, 200);
        EXPECT_EQ(jsonMember(send(host, "POST", TOKENS, "{}").body, "expiresIn"), std::to_string(lifetime));
    }
}

TEST_F(WebService, ReloadOfFaultySettingsSaysWhyAndKeepsTheOldOnes)
{
    const Client host = enrolled("h1");
    tests::writeText(folder_.settingsFile(), "{\"tokenLifetimeSeconds\": 0}");
    const WebReply reply = send(host, "GET", HOSTS + "/reloadconfig");
    expectError(reply, 500);
    EXPECT_NE(reply.body.find("tokenLifetimeSeconds"), std::string::npos);
    EXPECT_EQ(jsonMember(send(host, "POST", TOKENS, "{}").body, "expiresIn"), "3600");
}

TEST_F(WebService, ReloadconfigIsNotAHostIdWhenItIsPut)
{
    const Client host = enrolled("h1");
    expectError(send(host, "PUT", HOSTS + "/reloadconfig", "{}"), 403);
}

TEST_F(WebService, UnknownResourceIsNotFoundAndAKnownOneKnowsItsMethods)
{
    const Client host = enrolled("h1");
    for (const std::string& target :
         {std::string("/"), std::string("/torquenix"), HOSTS + "/a/b", HOSTS + "//",
          std::string("//torquenix/config/hosts"), std::string("/TORQUENIX/config/hosts")})
        expectError(send(host, "GET", target), 404);
    expectError(send(host, "PUT", HOSTS, "{}"), 405);
    expectError(send(host, "PATCH", HOSTS + '/' + host.hostId, "{}"), 405);
    expectError(send(host, "GET", TOKENS), 405);
    expectError(send(host, "GET", "/%zz"), 400);
    expectError(send(host, "GET", "https://localhost/torquenix/config/hosts"), 400);
}

TEST_F(WebService, FailureInsideIsA500WithoutItsCause)
{
    const Client host = enrolled("h1");
    masterd::Database(folder_.databaseFile()).execute("DROP TABLE host");
    testing::internal::CaptureStderr();
    const WebReply reply = send(host, "GET", HOSTS);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("no such table"), std::string::npos);
    expectError(reply, 500);
    EXPECT_EQ(reply.body.find("table"), std::string::npos);
}

/// The records of a list that is handed out part by part.
std::size_t listedHosts(const WebReply& reply)
{
    std::string body = reply.body;
    for (std::string part = reply.nextPart(); !part.empty(); part = reply.nextPart())
        body += part;
    const tq::JsonRef document(json_loads(body.c_str(), 0, nullptr));
    return json_array_size(json_object_get(document.get(), "hosts"));
}

TEST_F(WebService, ListOfAFleetComesInParts)
{
    const Client host = enrolled("h1");
    const std::string record =
        "{\"osType\":\"" + std::string(masterd::HOST_LIST_PART_BYTES / 16, 'x') + "\"}";
    for (int i = 0; i < 20; ++i) {
        const Client other = enrolled("other" + std::to_string(i));
        EXPECT_EQ(send(other, "PUT", HOSTS + '/' + other.hostId, record).status, 200);
    }
    const WebReply reply = send(host, "GET", HOSTS);
    EXPECT_EQ(reply.status, 200);
    EXPECT_LT(reply.body.size(), masterd::HOST_LIST_PART_BYTES + record.size() + 200);
    ASSERT_TRUE(reply.nextPart);
    EXPECT_EQ(listedHosts(reply), 20U);
    EXPECT_EQ(reply.nextPart(), "");
}

TEST_F(WebService, ReplyNamesTheIdentityForTheLog)
{
    const Client host = enrolled("h1");
    EXPECT_EQ(send(host, "GET", HOSTS).identity, "h1/" + host.hostId);
    EXPECT_EQ(send("GET", HOSTS).identity, "");
}

} // namespace
