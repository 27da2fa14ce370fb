#include "platform/httpclient.h"

#include "platform/crypto.h"
#include "platform/identity_store.h"
#include "platform/paths.h"
#include "platform/token_store.h"
#include "tests/fakes/log/recording_log.h"
#include "tests/fakes/platform/linked_http_transport.h"
#include "tests/fakes/tls/test_pki.h"
#include "tests/fakes/tls/tls_test_server.h"

#include <ctime>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <unistd.h>

using fakes::answer;
using fakes::SeenRequest;
using fakes::ServerAnswer;
using fakes::TlsTestServer;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

constexpr const char* SERVER = "localhost";
const std::string TOKEN_FILE = std::string(TQ_IDENTITY_DIR) + "/token.host.localhost";

/// A master server that hands out numbered tokens and takes the ones that the test wants.
struct Master {
    std::string accepted = "token-1"; ///< the token that other requests need
    int tokensGiven = 0;
    ServerAnswer tokenAnswer; ///< instead of a token, when it has bytes or an end
    bool tokenFails = false;
    ServerAnswer otherAnswer = answer(200, R"({"hosts": []})");

    ServerAnswer operator()(const SeenRequest& request)
    {
        if (request.path == "/torquenix/security/tokens") {
            if (tokenFails)
                return tokenAnswer;
            ++tokensGiven;
            return answer(201,
                          R"({"token": "token-)" + std::to_string(tokensGiven) + R"(", "expiresIn": 3600})");
        }
        const bool known =
            request.head.find("Authorization: Bearer " + accepted + "\r\n") != std::string::npos;
        return known ? otherAnswer : answer(401, R"({"errorCode": 5, "errMessage": "token expired"})");
    }
};

struct Pki {
    fakes::Issued authority = fakes::makeSelfSigned(fakes::authorityOptions("authority"));
    fakes::Issued server = fakes::makeCertificate(authority, fakes::serverOptions());
    fakes::Issued host = fakes::makeCertificate(authority, {.commonName = "host"});
};

const Pki& pki()
{
    static const Pki made;
    return made;
}

class HttpClientTest : public ::testing::Test {
protected:
    HttpClientTest()
    {
        std::filesystem::remove_all(TQ_IDENTITY_DIR);
        EXPECT_EQ(tq::makeIdentityDirectory(), 0);
        tq::Identity identity;
        identity.server = SERVER;
        identity.hostId = "6f0f0000-1111-4222-8333-444455556666";
        identity.hostName = "h1.example";
        EXPECT_EQ(tq::saveIdentity(identity, {pki().host.pem(), pki().host.keyPem(), pki().authority.pem()}),
                  0);
        std::ofstream(TQ_CONFIG_FILE)
            << "WEB_CONNECT_SECONDS = 20\nWEB_TRANSFER_SECONDS = 30\nWEB_MAX_REPLY_MB = 1\n";
        fakes::recordedLog().clear();
        options_.chainPem = pki().server.pem();
        options_.keyPem = pki().server.keyPem();
        options_.clientAuthoritiesPem = pki().authority.pem();
        options_.clientCertificateRequired = true;
        start();
    }

    ~HttpClientTest() override
    {
        // Whatever happened, no secret may stand in the log.
        for (const fakes::RecordedEntry& entry : fakes::recordedLog()) {
            EXPECT_THAT(entry.text, Not(HasSubstr("token-")));
            EXPECT_THAT(entry.text, Not(HasSubstr("PRIVATE KEY")));
        }
        std::filesystem::remove(TQ_CONFIG_FILE);
    }

    /// Starts the server anew, on another port.
    void start()
    {
        server_.reset();
        server_ = std::make_unique<TlsTestServer>(
            options_, [this](const SeenRequest& request) { return master_(request); });
    }

    [[nodiscard]] std::unique_ptr<TQClientCURL> client(int port = 0, cert_type type = CERT_TYPE_HOST,
                                                       const std::string& name = SERVER) const
    {
        bool flag = false;
        return std::make_unique<TQClientCURL>(name, port == 0 ? server_->port() : port, type,
                                              TQ_CURL_SESSION_IDENTITY, nullptr, "", true, false, false, "",
                                              "", "", "", "", "", false, flag, "", 0);
    }

    static void storeToken(const std::string& text, std::int64_t expiresIn)
    {
        EXPECT_TRUE(tq::storeToken(TOKEN_FILE, {text, std::time(nullptr) + expiresIn}));
    }

