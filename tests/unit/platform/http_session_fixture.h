/// What the tests of HttpSession share: certificates, a server with one answer, a request and its outcome.
#pragma once

#include "platform/http_session.h"
#include "tests/fakes/tls/test_pki.h"
#include "tests/fakes/tls/tls_test_server.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace session_test {

using fakes::answer;
using fakes::SeenRequest;
using fakes::ServerAnswer;
using fakes::TlsTestServer;
using ::testing::HasSubstr;
using tq::HttpReply;
using tq::HttpRequest;
using tq::HttpSession;
using tq::TransferResult;

inline const std::string FILES = "/tmp/http_session_test";

inline void write(const std::string& path, const std::string& text)
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

inline const Pki& pki()
{
    static const Pki made;
    return made;
}

inline fakes::ServerOptions serverWith(const fakes::Issued& certificate)
{
    fakes::ServerOptions options;
    options.chainPem = certificate.pem();
    options.keyPem = certificate.keyPem();
    return options;
}

inline ServerAnswer raw(const std::string& bytes)
{
    ServerAnswer made;
    made.bytes = bytes;
    made.close = true;
    return made;
}

inline TlsTestServer::Responder always(ServerAnswer given)
{
    return [given = std::move(given)](const SeenRequest&) { return given; };
}

/// Shorter than in use, yet none that a busy machine meets by accident; a test that waits for one sets it.
inline tq::WebLimits shortLimits()
{
    tq::WebLimits limits;
    limits.connectMs = 20'000;
    limits.totalMs = 30'000;
    limits.stallSeconds = 20;
    limits.maxReplyBytes = 100'000;
    return limits;
}

inline tq::TlsTrust trustOwnAuthority()
{
    tq::TlsTrust trust;
    trust.authoritiesFile = FILES + "/ca";
    return trust;
}

inline tq::TlsTrust trustAndShow(const fakes::Issued& certificate)
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

inline Outcome get(const TlsTestServer& server, const tq::TlsTrust& trust, const tq::WebLimits& limits,
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

} // namespace session_test
