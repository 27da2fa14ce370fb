// What a client may send and how long it may take, over TLS.
#include "tests/unit/masterd/raw_tls_client.h"
#include "tests/unit/masterd/running_service.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <zlib.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using tests::Host;
using tests::jsonMember;
using tests::RawTlsClient;
using tests::RunningService;

class ServiceLimits : public testing::Test {
protected:
    /// What the service answers to a text from this host, until it closes the connection.
    std::string answerTo(const std::string& text)
    {
        RawTlsClient client(service_.port(), host_.certificate.get(), &host_.key());
        EXPECT_TRUE(client.connected());
        client.send(text); // a service that has heard enough may hang up
        return client.receiveAll();
    }
    std::string head(const std::string& method, const std::string& headers) const
    {
        return method + ' ' + host_.path() +
               " HTTP/1.1\r\nHost: x\r\nConnection: close\r\nAuthorization: Bearer " + host_.token + "\r\n" +
               headers + "\r\n";
    }
    static int statusOf(const std::string& answer)
    {
        return answer.rfind("HTTP/1.1 ", 0) == 0 ? std::stoi(answer.substr(9)) : -1;
    }
    static void expectError(const std::string& answer, int status)
    {
        EXPECT_EQ(statusOf(answer), status) << answer;
        const std::string body = answer.substr(std::min(answer.find("\r\n\r\n") + 4, answer.size()));
        EXPECT_EQ(jsonMember(body, "errorCode"), std::to_string(7000 + status)) << answer;
        EXPECT_FALSE(jsonMember(body, "errMessage").empty()) << answer;
    }
    void expectServing() { EXPECT_EQ(statusOf(answerTo(head("PUT", "Content-Length: 2\r\n") + "{}")), 200); }

    RunningService service_;
    Host host_{service_, "h1"};
};