    static void renewIdentity()
    {
        std::vector<tq::Identity> identities;
        ASSERT_EQ(tq::loadIdentityStore(identities), 0);
        ASSERT_EQ(tq::renewIdentity(identities.at(0),
                                    {pki().host.pem(), pki().host.keyPem(), pki().authority.pem()}),
                  0);
    }

    static std::string storedToken()
    {
        const auto token = tq::readToken(TOKEN_FILE);
        return token ? token->text : "none";
    }

    /// "METHOD path" of each request the server saw.
    [[nodiscard]] std::string requests() const
    {
        std::string all;
        for (const SeenRequest& request : server_->requests())
            all += request.method + ' ' + request.path + '\n';
        return all;
    }

    fakes::ServerOptions options_;
    Master master_;
    std::unique_ptr<TlsTestServer> server_;
};

constexpr const char* TOKEN_THEN_GET = "POST /torquenix/security/tokens\nGET /a\n";

} // namespace

TEST_F(HttpClientTest, ConstructingLoadsAndConnectsNothing)
{
    std::filesystem::remove_all(TQ_IDENTITY_DIR);
    const auto made = client();
    EXPECT_EQ(server_->connections(), 0);
    EXPECT_TRUE(fakes::recordedLog().empty());
    EXPECT_EQ(made->httpStatus, 0);
    EXPECT_EQ(made->responseBody, "");
}

TEST_F(HttpClientTest, AsksForATokenFirstAndBothShareAConnection)
{
    const auto made = client();
    EXPECT_EQ(made->Get("a"), 0);
    EXPECT_EQ(made->httpStatus, 200);
    EXPECT_EQ(made->responseBody, R"({"hosts": []})");
    EXPECT_EQ(requests(), TOKEN_THEN_GET);
    EXPECT_EQ(server_->connections(), 1);
    EXPECT_EQ(storedToken(), "token-1");
    EXPECT_TRUE(fakes::recordedLog().empty());
}

TEST_F(HttpClientTest, TheTokenRequestHasTheIdentityAndAnEmptyObjectAndNoOldToken)
{
    storeToken("token-0", -10);
    EXPECT_EQ(client()->Get("a"), 0);
    const SeenRequest asked = server_->requests()[0];
    EXPECT_EQ(asked.body, "{}");
    EXPECT_EQ(asked.clientCertificate, pki().host.pem());
    EXPECT_THAT(asked.head, HasSubstr("Content-Type: application/json\r\n"));
    EXPECT_THAT(asked.head, Not(HasSubstr("Authorization")));
}

TEST_F(HttpClientTest, AStoredTokenIsUsedWithoutAskingForOne)
{
    storeToken("token-1", 3600);
    const auto made = client();
    EXPECT_EQ(made->Put("a", "{\"x\": 1}"), 0);
    EXPECT_EQ(made->Post("b", "{}"), 0);
    EXPECT_EQ(made->Delete("c"), 0);
    EXPECT_EQ(requests(), "PUT /a\nPOST /b\nDELETE /c\n");
    EXPECT_EQ(server_->requests()[0].body, "{\"x\": 1}");
    EXPECT_EQ(server_->connections(), 1);
}

TEST_F(HttpClientTest, AnExpiredOrDamagedStoredTokenCountsAsNone)
{
    storeToken("token-0", -1);
    EXPECT_EQ(client()->Get("a"), 0);
    EXPECT_EQ(requests(), TOKEN_THEN_GET);
    EXPECT_TRUE(fakes::recordedLog().empty());

    start();
    master_.tokensGiven = 0;
    std::ofstream(TOKEN_FILE) << "damaged";
    EXPECT_EQ(client()->Get("a"), 0);
    EXPECT_EQ(requests(), TOKEN_THEN_GET);
    EXPECT_EQ(fakes::countRecorded(8, "token.host.localhost is damaged"), 1U);
    EXPECT_EQ(storedToken(), "token-1");
}

