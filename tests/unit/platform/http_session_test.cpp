#include "tests/unit/platform/http_session_fixture.h"

#include <cstdlib>
#include <unistd.h>

using namespace session_test;

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
        EXPECT_LT(outcome.seconds, 15) << status;
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

namespace {

/// Names a proxy in every variable that libcurl knows, for as long as it lives.
class ProxiesInEnvironment {
public:
    explicit ProxiesInEnvironment(const std::string& proxy)
    {
        for (const char* name : {"no_proxy", "NO_PROXY"})
            unsetenv(name);
        for (const char* name : NAMES)
            setenv(name, proxy.c_str(), 1);
    }
    ProxiesInEnvironment(const ProxiesInEnvironment&) = delete;
    ProxiesInEnvironment& operator=(const ProxiesInEnvironment&) = delete;
    ~ProxiesInEnvironment()
    {
        for (const char* name : NAMES)
            unsetenv(name);
    }

private:
    static constexpr const char* NAMES[] = {"https_proxy", "HTTPS_PROXY", "ALL_PROXY", "all_proxy"};
};

/// The outcome of a request that libcurl makes by its own defaults.
CURLcode getByDefaults(int port)
{
    const tq::CurlHandle handle(curl_easy_init());
    const std::string url = "https://127.0.0.1:" + std::to_string(port) + "/";
    tq::CurlOptions options(handle.get());
    options.set(CURLOPT_URL, url.c_str()).set(CURLOPT_TIMEOUT, 20L).set(CURLOPT_NOSIGNAL, 1L);
    EXPECT_TRUE(options.taken());
    return curl_easy_perform(handle.get());
}

} // namespace

TEST_F(HttpSessionTest, ProxiesOfTheEnvironmentAreNotUsed)
{
    fakes::ServerOptions plain;
    plain.plain = true;
    const TlsTestServer proxy(plain, always(raw("HTTP/1.1 502 No\r\nContent-Length: 0\r\n\r\n")));
    const TlsTestServer server(serverWith(pki().server), always(answer(200, "{}")));
    const ProxiesInEnvironment environment("http://127.0.0.1:" + std::to_string(proxy.port()));

    EXPECT_NE(getByDefaults(server.port()), CURLE_OK);
    ASSERT_EQ(proxy.connections(), 1) << "the proxy is not even used where nothing forbids it";
    const Outcome outcome = get(server, trustOwnAuthority(), shortLimits());
    EXPECT_EQ(outcome.result.status, 0) << outcome.result.cause;
    EXPECT_EQ(proxy.connections(), 1);
}
