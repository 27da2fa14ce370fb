#include "tests/unit/platform/http_session_fixture.h"

#include <openssl/ssl.h>
#include <openssl/x509.h>

using namespace session_test;

TEST_F(HttpSessionTest, ARefusedConnectionAndAnUnknownNameAre25)
{
    HttpReply reply;
    HttpSession refused("127.0.0.1", fakes::closedPort(), trustOwnAuthority(), shortLimits());
    const TransferResult result = refused.send({"GET", "a", nullptr, ""}, reply);
    EXPECT_EQ(result.status, 25);
    EXPECT_THAT(result.cause, HasSubstr("no connection could be made"));

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

TEST_F(HttpSessionTest, TellsARequestThatWentOutFromOneThatDidNot)
{
    EXPECT_TRUE(getFrom(answer(200, "{}")).result.sent);
    EXPECT_TRUE(getFrom(raw("no HTTP")).result.sent);
    EXPECT_FALSE(getUnder(certificateFor({"other.example"}), "localhost").result.sent);
    HttpReply reply;
    HttpSession refused("127.0.0.1", fakes::closedPort(), trustOwnAuthority(), shortLimits());
    EXPECT_FALSE(refused.send({"GET", "a", nullptr, ""}, reply).sent);
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
    // "a.b.localhost" resolves to the loopback address inside libcurl itself.
    EXPECT_EQ(getUnder(certificateFor({"a.b.localhost"}), "a.b.localhost").result.status, 0);
    EXPECT_EQ(getUnder(certificateFor({"*.b.localhost"}), "a.b.localhost").result.status, 7621);
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
        EXPECT_EQ(get(server, trustOwnAuthority(), shortLimits()).result.status, 7626) << text;
    }
    std::filesystem::remove(FILES + "/ca");
    EXPECT_NE(get(server, trustOwnAuthority(), shortLimits()).result.status, 0);
    EXPECT_TRUE(server.requests().empty());
}