std::string compressed(const std::string& text)
{
    z_stream stream{};
    deflateInit2(&stream, 9, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
    std::string result(compressBound(text.size()) + 64, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(result.data());
    stream.avail_out = static_cast<uInt>(result.size());
    deflate(&stream, Z_FINISH);
    result.resize(stream.total_out);
    deflateEnd(&stream);
    return result;
}

std::string withLength(const std::string& body)
{
    return "Content-Length: " + std::to_string(body.size()) + "\r\n";
}

/// A JSON object of exactly this many bytes.
std::string objectOf(std::size_t bytes)
{
    return '{' + std::string(bytes - 2, ' ') + '}';
}

TEST_F(ServiceLimits, BodyMayBe256KiBLongAndNoLonger)
{
    const std::string most = objectOf(masterd::MAX_BODY_BYTES);
    EXPECT_EQ(statusOf(answerTo(head("PUT", withLength(most)) + most)), 200);
    const std::string more = objectOf(masterd::MAX_BODY_BYTES + 1);
    expectError(answerTo(head("PUT", withLength(more)) + more), 413);
    expectError(answerTo(head("POST", "Content-Length: 99999999999\r\n") + "{"), 413);
    expectServing();
}

TEST_F(ServiceLimits, LimitHoldsForABodyInChunks)
{
    const std::string chunk = "1000\r\n" + std::string(0x1000, ' ') + "\r\n";
    std::string body = "1\r\n{\r\n";
    for (int i = 0; i < 70; ++i)
        body += chunk;
    expectError(answerTo(head("PUT", "Transfer-Encoding: chunked\r\n") + body + "1\r\n}\r\n0\r\n\r\n"), 413);
    EXPECT_EQ(
        statusOf(answerTo(head("PUT", "Transfer-Encoding: chunked\r\n") + "1\r\n{\r\n1\r\n}\r\n0\r\n\r\n")),
        200);
}

TEST_F(ServiceLimits, LimitHoldsForWhatABodyBecomesWhenItIsDecompressed)
{
    const std::string small = compressed("{\"osType\":\"packed\"}");
    const std::string answer =
        answerTo(head("PUT", "Content-Encoding: gzip\r\n" + withLength(small)) + small);
    EXPECT_EQ(statusOf(answer), 200);
    EXPECT_NE(answer.find("\"osType\":\"packed\""), std::string::npos);
    const std::string bomb = compressed(objectOf(std::size_t{64} << 20));
    ASSERT_LT(bomb.size(), 256U * 1024);
    expectError(answerTo(head("PUT", "Content-Encoding: gzip\r\n" + withLength(bomb)) + bomb), 413);
    expectError(answerTo(head("PUT", "Content-Encoding: gzip\r\nContent-Length: 4\r\n") + "junk"), 400);
}

TEST_F(ServiceLimits, RequestsThatArriveTogetherAreAllAnswered)
{
    const std::string request = "PUT " + host_.path() + " HTTP/1.1\r\nAuthorization: Bearer " + host_.token +
                                "\r\nContent-Length: 2\r\n\r\n{}";
    const std::string answers = answerTo(request + request + head("GET", ""));
    std::size_t found = 0;
    for (std::size_t at = 0; (at = answers.find("HTTP/1.1 200", at)) != std::string::npos; ++at)
        ++found;
    EXPECT_EQ(found, 3U) << answers;
}

TEST_F(ServiceLimits, ClientThatWaitsForTheWordToGoOnGetsIt)
{
    RawTlsClient client(service_.port(), host_.certificate.get(), &host_.key());
    ASSERT_TRUE(client.send(head("PUT", "Expect: 100-continue\r\nContent-Length: 2\r\n")));
    std::array<char, 256> word{};
    const int got = SSL_read(client.ssl(), word.data(), static_cast<int>(word.size()));
    EXPECT_EQ(std::string(word.data(), static_cast<std::size_t>(std::max(got, 0))).substr(0, 12),
              "HTTP/1.1 100");
    ASSERT_TRUE(client.send("{}"));
    EXPECT_EQ(statusOf(client.receiveAll()), 200);
}

TEST_F(ServiceLimits, BodyWhoseEndIsToldWronglyIsABadRequest)
{
    for (const char* headers : {"Content-Length: 2\r\nContent-Length: 2\r\n", "Content-Length: -2\r\n",
                                "Content-Length: x\r\n", "Content-Length: 99999999999999999999999\r\n",
                                "Content-Length: 2\r\nTransfer-Encoding: chunked\r\n",
                                "Transfer-Encoding: gzip\r\n", "Transfer-Encoding: gzip, chunked\r\n"})
        expectError(answerTo(head("PUT", headers) + "{}"), 400);
    expectError(answerTo(head("PUT", "Transfer-Encoding: chunked\r\n") + "zz\r\n{}\r\n0\r\n\r\n"), 400);
    expectServing();
}

TEST_F(ServiceLimits, FormIsABadRequest)
{
    const std::string form = "--b\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\n{}\r\n--b--\r\n";
    expectError(
        answerTo(head("PUT", "Content-Type: multipart/form-data; boundary=b\r\n" + withLength(form)) + form),
        400);
}

TEST_F(ServiceLimits, BodyWhereNoneBelongsIsABadRequestAndEndsTheConnection)
{
    const std::string answer = answerTo("GET " + host_.path() +
                                        " HTTP/1.1\r\nContent-Length: 40\r\n\r\n"
                                        "GET /torquenix HTTP/1.1\r\nHost: x\r\n\r\n    ");
    expectError(answer, 400);
    EXPECT_EQ(answer.find("HTTP/1.1", 1), std::string::npos) << answer;
}

TEST_F(ServiceLimits, WriteWithoutABodyIsAnsweredAtOnce)
{
    expectError(answerTo(head("PUT", "")), 400);
}

TEST_F(ServiceLimits, RequestThatCannotBeReadIsAnsweredWithAnErrorBody)
{
    for (const std::string& text :
         {std::string("BREW / HTTP/1.1\r\n\r\n"), std::string("GET\r\n\r\n"),
          std::string("GET / HTTP/9.9\r\n\r\n"), std::string("\r\n\r\n"),
          std::string("PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"),
          std::string("PRI / HTTP/1.1\r\nContent-Length: 2\r\n\r\n{}"),
          std::string("TRACE / HTTP/1.1\r\n\r\n"), std::string("GET /?a?b HTTP/1.1\r\n\r\n"),
          "GET / HTTP/1.1\r\n" + std::string(9000, 'a') + ": x\r\n\r\n"})
        expectError(answerTo(text), 400);
    for (const std::string& text :
         {std::string("\0\xff\x16\x03\r\n\r\n", 8), std::string("GET /\rX HTTP/1.1\r\n\r\n")})
        EXPECT_EQ(answerTo(text), "") << "a request line with control characters";
    expectError(answerTo("GET /" + std::string(9000, 'a') + " HTTP/1.1\r\n\r\n"), 414);
    expectError(answerTo("GET / HTTP/1.1\r\nRange: bytes=9-1\r\n\r\n"), 416);
    expectServing();
}

TEST_F(ServiceLimits, LongRangeHeaderDoesNoHarm)
{
    std::string ranges = "bytes=0-1";
    while (ranges.size() < 8000)
        ranges += ",0-1";
    EXPECT_NE(statusOf(answerTo(head("GET", "Range: " + ranges + "\r\n"))), -1);
    expectServing();
}

TEST_F(ServiceLimits, PartOfARecordIsNotServed)
{
    expectServing();
    const std::string whole = answerTo(head("GET", ""));
    EXPECT_EQ(answerTo(head("GET", "Range: bytes=0-3\r\n")), whole);
}

TEST_F(ServiceLimits, FloodOfHeadersIsCutOff)
{
    std::string headers;
    for (int i = 0; i < 4000; ++i)
        headers += "X-Filler-" + std::to_string(i) + ": 0123456789\r\n";
    const std::string answer = answerTo("GET / HTTP/1.1\r\n" + headers + "\r\n");
    expectError(answer, 400);
    expectServing();
}

TEST_F(ServiceLimits, ConnectionIsKeptForTheNextRequest)
{
    const std::string request =
        "GET " + host_.path() + " HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer " + host_.token + "\r\n\r\n";
    const std::string answer = answerTo(request + head("GET", ""));
    EXPECT_NE(answer.find("HTTP/1.1 404", 1), std::string::npos) << answer;
}

TEST_F(ServiceLimits, PlainHttpIsClosed)
{
    const tq::FileDescriptor socket = tests::connectTo(service_.port());
    const std::string request = "GET / HTTP/1.1\r\nHost: x\r\n\r\n";
    EXPECT_GT(send(socket.get(), request.data(), request.size(), MSG_NOSIGNAL), 0);
    std::string received(4096, '\0');
    const ssize_t got = recv(socket.get(), received.data(), received.size(), 0);
    EXPECT_EQ(received.substr(0, static_cast<std::size_t>(std::max<ssize_t>(got, 0))).find("HTTP"),
              std::string::npos);
    expectServing();
}

/// Short times, so that the tests need not wait for long.
masterd::ConnectionLimits shortTimes()
{
    masterd::ConnectionLimits limits;
    limits.handshake = milliseconds(300);
    limits.firstByte = milliseconds(200);
    limits.request = milliseconds(300);
    return limits;
}

/// A service that has no patience; a silent client must be out long before the usual limits.
class ServiceTimes : public testing::Test {
protected:
    /// Whether the service closes the connection without having sent anything.
    static bool isClosed(const tq::FileDescriptor& socket)
    {
        char byte = 0;
        return recv(socket.get(), &byte, 1, 0) == 0;
    }
    void expectSoon() const { EXPECT_LT(steady_clock::now() - start_, seconds(10)); }

    RunningService service_{shortTimes()};
    steady_clock::time_point start_ = steady_clock::now();
};

TEST_F(ServiceTimes, SilentConnectionIsClosedSoon)
{
    EXPECT_TRUE(isClosed(tests::connectTo(service_.port())));
    expectSoon();
}

TEST_F(ServiceTimes, SilenceAfterTheHandshakeIsClosedSoon)
{
    RawTlsClient client(service_.port());
    EXPECT_TRUE(client.connected());
    EXPECT_EQ(client.receiveAll(), "");
    expectSoon();
}

TEST_F(ServiceTimes, HandshakeThatStopsHalfwayIsClosed)
{
    const tq::FileDescriptor socket = tests::connectTo(service_.port());
    EXPECT_EQ(send(socket.get(), "\x16\x03\x01\x02", 4, MSG_NOSIGNAL), 4);
    EXPECT_TRUE(isClosed(socket));
    expectSoon();
}

TEST_F(ServiceTimes, RequestThatTricklesInIsEndedAtItsLimit)
{
    RawTlsClient client(service_.port());
    ASSERT_TRUE(client.connected());
    const std::string request = "GET / HTTP/1.1\r\nX: " + std::string(4000, 'a') + "\r\n\r\n";
    std::size_t sent = 0;
    while (sent < request.size() && client.send(request.substr(sent, 1))) {
        ++sent;
        std::this_thread::sleep_for(milliseconds(20));
    }
    EXPECT_LT(sent, request.size());
    expectSoon();
}

TEST(ServiceUnderIdleConnections, TwoHundredKeepNobodyWaiting)
{
    RunningService service; // with the limits that it has in use
    std::vector<tq::FileDescriptor> idle;
    idle.reserve(200);
    for (int i = 0; i < 200; ++i)
        idle.push_back(tests::connectTo(service.port()));
    std::vector<std::unique_ptr<RawTlsClient>> idleAfterHandshake;
    idleAfterHandshake.reserve(50);
    for (int i = 0; i < 50; ++i)
        idleAfterHandshake.push_back(std::make_unique<RawTlsClient>(service.port()));
    const auto start = steady_clock::now();
    const Host host(service, "h1");
    const httplib::Result result = host.client()->Put(host.path(), host.bearer(), "{}", "application/json");
    ASSERT_TRUE(result);
    EXPECT_EQ(result->status, 200);
    EXPECT_LT(steady_clock::now() - start, seconds(10)); // the idle ones are let go after 15
}

} // namespace
