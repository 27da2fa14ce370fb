#include "platform/http_session.h"

#include "platform/crypto.h"
#include "tests/fakes/tls/test_pki.h"
#include "tests/fakes/tls/tls_test_server.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

using fakes::answer;
using fakes::SeenRequest;
using fakes::ServerAnswer;
using fakes::TlsTestServer;
using ::testing::HasSubstr;
using tq::HttpReply;
using tq::HttpRequest;
using tq::HttpSession;
using tq::TransferResult;

namespace {

const std::string FILES = "/tmp/http_session_test";

void write(const std::string& path, const std::string& text)
{
    std::ofstream(path) << text;
}

/// The authority of all good certificates here, a server and a host that have one.
struct Pki {
    fakes::Issued authority = fakes::makeSelfSigned(fakes::authorityOptions("authority"));
    fakes::Issued foreign = fakes::makeSelfSigned(fakes::authorityOptions("foreign authority"));
    fakes::Issued server = fakes::makeCertificate(authority, fakes::serverOptions());
    fakes::Issued host = fakes::makeCertificate(authority, {.commonName = "host"});
};

const Pki& pki()
{
    static const Pki made;
    return made;
}

fakes::ServerOptions serverWith(const fakes::Issued& certificate)
{
    fakes::ServerOptions options;
    options.chainPem = certificate.pem();
    options.keyPem = certificate.keyPem();
    return options;
}

ServerAnswer raw(const std::string& bytes)
{
    ServerAnswer made;
    made.bytes = bytes;
    made.close = true;
    return made;
}

TlsTestServer::Responder always(ServerAnswer given)
{
    return [given = std::move(given)](const SeenRequest&) { return given; };
}

tq::WebLimits shortLimits()
{
    tq::WebLimits limits;
    limits.connectMs = 1000;
    limits.totalMs = 5000;
    limits.stallSeconds = 2;
    limits.maxReplyBytes = 100'000;
    return limits;
}

tq::TlsTrust trustOwnAuthority()
{
    tq::TlsTrust trust;
    trust.authoritiesFile = FILES + "/ca";
    return trust;
}

tq::TlsTrust trustAndShow(const fakes::Issued& certificate)
{
    write(FILES + "/crt", certificate.pem());
    write(FILES + "/key", certificate.keyPem());
    tq::TlsTrust trust = trustOwnAuthority();
    trust.certificateFile = FILES + "/crt";
    trust.privateKeyFile = FILES + "/key";
    return trust;
}

struct Outcome {
    TransferResult result;
    HttpReply reply;
    double seconds = 0;
};

Outcome get(const TlsTestServer& server, const tq::TlsTrust& trust, const tq::WebLimits& limits,
            const std::string& name = "127.0.0.1")
{
    HttpSession session(name, server.port(), trust, limits);
    HttpRequest request;
    request.path = "torquenix/config/hosts";
    Outcome outcome;
    const auto start = std::chrono::steady_clock::now();
    outcome.result = session.send(request, outcome.reply);
    outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return outcome;
}

class HttpSessionTest : public ::testing::Test {
protected:
    HttpSessionTest()
    {
        std::filesystem::create_directories(FILES);
        write(FILES + "/ca", pki().authority.pem());
    }

    ~HttpSessionTest() override { std::filesystem::remove_all(FILES); }

    /// The outcome against a server with a good certificate and one answer.
    static Outcome getFrom(const ServerAnswer& given)
    {
        const TlsTestServer server(serverWith(pki().server), always(given));
        return get(server, trustOwnAuthority(), shortLimits());
    }

    /// The outcome against a server that shows a certificate of this kind.
    static Outcome getUnder(const fakes::Issued& certificate, const std::string& name = "127.0.0.1")
    {
        const TlsTestServer server(serverWith(certificate), always(answer(200, "{}")));
        Outcome outcome = get(server, trustOwnAuthority(), shortLimits(), name);
        EXPECT_EQ(server.requests().size(), outcome.result.status == 0 ? 1U : 0U);
        return outcome;
    }

    static fakes::Issued certificateFor(const std::vector<std::string>& names)
    {
        fakes::CertificateOptions options;
        options.commonName = "localhost";
        options.dnsNames = names;
        return fakes::makeCertificate(pki().authority, options);
    }
};

} // namespace

// --- requests that are answered
// -----------------------------------------------------------------------------

TEST_F(HttpSessionTest, HandsOutStatusAndBody)
{
    const Outcome outcome = getFrom(answer(200, R"({"hosts": []})"));
    EXPECT_EQ(outcome.result.status, 0) << outcome.result.cause;
    EXPECT_EQ(outcome.reply.status, 200);
    EXPECT_EQ(outcome.reply.body, R"({"hosts": []})");
}