TEST_F(HttpClientTest, ExpiryIsAHintOnlyTheServerDecides)
{
    storeToken("token-0", 1'000'000'000); // the clock was far ahead when it was stored
    EXPECT_EQ(client()->Get("a"), 0);
    EXPECT_EQ(requests(), "GET /a\nPOST /torquenix/security/tokens\nGET /a\n");
    EXPECT_EQ(storedToken(), "token-1");
}

TEST_F(HttpClientTest, A401IsAnsweredByOneRenewalAndOneRepeat)
{
    storeToken("token-0", 3600);
    const auto made = client();
    EXPECT_EQ(made->Put("a", "{\"x\": 1}"), 0);
    EXPECT_EQ(made->httpStatus, 200);
    EXPECT_EQ(requests(), "PUT /a\nPOST /torquenix/security/tokens\nPUT /a\n");
    EXPECT_EQ(server_->requests()[2].body, "{\"x\": 1}");
    EXPECT_EQ(server_->connections(), 1);
    EXPECT_EQ(storedToken(), "token-1");
    EXPECT_TRUE(fakes::recordedLog().empty());
}

TEST_F(HttpClientTest, ASecond401AfterAGoodRenewalIsTheAnswer)
{
    master_.accepted = "none at all";
    storeToken("token-0", 3600);
    const auto made = client();
    EXPECT_EQ(made->Get("a"), 0);
    EXPECT_EQ(made->httpStatus, 401);
    EXPECT_THAT(made->responseBody, HasSubstr("token expired"));
    EXPECT_EQ(requests(), "GET /a\nPOST /torquenix/security/tokens\nGET /a\n");
    EXPECT_EQ(storedToken(), "token-1");
}

TEST_F(HttpClientTest, A401RightAfterTheFirstTokenIsRenewedOnceToo)
{
    master_.accepted = "token-2";
    const auto made = client();
    EXPECT_EQ(made->Get("a"), 0);
    EXPECT_EQ(made->httpStatus, 200);
    EXPECT_EQ(requests(), std::string(TOKEN_THEN_GET) + TOKEN_THEN_GET);
}

TEST_F(HttpClientTest, ARenewalThatFailsIs7625AndTheOldTokenStays)
{
    ServerAnswer reset;
    reset.reset = true;
    const ServerAnswer failures[] = {answer(403, R"({"errorCode": 9, "errMessage": "host is revoked"})"),
                                     answer(200, R"({"token": "token-9", "expiresIn": 5})"), // not 201
                                     answer(201, "<html>"),
                                     answer(201, R"({"token": "a\r\nb", "expiresIn": 5})"), reset};
    master_.tokenFails = true;
    for (const ServerAnswer& failure : failures) {
        start();
        master_.tokenAnswer = failure;
        fakes::recordedLog().clear();
        storeToken("token-0", 3600);
        const auto made = client();
        EXPECT_EQ(made->Get("a"), 7625) << failure.bytes;
        EXPECT_EQ(made->httpStatus, 0);
        EXPECT_EQ(made->responseBody, "");
        EXPECT_EQ(requests(), "GET /a\nPOST /torquenix/security/tokens\n");
        EXPECT_EQ(storedToken(), "token-0");
        ASSERT_EQ(fakes::recordedLog().size(), 1U);
        EXPECT_EQ(fakes::recordedLog()[0].level, 16);
        EXPECT_THAT(fakes::recordedLog()[0].text, HasSubstr("localhost"));
    }
}

TEST_F(HttpClientTest, NoFirstTokenIs7625AndTheRequestIsNotSent)
{
    master_.tokenFails = true;
    master_.tokenAnswer = answer(403, R"({"errorCode": 9, "errMessage": "host is revoked"})");
    EXPECT_EQ(client()->Get("a"), 7625);
    EXPECT_EQ(requests(), "POST /torquenix/security/tokens\n");
    ASSERT_EQ(fakes::recordedLog().size(), 1U);
    EXPECT_EQ(fakes::recordedLog()[0],
              (fakes::RecordedEntry{16,
                                    "Asking for an access token failed, server localhost, port " +
                                        std::to_string(server_->port()) +
                                        ": no access token, the server answered HTTP status 403 (host is "
                                        "revoked), status 7625\n",
                                    "TQClientCURL::Get"}));
}

TEST_F(HttpClientTest, AServerThatCannotBeReachedIsSaidSoAndNotCalledAMissingToken)
{
    EXPECT_EQ(client(fakes::closedPort())->Get("a"), 25);
    ASSERT_EQ(fakes::recordedLog().size(), 1U);
    EXPECT_EQ(fakes::recordedLog()[0].level, 16);
    EXPECT_THAT(fakes::recordedLog()[0].text, HasSubstr("server localhost"));
    EXPECT_THAT(fakes::recordedLog()[0].text, HasSubstr("no connection could be made"));
    EXPECT_EQ(client(fakes::closedPort())->refreshToken(), 25);
}

TEST_F(HttpClientTest, RefreshTokenAlwaysAsksAndStores)
{
    storeToken("token-0", 3600);
    const auto made = client();
    EXPECT_EQ(made->refreshToken(), 0);
    EXPECT_EQ(storedToken(), "token-1");
    EXPECT_EQ(made->refreshToken(), 0);
    EXPECT_EQ(storedToken(), "token-2");
    master_.accepted = "token-2";
    EXPECT_EQ(made->Get("a"), 0);
    EXPECT_EQ(made->httpStatus, 200);
    EXPECT_EQ(requests(), "POST /torquenix/security/tokens\nPOST /torquenix/security/tokens\nGET /a\n");
    EXPECT_EQ(server_->connections(), 1);
}

TEST_F(HttpClientTest, RefreshTokenThatFailsKeepsTheOldOne)
{
    storeToken("token-0", 3600);
    master_.tokenFails = true;
    master_.tokenAnswer = answer(500, "");
    EXPECT_EQ(client()->refreshToken(), 7625);
    EXPECT_EQ(storedToken(), "token-0");
    EXPECT_EQ(fakes::countRecorded(16, "HTTP status 500"), 1U);
}

TEST_F(HttpClientTest, ATokenThatCannotBeStoredStillServesThisClient)
{
    std::filesystem::create_directory(TOKEN_FILE);
    const auto made = client();
    EXPECT_EQ(made->Get("a"), 0);
    EXPECT_EQ(made->Get("a"), 0);
    EXPECT_EQ(requests(), std::string(TOKEN_THEN_GET) + "GET /a\n");
    EXPECT_GE(fakes::countRecorded(16, "token.host.localhost"), 1U);
}

TEST_F(HttpClientTest, FailuresOfTheIdentityAreItsStatuses)
{
    EXPECT_EQ(client(0, CERT_TYPE_CLUSTER)->Get("a"), 7612);
    EXPECT_EQ(client(0, CERT_TYPE_HOST, "other.example")->Get("a"), 7612);
    EXPECT_EQ(fakes::recordedLog().size(), 2U);
    EXPECT_EQ(fakes::countRecorded(16, "other.example"), 1U);

    fakes::recordedLog().clear();
    std::ofstream(std::string(TQ_IDENTITY_DIR) + "/identity.json") << "damaged";
    EXPECT_EQ(client()->Get("a"), 7611);
    EXPECT_EQ(fakes::recordedLog().size(), 1U);

    fakes::recordedLog().clear();
    std::filesystem::remove(std::string(TQ_IDENTITY_DIR) + "/identity.json");
    EXPECT_EQ(client()->refreshToken(), 7610);
    EXPECT_EQ(fakes::recordedLog().size(), 1U);
    EXPECT_EQ(server_->connections(), 0);
}

TEST_F(HttpClientTest, AClientWhoseIdentityWasMissingCanBeUsedOnceItIsThere)
{
    const std::string store = std::string(TQ_IDENTITY_DIR) + "/identity.json";
    std::filesystem::rename(store, store + ".away");
    const auto made = client();
    EXPECT_EQ(made->Get("a"), 7610);
    std::filesystem::rename(store + ".away", store);
    EXPECT_EQ(made->Get("a"), 0);
}

TEST_F(HttpClientTest, OwnFilesThatAreMissingAre7622)
{
    std::vector<tq::Identity> identities;
    ASSERT_EQ(tq::loadIdentityStore(identities), 0);
    std::filesystem::remove(tq::identityFiles(identities.at(0)).privateKey);
    EXPECT_EQ(client()->Get("a"), 7622);
    EXPECT_EQ(fakes::countRecorded(16, "localhost"), 1U);
}

TEST_F(HttpClientTest, AnIdentityThatIsRenewedBetweenTwoAttemptsServesTheSecond)
{
    const auto made = client();
    master_.tokenFails = true;
    master_.tokenAnswer.close = true;
    EXPECT_EQ(made->Get("a"), 7624);
    renewIdentity();
    master_.tokenFails = false;
    EXPECT_EQ(made->Get("a"), 0);
}

TEST_F(HttpClientTest, AnIdentityThatIsRenewedAsItsFilesAreLookedForIsLookedUpOnceMore)
{
    fakes::whenATransportOpens = renewIdentity;
    EXPECT_EQ(client()->Get("a"), 0);
    EXPECT_EQ(requests(), TOKEN_THEN_GET);
    EXPECT_TRUE(fakes::recordedLog().empty());
}

TEST_F(HttpClientTest, ATokenIsRenewedForAnIdentityThatIsRenewedAsItsFilesAreLookedFor)
{
    fakes::whenATransportOpens = renewIdentity;
    EXPECT_EQ(client()->refreshToken(), 0);
    EXPECT_EQ(master_.tokensGiven, 1);
    EXPECT_TRUE(fakes::recordedLog().empty());
}

TEST_F(HttpClientTest, AServerWithAnotherAuthorityIs7621AndSeesNoToken)
{
    storeToken("token-1", 3600);
    const fakes::Issued foreign = fakes::makeSelfSigned(fakes::authorityOptions("foreign"));
    const fakes::Issued certificate = fakes::makeCertificate(foreign, fakes::serverOptions());
    options_.chainPem = certificate.pem() + foreign.pem();
    options_.keyPem = certificate.keyPem();
    start();
    EXPECT_EQ(client()->Get("a"), 7621);
    EXPECT_EQ(requests(), "");
    ASSERT_EQ(fakes::recordedLog().size(), 1U);
    EXPECT_THAT(fakes::recordedLog()[0].text,
                HasSubstr("GET a failed, server localhost, port " + std::to_string(server_->port()) +
                          ": the server's certificate is not trusted (SSL certificate problem: "));
    EXPECT_EQ(storedToken(), "token-1");
}

TEST_F(HttpClientTest, TheLimitsOfTheConfigurationHold)
{
    std::ofstream(TQ_CONFIG_FILE) << "WEB_TRANSFER_SECONDS = 2\nWEB_MAX_REPLY_MB = 1\n";
    storeToken("token-1", 3600);
    master_.otherAnswer = answer(200, std::string((1U << 20U) + 1, 'x'));
    const auto made = client();
    EXPECT_EQ(made->Get("a"), 7623);

    master_.otherAnswer = {};
    master_.otherAnswer.silent = true;
    const std::time_t start = std::time(nullptr);
    EXPECT_EQ(made->Get("a"), 7620);
    EXPECT_GE(std::time(nullptr) - start, 1);
    EXPECT_LE(std::time(nullptr) - start, 15);
}

TEST_F(HttpClientTest, ARequestAfterAFailedOneStandsOnItsOwn)
{
    storeToken("token-1", 3600);
    ServerAnswer broken;
    broken.close = true;
    master_.otherAnswer = broken;
    const auto made = client();
    EXPECT_EQ(made->Get("a"), 7624);
    EXPECT_EQ(made->httpStatus, 0);
    master_.otherAnswer = answer(404, "gone");
    EXPECT_EQ(made->Get("a"), 0);
    EXPECT_EQ(made->httpStatus, 404);
    EXPECT_EQ(made->responseBody, "gone");
}

TEST_F(HttpClientTest, AnAnswerThatIsNoSuccessIsNotedWithTheServerAndTheHttpStatus)
{
    storeToken("token-1", 3600);
    const std::pair<ServerAnswer, const char*> cases[] = {
        {answer(503, ""), "HTTP status 503\n"},
        {answer(302, ""), "HTTP status 302\n"},
        {answer(204, ""), "HTTP status 204\n"},
        {answer(403, R"({"errorCode": 9, "errMessage": "no\u001b!"})"), "HTTP status 403 (no?!)\n"},
    };
    for (const auto& [given, words] : cases) {
        fakes::recordedLog().clear();
        master_.otherAnswer = given;
        EXPECT_EQ(client()->Get("a"), 0);
        EXPECT_EQ(fakes::countRecorded(8, "GET a, server " + std::string(SERVER) + ", port " +
                                              std::to_string(server_->port()) + ": answered " + words),
                  1U);
    }
    fakes::recordedLog().clear();
    master_.otherAnswer = answer(200, "{}");
    EXPECT_EQ(client()->Get("a"), 0);
    EXPECT_EQ(client()->Put("a", "{}"), 0);
    master_.otherAnswer = answer(201, "{}");
    EXPECT_EQ(client()->Post("a", "{}"), 0);
    master_.otherAnswer = answer(204, "");
    EXPECT_EQ(client()->Delete("a"), 0);
    EXPECT_EQ(fakes::countRecorded(8, "answered"), 0U);
}
