#include "masterd/request_framing.h"

#include <gtest/gtest.h>

namespace {

using masterd::RequestFraming;

/// Whether a request passes, handed over whole and byte by byte.
bool passes(std::string_view request)
{
    RequestFraming bytewise;
    bool passed = true;
    for (const char c : request)
        passed = bytewise.take({&c, 1}) && passed;
    RequestFraming whole;
    EXPECT_EQ(whole.take(request), passed) << request;
    return passed;
}

std::string head(const std::string& headers)
{
    return "PUT /x HTTP/1.1\r\n" + headers + "\r\n";
}

std::string inChunks(const std::string& body)
{
    return head("Transfer-Encoding: chunked\r\n") + body;
}

TEST(RequestFraming, WellFormedRequestsPass)
{
    for (const std::string& request :
         {head(""), head("Host: x\r\n"), head("A:\r\nB: \t b \r\nC:c:c\r\n"), head("X: \xc3\xa4\xff\r\n"),
          head("X-!#$%&'*+.^_`|~9: x\r\n"), head("Content-Length: 3\r\n") + std::string("\0\n\r", 3),
          head("Transfer-Encoding: gzip\r\n") + "no chunk", inChunks("0\r\n\r\n"),
          inChunks("2\r\n{}\r\n0\r\n\r\n"), inChunks("02 \r\n\r\n\r\n0\r\n\r\n"),
          inChunks("A;name=value\r\n0123456789\r\n1\r\nx\r\n0000\r\n\r\n"),
          head("TRANSFER-encoding:CHUNKED\r\n") + "1\r\nx\r\n0\r\n\r\n"})
        EXPECT_TRUE(passes(request)) << request;
}

TEST(RequestFraming, HeadThatOthersMayReadOtherwiseIsRefused)
{
    for (const std::string& headers :
         {std::string("Transfer-Encoding : chunked\r\n"), std::string("Transfer-Encoding:\r\n chunked\r\n"),
          std::string("\tX: x\r\n"), std::string("no colon\r\n"), std::string(": no name\r\n"),
          std::string("X(Y): x\r\n"), std::string("\xc3\xa4: x\r\n"),
          std::string("X: a\rContent-Length: 5\r\n"), std::string("X: a\nContent-Length: 5\r\n"),
          std::string("X: a\0b\r\n", 9), std::string("X: \x7f\r\n"), std::string("X: \x1b[0m\r\n"),
          std::string("X: a\r\r\n")})
        EXPECT_FALSE(passes(head(headers))) << headers;
    EXPECT_FALSE(passes("GET / HTTP/1.1\nX: x\r\n\r\n"));
    EXPECT_FALSE(passes("GET /\rX HTTP/1.1\r\n\r\n"));
    EXPECT_FALSE(passes(std::string("GET\0/ HTTP/1.1\r\n\r\n", 18)));
}

TEST(RequestFraming, ChunksThatEndElsewhereAreRefused)
{
    for (const char* body : {"\r\n", "x\r\n", "-2\r\n", "+2\r\n", "0x2\r\n{}\r\n", "2\n{}\r\n", "2;\n{}\r\n",
                             "2\r\n{}XX", "2\r\n{}0\r\n", "2\r\n{}\n0\r\n", "2 2\r\n", ";x\r\n",
                             "000000002\r\n", "ffffffffffffffffff\r\n", "0\r\nX: y\r\n\r\n", "0\r\n\r\nGET"})
        EXPECT_FALSE(passes(inChunks(body))) << body;
    EXPECT_FALSE(passes(inChunks("2;" + std::string(2000, 'x'))));
}

TEST(RequestFraming, NothingPassesAfterAFault)
{
    RequestFraming framing;
    EXPECT_FALSE(framing.take("GET / HTTP/1.1\n"));
    EXPECT_FALSE(framing.take("X: x\r\n\r\n"));
}

TEST(RequestFraming, CountsHeadAndBodyApart)
{
    RequestFraming plain;
    EXPECT_TRUE(plain.take(head("") + "12345"));
    EXPECT_EQ(plain.headBytes(), head("").size());
    EXPECT_EQ(plain.bodyBytes(), 5U);
    RequestFraming chunked;
    EXPECT_TRUE(chunked.take(inChunks("2\r\n{}\r\n0\r\n\r\n")));
    EXPECT_EQ(chunked.bodyBytes(), 12U);
}

} // namespace