TEST_F(HttpSessionTest, SendsItsHeadersAndNoOthers)
{
    const TlsTestServer server(serverWith(pki().server), always(answer(200, "{}")));
    HttpSession session("127.0.0.1", server.port(), trustOwnAuthority(), shortLimits());
    const std::string body = R"({"a": 1})";
    HttpReply reply;
    ASSERT_EQ(session.send({"PUT", "x y#z", &body, "secret"}, reply).status, 0);
    ASSERT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(server.requests()[0].head, "PUT /x%20y%23z HTTP/1.1\r\n"
                                         "Host: 127.0.0.1:" +
                                             std::to_string(server.port()) +
                                             "\r\n"
                                             "User-Agent: tqhostdbcmd/9.1.0.1\r\n"
                                             "Accept-Encoding: gzip\r\n"
                                             "Accept: application/json\r\n"
                                             "Content-Type: application/json\r\n"
                                             "Authorization: Bearer secret\r\n"
                                             "Content-Length: 8\r\n");
    EXPECT_EQ(server.requests()[0].body, body);
}

TEST_F(HttpSessionTest, EachMethodInTurnOverOneConnection)
{
    const TlsTestServer server(serverWith(pki().server), always(answer(200, "{}")));
    HttpSession session("127.0.0.1", server.port(), trustOwnAuthority(), shortLimits());
    const std::string body = "{}";
    HttpReply reply;
    EXPECT_EQ(session.send({"POST", "a", &body, ""}, reply).status, 0);
    EXPECT_EQ(session.send({"GET", "b", nullptr, ""}, reply).status, 0);
    EXPECT_EQ(session.send({"PUT", "c", &body, ""}, reply).status, 0);
    EXPECT_EQ(session.send({"DELETE", "d", nullptr, ""}, reply).status, 0);
    EXPECT_EQ(session.send({"GET", "e", nullptr, ""}, reply).status, 0);
    EXPECT_EQ(server.connections(), 1);
    std::string seen;
    for (const SeenRequest& request : server.requests())
        seen += request.method + request.path + request.body + ' ';
    EXPECT_EQ(seen, "POST/a{} GET/b PUT/c{} DELETE/d GET/e ");
    EXPECT_THAT(server.requests()[1].head, ::testing::Not(HasSubstr("Content-")));
    EXPECT_THAT(server.requests()[3].head, ::testing::Not(HasSubstr("Content-")));
}

TEST_F(HttpSessionTest, DotsInThePathAreNotFolded)
{
    const TlsTestServer server(serverWith(pki().server), always(answer(200, "{}")));
    HttpSession session("127.0.0.1", server.port(), trustOwnAuthority(), shortLimits());
    HttpReply reply;
    ASSERT_EQ(session.send({"GET", "a/../b/./c", nullptr, ""}, reply).status, 0);
    EXPECT_EQ(server.requests()[0].path, "/a/../b/./c");
}

TEST_F(HttpSessionTest, ALargeBodyIsSentWithoutAskingFirst)
{
    const TlsTestServer server(serverWith(pki().server), always(answer(200, "{}")));
    HttpSession session("127.0.0.1", server.port(), trustOwnAuthority(), shortLimits());
    const std::string body(2'000'000, 'x');
    HttpReply reply;
    ASSERT_EQ(session.send({"PUT", "a", &body, ""}, reply).status, 0);
    EXPECT_EQ(server.requests()[0].body.size(), body.size());
    EXPECT_THAT(server.requests()[0].head, ::testing::Not(HasSubstr("Expect")));
}

TEST_F(HttpSessionTest, ErrorStatusesAreAnswersAndRetryAfterIsIgnored)
{
    for (const int status : {204, 304, 400, 401, 403, 404, 409, 413, 429, 500, 502, 503}) {
        const Outcome outcome = getFrom(raw("HTTP/1.1 " + std::to_string(status) +
                                            " X\r\nRetry-After: 1000000000000\r\nContent-Length: 0\r\n\r\n"));
        EXPECT_EQ(outcome.result.status, 0) << status << outcome.result.cause;
        EXPECT_EQ(outcome.reply.status, status);
        EXPECT_LT(outcome.seconds, 2) << status;
    }
}

