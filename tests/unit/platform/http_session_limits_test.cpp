#include "tests/unit/platform/http_session_fixture.h"

#include <cstdlib>
#include <sstream>
#include <unistd.h>

using namespace session_test;

namespace {

/// A text many times over, so that a flood of small pieces comes fast.
std::string repeated(const std::string& text)
{
    std::string all;
    for (int i = 0; i < 500; ++i)
        all += text;
    return all;
}

/// 300,000 blanks under gzip.
std::string gzipBomb()
{
    EXPECT_EQ(std::system("head -c 300000 /dev/zero | tr '\\0' ' ' | gzip -9 > /tmp/http_session_test/bomb"),
              0);
    std::ostringstream text;
    text << std::ifstream(FILES + "/bomb").rdbuf();
    return text.str();
}

} // namespace

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
    chunks.endless = repeated("a\r\n0123456789\r\n");
    EXPECT_EQ(getFrom(chunks).result.status, 7623);
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
    headers.endless = repeated("X-Flood: 0123456789\r\n");
    EXPECT_EQ(getFrom(headers).result.status, 7623);

    for (const char* interim : {"HTTP/1.1 100 Continue\r\n\r\n", "HTTP/1.1 103 Early Hints\r\n\r\n"}) {
        ServerAnswer flood = raw("");
        flood.endless = repeated(interim);
        EXPECT_EQ(getFrom(flood).result.status, 7623) << interim;
    }
}

TEST_F(HttpSessionTest, OneEndlessHeaderIsCutOff)
{
    ServerAnswer header = raw("HTTP/1.1 200 OK\r\nX-Endless: ");
    header.endless = std::string(16'000, 'x');
    const Outcome outcome = getFrom(header);
    EXPECT_EQ(outcome.result.status, 7624) << outcome.result.cause;
    EXPECT_LT(outcome.seconds, 15);
}

TEST_F(HttpSessionTest, SilenceEndsAtTheStallLimit)
{
    ServerAnswer nothing;
    nothing.silent = true;
    ServerAnswer inBody = raw("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{");
    inBody.silent = true;
    tq::WebLimits limits = shortLimits();
    limits.stallSeconds = 1;
    for (const ServerAnswer& given : {nothing, inBody}) {
        const TlsTestServer server(serverWith(pki().server), always(given));
        const Outcome outcome = get(server, trustOwnAuthority(), limits);
        EXPECT_EQ(outcome.result.status, 7620) << outcome.result.cause;
        EXPECT_GT(outcome.seconds, 0.5);
        EXPECT_LT(outcome.seconds, 15);
    }
}

TEST_F(HttpSessionTest, ABodyThatTricklesEndsAtTheTotalLimit)
{
    ServerAnswer trickle = raw("HTTP/1.1 200 OK\r\nContent-Length: 10000\r\n\r\n");
    trickle.endless = "x";
    trickle.endlessDelayMs = 100;
    const TlsTestServer server(serverWith(pki().server), always(trickle));
    tq::WebLimits limits = shortLimits();
    limits.totalMs = 500;
    const Outcome outcome = get(server, trustOwnAuthority(), limits);
    EXPECT_EQ(outcome.result.status, 7620) << outcome.result.cause;
    EXPECT_GT(outcome.seconds, 0.4);
    EXPECT_LT(outcome.seconds, 15);
}

TEST_F(HttpSessionTest, SilenceInTheHandshakeEndsAtTheConnectLimit)
{
    fakes::ServerOptions options;
    options.silent = true;
    const TlsTestServer server(options, nullptr);
    tq::WebLimits limits = shortLimits();
    limits.connectMs = 300;
    const Outcome outcome = get(server, trustOwnAuthority(), limits);
    EXPECT_EQ(outcome.result.status, 7620) << outcome.result.cause;
    EXPECT_LT(outcome.seconds, 10);
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