TEST_F(HttpSessionTest, ABodyThatEndsWithTheConnectionIsTakenAsItCame)
{
    const Outcome outcome = getFrom(raw("HTTP/1.1 200 OK\r\n\r\n{\"hosts\": ["));
    EXPECT_EQ(outcome.result.status, 0);
    EXPECT_EQ(outcome.reply.body, "{\"hosts\": [");
}

TEST_F(HttpSessionTest, NulBytesInABodyAreKept)
{
    const Outcome outcome = getFrom(answer(200, std::string("a\0b", 3)));
    EXPECT_EQ(outcome.reply.body, std::string("a\0b", 3));
}

// --- redirects
// ------------------------------------------------------------------------------------------------

TEST_F(HttpSessionTest, NoRedirectIsFollowed)
{
    const TlsTestServer target(serverWith(pki().server), always(answer(200, "{}")));
    const std::string port = std::to_string(target.port());
    for (const std::string& place : {"https://127.0.0.1:" + port + "/", "http://127.0.0.1:" + port + "/",
                                     std::string("file:///etc/passwd"), std::string("/elsewhere")}) {
        for (const int status : {301, 302, 303, 307, 308}) {
            const TlsTestServer server(serverWith(pki().server),
                                       always(raw("HTTP/1.1 " + std::to_string(status) + " X\r\nLocation: " +
                                                  place + "\r\nContent-Length: 0\r\n\r\n")));
            const Outcome outcome = get(server, trustOwnAuthority(), shortLimits());
            EXPECT_EQ(outcome.result.status, 0);
            EXPECT_EQ(outcome.reply.status, status);
            EXPECT_EQ(server.requests().size(), 1U);
        }
    }
    EXPECT_EQ(target.connections(), 0);
}

// --- replies that are broken
// ----------------------------------------------------------------------------------

TEST_F(HttpSessionTest, BrokenRepliesAre7624)
{
    const std::string head = "HTTP/1.1 200 OK\r\n";
    const std::string broken[] = {
        "",                                                               // closed without a byte
        head + "Content-Length: 100\r\n\r\n{}",                           // cut off
        head + "Content-Length: -5\r\n\r\n{}",                            // negative length
        head + "Transfer-Encoding: chunked\r\n\r\nzz\r\n{}\r\n",          // bad chunk size
        head + "Transfer-Encoding: chunked\r\n\r\n5\r\n{}",               // cut off within a chunk
        head + "Content-Encoding: gzip\r\nContent-Length: 4\r\n\r\nabcd", // no gzip
        "{\"hosts\": []}\n",                                              // HTTP/0.9
        "garbage\r\n\r\n",
        "HTTP/9.9 200 OK\r\n\r\n",
        "HTTP/1.1 abc\r\n\r\n",
        head + std::string("X-A: a\0b\r\n", 10) + "Content-Length: 2\r\n\r\n{}", // NUL in a header
    };
    for (const std::string& bytes : broken) {
        const Outcome outcome = getFrom(raw(bytes));
        EXPECT_EQ(outcome.result.status, 7624) << bytes << outcome.result.cause;
        EXPECT_EQ(outcome.reply.status, 0) << bytes;
    }
}

TEST_F(HttpSessionTest, AResetInPlaceOfAReplyIs7624)
{
    ServerAnswer given;
    given.reset = true;
    EXPECT_EQ(getFrom(given).result.status, 7624);
}

TEST_F(HttpSessionTest, ARequestOnAKeptConnectionThatBreaksIsNotSentAgain)
{
    const TlsTestServer server(serverWith(pki().server), [](const SeenRequest& request) {
        ServerAnswer broken;
        broken.close = true;
        return request.path == "/first" ? answer(200, "{}") : broken;
    });
    HttpSession session("127.0.0.1", server.port(), trustOwnAuthority(), shortLimits());
    HttpReply reply;
    ASSERT_EQ(session.send({"GET", "first", nullptr, ""}, reply).status, 0);
    const std::string body = "{}";
    const TransferResult result = session.send({"PUT", "second", &body, ""}, reply);
    EXPECT_EQ(result.status, 7624) << result.cause;
    EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(HttpSessionTest, AConnectionThatTheServerClosedInBetweenIsReplaced)
{
    ServerAnswer closing = answer(200, "{}");
    closing.close = true;
    const TlsTestServer server(serverWith(pki().server), always(closing));
    HttpSession session("127.0.0.1", server.port(), trustOwnAuthority(), shortLimits());
    HttpReply reply;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(session.send({"GET", "a", nullptr, ""}, reply).status, 0);
        usleep(100'000);
    }
    EXPECT_EQ(server.connections(), 3);
}

// --- limits
// ---------------------------------------------------------------------------------------------------

TEST_F(HttpSessionTest, AReplyOfJustTheLimitPassesAndOneByteMoreIs7623)
{
    EXPECT_EQ(getFrom(answer(200, std::string(100'000, 'x'))).reply.body.size(), 100'000U);
    const Outcome over = getFrom(answer(200, std::string(100'001, 'x')));
    EXPECT_EQ(over.result.status, 7623);
    EXPECT_TRUE(over.reply.body.empty());
}

TEST_F(HttpSessionTest, AnEndlessBodyIsCutOff)
{
    ServerAnswer body = raw("HTTP/1.1 200 OK\r\n\r\n");
    body.endless = std::string(16'000, 'x');
    EXPECT_EQ(getFrom(body).result.status, 7623);

    ServerAnswer chunks = raw("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
    chunks.endless = "a\r\n0123456789\r\n";
    EXPECT_EQ(getFrom(chunks).result.status, 7623);
}

/// 300,000 blanks under gzip.
std::string gzipBomb()
{
    std::system("head -c 300000 /dev/zero | tr '\\0' ' ' | gzip -9 > /tmp/http_session_test/bomb"); // NOLINT
    std::ostringstream text;
    text << std::ifstream(FILES + "/bomb").rdbuf();
    return text.str();
}

TEST_F(HttpSessionTest, DecodedBytesCountAgainstTheLimit)
{
    const std::string bomb = gzipBomb();
    ASSERT_LT(bomb.size(), 1000U);
    const std::string length = "Content-Length: " + std::to_string(bomb.size()) + "\r\n\r\n";
    EXPECT_EQ(getFrom(raw("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\n" + length + bomb)).result.status,
              7623);
    EXPECT_EQ(getFrom(raw("HTTP/1.1 200 OK\r\nTransfer-Encoding: gzip\r\n\r\n" + bomb)).result.status, 7623);
}

TEST_F(HttpSessionTest, AGzipReplyIsDecoded)
{
    const std::string bomb = gzipBomb();
    const TlsTestServer server(serverWith(pki().server),
                               always(raw("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: " +
                                          std::to_string(bomb.size()) + "\r\n\r\n" + bomb)));
    tq::WebLimits limits = shortLimits();
    limits.maxReplyBytes = 300'000;
    EXPECT_EQ(get(server, trustOwnAuthority(), limits).reply.body, std::string(300'000, ' '));
}

TEST_F(HttpSessionTest, FloodsOfHeadersAreCutOff)
{
    ServerAnswer headers = raw("HTTP/1.1 200 OK\r\n");
    headers.endless = "X-Flood: 0123456789\r\n";
    EXPECT_EQ(getFrom(headers).result.status, 7623);

    for (const char* interim : {"HTTP/1.1 100 Continue\r\n\r\n", "HTTP/1.1 103 Early Hints\r\n\r\n"}) {
        ServerAnswer flood = raw("");
        flood.endless = interim;
        EXPECT_EQ(getFrom(flood).result.status, 7623) << interim;
    }
}

TEST_F(HttpSessionTest, OneEndlessHeaderIsCutOff)
{
    ServerAnswer header = raw("HTTP/1.1 200 OK\r\nX-Endless: ");
    header.endless = std::string(16'000, 'x');
    const Outcome outcome = getFrom(header);
    EXPECT_EQ(outcome.result.status, 7624) << outcome.result.cause;
    EXPECT_LT(outcome.seconds, 4);
}

TEST_F(HttpSessionTest, SilenceEndsAtTheStallLimit)
{
    ServerAnswer nothing;
    nothing.silent = true;
    ServerAnswer inBody = raw("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{");
    inBody.silent = true;
    for (const ServerAnswer& given : {nothing, inBody}) {
        const Outcome outcome = getFrom(given);
        EXPECT_EQ(outcome.result.status, 7620) << outcome.result.cause;
        EXPECT_GT(outcome.seconds, 1.5);
        EXPECT_LT(outcome.seconds, 4.5);
    }
}

TEST_F(HttpSessionTest, ABodyThatTricklesEndsAtTheTotalLimit)
{
    ServerAnswer trickle = raw("HTTP/1.1 200 OK\r\nContent-Length: 10000\r\n\r\n");
    trickle.endless = "x";
    trickle.endlessDelayMs = 100;
    const TlsTestServer server(serverWith(pki().server), always(trickle));
    tq::WebLimits limits = shortLimits();
    limits.totalMs = 1500;
    const Outcome outcome = get(server, trustOwnAuthority(), limits);
    EXPECT_EQ(outcome.result.status, 7620) << outcome.result.cause;
    EXPECT_GT(outcome.seconds, 1.2);
    EXPECT_LT(outcome.seconds, 3);
}

TEST_F(HttpSessionTest, SilenceInTheHandshakeEndsAtTheConnectLimit)
{
    fakes::ServerOptions options;
    options.silent = true;
    const TlsTestServer server(options, nullptr);
    const Outcome outcome = get(server, trustOwnAuthority(), shortLimits());
    EXPECT_EQ(outcome.result.status, 7620) << outcome.result.cause;
    EXPECT_LT(outcome.seconds, 2.5);
}

TEST(WebLimits, ComeFromTheSettings)
{
    tq::PlatformSettings settings;
    settings.webConnectSeconds = 3;
    settings.webTransferSeconds = 7;
    settings.webMaxReplyMegabytes = 2;
    const tq::WebLimits limits = tq::webLimits(settings);
    EXPECT_EQ(limits.connectMs, 3000);
    EXPECT_EQ(limits.totalMs, 7000);
    EXPECT_EQ(limits.stallSeconds, 60);
    EXPECT_EQ(limits.maxReplyBytes, 2U << 20U);
}

// --- connections that cannot be made
// --------------------------------------------------------------------------

TEST_F(HttpSessionTest, ARefusedConnectionAndAnUnknownNameAre25)
{
    HttpReply reply;
    HttpSession refused("127.0.0.1", fakes::closedPort(), trustOwnAuthority(), shortLimits());
    const TransferResult result = refused.send({"GET", "a", nullptr, ""}, reply);
    EXPECT_EQ(result.status, 25);
    EXPECT_THAT(result.cause, HasSubstr("the server cannot be reached"));

    HttpSession unknown("no-such-host.invalid", 1556, trustOwnAuthority(), shortLimits());
    EXPECT_EQ(unknown.send({"GET", "a", nullptr, ""}, reply).status, 25);
}

TEST_F(HttpSessionTest, ANameThatCannotStandInAUrlConnectsNowhere)
{
    const TlsTestServer server(serverWith(pki().server), always(answer(200, "{}")));
    for (const char* name : {"x@127.0.0.1", "127.0.0.1/x", "127.0.0.1?", ""}) {
        EXPECT_EQ(get(server, trustOwnAuthority(), shortLimits(), name).result.status, 7626) << name;
    }
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(HttpSessionTest, ATokenWithALineEndIsNotSent)
{
    const TlsTestServer server(serverWith(pki().server), always(answer(200, "{}")));
    HttpSession session("127.0.0.1", server.port(), trustOwnAuthority(), shortLimits());
    HttpReply reply;
    for (const std::string& token : {std::string("a\r\nX: b"), std::string("a\n"), std::string("a\0b", 3)})
        EXPECT_EQ(session.send({"GET", "a", nullptr, token}, reply).status, 7626);
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(HttpSessionTest, PlainHttpAndGarbageInPlaceOfTlsAre7621)
{
    std::string alertFlood;
    for (int i = 0; i < 2340; ++i)
        alertFlood += std::string("\x15\x03\x03\x00\x02\x01\x00", 7); // warning: close notify
    for (const std::string& greeting : {std::string("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n"),
                                        std::string("garbage"), std::string(20'000, 'x'), alertFlood}) {
        fakes::ServerOptions options;
        options.greeting = greeting;
        const TlsTestServer server(options, nullptr);
        const Outcome outcome = get(server, trustOwnAuthority(), shortLimits());
        EXPECT_EQ(outcome.result.status, 7621) << greeting.substr(0, 20) << outcome.result.cause;
    }
}

TEST_F(HttpSessionTest, OldTlsVersionsAreRefused)
{
    for (const int version : {TLS1_VERSION, TLS1_1_VERSION}) {
        fakes::ServerOptions options = serverWith(pki().server);
        options.minVersion = TLS1_VERSION;
        options.maxVersion = version;
        const TlsTestServer server(options, always(answer(200, "{}")));
        EXPECT_EQ(get(server, trustOwnAuthority(), shortLimits()).result.status, 7621) << version;
        EXPECT_TRUE(server.requests().empty());
    }
}

TEST_F(HttpSessionTest, Tls12And13AreTaken)
{
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        fakes::ServerOptions options = serverWith(pki().server);
        options.minVersion = version;
        options.maxVersion = version;
        const TlsTestServer server(options, always(answer(200, "{}")));
        EXPECT_EQ(get(server, trustOwnAuthority(), shortLimits()).result.status, 0) << version;
    }
}

TEST_F(HttpSessionTest, WeakCiphersAndKeysAreRefused)
{
    fakes::ServerOptions weak = serverWith(pki().server);
    weak.maxVersion = TLS1_2_VERSION;
    weak.insecureCiphers = "aNULL:eNULL:@SECLEVEL=0";
    const TlsTestServer server(weak, always(answer(200, "{}")));
    EXPECT_EQ(get(server, trustOwnAuthority(), shortLimits()).result.status, 7621);

    fakes::CertificateOptions smallKey = fakes::serverOptions();
    smallKey.rsaBits = 1024;
    EXPECT_EQ(getUnder(fakes::makeCertificate(pki().authority, smallKey)).result.status, 7621);
}

// --- whom a session trusts
// ------------------------------------------------------------------------------------

TEST_F(HttpSessionTest, UntrustedCertificatesAreRefusedAndTheTextSaysWhy)
{
    fakes::CertificateOptions expired = fakes::serverOptions();
    expired.startSeconds = -7200;
    expired.endSeconds = -3600;
    const Outcome past = getUnder(fakes::makeCertificate(pki().authority, expired));
    EXPECT_EQ(past.result.status, 7621);
    EXPECT_THAT(past.result.cause, HasSubstr("certificate has expired"));

    fakes::CertificateOptions early = fakes::serverOptions();
    early.startSeconds = 3600;
    early.endSeconds = 7200;
    const Outcome future = getUnder(fakes::makeCertificate(pki().authority, early));
    EXPECT_EQ(future.result.status, 7621);
    EXPECT_THAT(future.result.cause, HasSubstr("not yet valid"));

    const Outcome selfSigned = getUnder(fakes::makeSelfSigned(fakes::serverOptions()));
    EXPECT_EQ(selfSigned.result.status, 7621);
    EXPECT_THAT(selfSigned.result.cause, HasSubstr("self-signed certificate"));

    const Outcome foreign = getUnder(fakes::makeCertificate(pki().foreign, fakes::serverOptions()));
    EXPECT_EQ(foreign.result.status, 7621);
    EXPECT_THAT(foreign.result.cause, HasSubstr("unable to get local issuer certificate"));

    fakes::CertificateOptions client = fakes::serverOptions();
    client.extendedKeyUsage = "clientAuth";
    const Outcome purpose = getUnder(fakes::makeCertificate(pki().authority, client));
    EXPECT_EQ(purpose.result.status, 7621);
    EXPECT_THAT(purpose.result.cause, HasSubstr("unsuitable certificate purpose"));
}

TEST_F(HttpSessionTest, AnIssuerThatIsNoAuthorityIsRefused)
{
    fakes::CertificateOptions options = fakes::authorityOptions("between");
    options.authority = false;
    const fakes::Issued between = fakes::makeCertificate(pki().authority, options);
    const fakes::Issued leaf = fakes::makeCertificate(between, fakes::serverOptions());
    fakes::ServerOptions server = serverWith(leaf);
    server.chainPem = leaf.pem() + between.pem() + pki().authority.pem();
    const TlsTestServer chain(server, always(answer(200, "{}")));
    EXPECT_EQ(get(chain, trustOwnAuthority(), shortLimits()).result.status, 7621);

    write(FILES + "/ca", between.pem());
    EXPECT_EQ(get(chain, trustOwnAuthority(), shortLimits()).result.status, 7621);
    EXPECT_TRUE(chain.requests().empty());
}

TEST_F(HttpSessionTest, AnIntermediateAuthorityIsFollowed)
{
    const fakes::Issued between = fakes::makeCertificate(pki().authority, fakes::authorityOptions("between"));
    const fakes::Issued leaf = fakes::makeCertificate(between, fakes::serverOptions());
    fakes::ServerOptions server = serverWith(leaf);
    server.chainPem = leaf.pem() + between.pem();
    const TlsTestServer chain(server, always(answer(200, "{}")));
    EXPECT_EQ(get(chain, trustOwnAuthority(), shortLimits()).result.status, 0);
}

TEST_F(HttpSessionTest, TheServersNameMustStandInFullInItsNames)
{
    EXPECT_EQ(getUnder(certificateFor({"localhost"}), "localhost").result.status, 0);
    EXPECT_EQ(getUnder(certificateFor({"other", "localhost"}), "localhost").result.status, 0);

    const Outcome wrong = getUnder(certificateFor({"other.example"}), "localhost");
    EXPECT_EQ(wrong.result.status, 7621);
    EXPECT_THAT(wrong.result.cause, HasSubstr("ostname mismatch"));
    EXPECT_EQ(getUnder(certificateFor({}), "localhost").result.status, 7621) << "common name only";
    EXPECT_EQ(getUnder(certificateFor({"*"}), "localhost").result.status, 7621) << "wildcard";
    EXPECT_EQ(
        getUnder(certificateFor({std::string("localhost\0.evil.example", 23)}), "localhost").result.status,
        7621)
        << "NUL in a name";
}

TEST_F(HttpSessionTest, AWildcardOfADomainIsRefused)
{
    // "a.localhost" resolves to the loopback address inside libcurl itself.
    EXPECT_EQ(getUnder(certificateFor({"a.localhost"}), "a.localhost").result.status, 0);
    EXPECT_EQ(getUnder(certificateFor({"*.localhost"}), "a.localhost").result.status, 7621);
}

TEST_F(HttpSessionTest, AnAddressNeedsAnAddressAmongTheNames)
{
    EXPECT_EQ(getUnder(pki().server, "127.0.0.1").result.status, 0);
    EXPECT_EQ(getUnder(certificateFor({"localhost", "127.0.0.1"}), "127.0.0.1").result.status, 7621);
}

TEST_F(HttpSessionTest, AnAuthorityOfTheSystemIsNotTrusted)
{
    // The sandbox's own folder, where libcurl and OpenSSL look by default.
    const std::string folder = "/etc/ssl/certs/";
    char hash[32];
    snprintf(hash, sizeof(hash), "%08lx.0", X509_subject_name_hash(pki().foreign.certificate.get()));
    write(folder + hash, pki().foreign.pem());
    write(folder + "ca-certificates.crt", pki().foreign.pem());
    ASSERT_TRUE(std::filesystem::exists(folder + hash));
    const Outcome outcome = getUnder(fakes::makeCertificate(pki().foreign, fakes::serverOptions()));
    EXPECT_EQ(outcome.result.status, 7621);

    tq::TlsTrust inMemory;
    inMemory.authoritiesPem = pki().authority.pem();
    const TlsTestServer server(serverWith(fakes::makeCertificate(pki().foreign, fakes::serverOptions())),
                               always(answer(200, "{}")));
    EXPECT_EQ(get(server, inMemory, shortLimits()).result.status, 7621);
    std::filesystem::remove(folder + hash);
    std::filesystem::remove(folder + "ca-certificates.crt");
}

TEST_F(HttpSessionTest, AuthoritiesInMemoryAreTrustedToo)
{
    const TlsTestServer server(serverWith(pki().server), always(answer(200, "{}")));
    tq::TlsTrust trust;
    trust.authoritiesPem = pki().authority.pem();
    EXPECT_EQ(get(server, trust, shortLimits()).result.status, 0);
}

TEST_F(HttpSessionTest, WithoutUsableAuthoritiesNothingIsTrusted)
{
    const TlsTestServer server(serverWith(pki().server), always(answer(200, "{}")));
    tq::TlsTrust none;
    EXPECT_NE(get(server, none, shortLimits()).result.status, 0);
    for (const char* text : {"", "no certificate"}) {
        write(FILES + "/ca", text);
        EXPECT_NE(get(server, trustOwnAuthority(), shortLimits()).result.status, 0);
    }
    std::filesystem::remove(FILES + "/ca");
    EXPECT_NE(get(server, trustOwnAuthority(), shortLimits()).result.status, 0);
    EXPECT_TRUE(server.requests().empty());
}

// --- what a session shows of itself
// ---------------------------------------------------------------------------

TEST_F(HttpSessionTest, TheServerSeesTheCertificate)
{
    fakes::ServerOptions options = serverWith(pki().server);
    options.clientAuthoritiesPem = pki().authority.pem();
    options.clientCertificateRequired = true;
    const TlsTestServer server(options, always(answer(200, "{}")));
    EXPECT_EQ(get(server, trustAndShow(pki().host), shortLimits()).result.status, 0);
    ASSERT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(server.requests()[0].clientCertificate, pki().host.pem());
}

TEST_F(HttpSessionTest, AServerWithoutInterestOrWithManyAuthoritiesIsServed)
{
    const TlsTestServer open(serverWith(pki().server), always(answer(200, "{}")));
    EXPECT_EQ(get(open, trustAndShow(pki().host), shortLimits()).result.status, 0);

    fakes::ServerOptions many = serverWith(pki().server);
    for (int i = 0; i < 200; ++i)
        many.clientAuthoritiesPem +=
            fakes::makeSelfSigned(fakes::authorityOptions("authority " + std::to_string(i))).pem();
    many.clientAuthoritiesPem += pki().authority.pem();
    const TlsTestServer offers(many, always(answer(200, "{}")));
    EXPECT_EQ(get(offers, trustAndShow(pki().host), shortLimits()).result.status, 0);
}

TEST_F(HttpSessionTest, ARefusedOrMissingCertificateIs7622InBothTlsVersions)
{
    fakes::CertificateOptions ended{.commonName = "host"};
    ended.startSeconds = -7200;
    ended.endSeconds = -3600;
    fakes::CertificateOptions wrongUse{.commonName = "host"};
    wrongUse.extendedKeyUsage = "serverAuth";
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        fakes::ServerOptions options = serverWith(pki().server);
        options.clientAuthoritiesPem = pki().authority.pem();
        options.clientCertificateRequired = true;
        options.minVersion = version;
        options.maxVersion = version;
        const TlsTestServer server(options, always(answer(200, "{}")));
        const fakes::Issued unknown = fakes::makeCertificate(pki().foreign, {.commonName = "host"});
        const fakes::Issued expired = fakes::makeCertificate(pki().authority, ended);
        const fakes::Issued misused = fakes::makeCertificate(pki().authority, wrongUse);
        for (const fakes::Issued* shown : {&unknown, &expired, &misused}) {
            const Outcome outcome = get(server, trustAndShow(*shown), shortLimits());
            EXPECT_EQ(outcome.result.status, 7622)
                << version << (shown == &unknown) << (shown == &expired) << outcome.result.cause;
        }
        EXPECT_TRUE(server.requests().empty());
    }
}

TEST_F(HttpSessionTest, AMissingCertificateWhereOneIsRequiredIs7622InTls13)
{
    fakes::ServerOptions options = serverWith(pki().server);
    options.clientAuthoritiesPem = pki().authority.pem();
    options.clientCertificateRequired = true;
    const TlsTestServer server(options, always(answer(200, "{}")));
    const Outcome outcome = get(server, trustOwnAuthority(), shortLimits());
    EXPECT_EQ(outcome.result.status, 7622) << outcome.result.cause;
}

TEST_F(HttpSessionTest, OwnFilesThatCannotBeUsedAre7622WithoutARequest)
{
    const TlsTestServer server(serverWith(pki().server), always(answer(200, "{}")));
    const fakes::Issued other = fakes::makeCertificate(pki().authority, {.commonName = "other"});

    tq::TlsTrust mismatch = trustAndShow(pki().host);
    write(FILES + "/key", other.keyPem());
    EXPECT_EQ(get(server, mismatch, shortLimits()).result.status, 7622) << "key of another certificate";

    write(FILES + "/key", "no key");
    EXPECT_EQ(get(server, mismatch, shortLimits()).result.status, 7622) << "damaged key";

    const tq::TlsTrust good = trustAndShow(pki().host);
    write(FILES + "/crt", "");
    EXPECT_EQ(get(server, good, shortLimits()).result.status, 7622) << "empty certificate";

    std::filesystem::remove(FILES + "/crt");
    EXPECT_EQ(get(server, good, shortLimits()).result.status, 7622) << "no certificate";
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(HttpSessionTest, AnEncryptedKeyIs7622AndNobodyIsAskedForAPassword)
{
    const TlsTestServer server(serverWith(pki().server), always(answer(200, "{}")));
    const tq::TlsTrust trust = trustAndShow(pki().host);
    ASSERT_EQ(std::system("openssl ec -aes128 -passout pass:secret -in /tmp/http_session_test/key "
                          "-out /tmp/http_session_test/key2 2>/dev/null"), // NOLINT(cert-env33-c)
              0);
    std::filesystem::rename(FILES + "/key2", FILES + "/key");
    EXPECT_EQ(get(server, trust, shortLimits()).result.status, 7622);
}

// --- the environment has no say
// -------------------------------------------------------------------------------

TEST_F(HttpSessionTest, ProxiesOfTheEnvironmentAreNotUsed)
{
    const std::string proxy = "http://127.0.0.1:" + std::to_string(fakes::closedPort());
    for (const char* name : {"https_proxy", "HTTPS_PROXY", "ALL_PROXY", "all_proxy"})
        setenv(name, proxy.c_str(), 1);
    const Outcome outcome = getFrom(answer(200, "{}"));
    for (const char* name : {"https_proxy", "HTTPS_PROXY", "ALL_PROXY", "all_proxy"})
        unsetenv(name);
    EXPECT_EQ(outcome.result.status, 0) << outcome.result.cause;
}
