#include "tests/unit/platform/http_session_fixture.h"

#include <functional>
#include <openssl/ssl.h>
#include <sys/stat.h>

using namespace session_test;

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

TEST_F(HttpSessionTest, WhatIsNoRegularFileOfItsOwnIsNotReadAndNamedWithItsCause)
{
    const TlsTestServer server(serverWith(pki().server), always(answer(200, "{}")));
    struct Kind {
        std::function<void(const std::string&)> make;
        const char* cause;
    };
    const Kind kinds[] = {
        {[](const std::string& at) {
             std::filesystem::rename(at, at + ".target");
             std::filesystem::create_symlink(at + ".target", at);
         },
         "it is a symbolic link"},
        {[](const std::string& at) { std::filesystem::create_hard_link(at, at + ".second"); },
         "it has a second hard link"},
        {[](const std::string& at) {
             std::filesystem::remove(at);
             ASSERT_EQ(mkfifo(at.c_str(), 0600), 0);
         },
         "it is not a regular file"},
        {[](const std::string& at) {
             std::filesystem::remove(at);
             std::filesystem::create_directory(at);
         },
         "it is not a regular file"},
        {[](const std::string& at) { std::filesystem::resize_file(at, (std::size_t{4} << 20U) + 1); },
         "it is too large"},
        {[](const std::string& at) { std::filesystem::remove(at); }, "No such file or directory"},
    };
    const std::pair<const char*, int> files[] = {{"/crt", 7622}, {"/key", 7622}, {"/ca", 7626}};
    for (const auto& [name, status] : files) {
        for (const Kind& kind : kinds) {
            std::filesystem::remove_all(FILES);
            std::filesystem::create_directories(FILES);
            write(FILES + "/ca", pki().authority.pem());
            const tq::TlsTrust trust = trustAndShow(pki().host);
            kind.make(FILES + name);
            const TransferResult result = get(server, trust, shortLimits()).result;
            EXPECT_EQ(result.status, status) << name << ' ' << kind.cause;
            EXPECT_THAT(result.cause, HasSubstr(FILES + name + " cannot be read: " + kind.cause));
        }
    }
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(HttpSessionTest, ADeviceIsNotReadAndNamedWithItsCause)
{
    const TlsTestServer server(serverWith(pki().server), always(answer(200, "{}")));
    const tq::TlsTrust good = trustAndShow(pki().host);
    const std::pair<std::string tq::TlsTrust::*, int> files[] = {{&tq::TlsTrust::certificateFile, 7622},
                                                                 {&tq::TlsTrust::privateKeyFile, 7622},
                                                                 {&tq::TlsTrust::authoritiesFile, 7626}};
    for (const auto& [file, status] : files) {
        tq::TlsTrust trust = good;
        trust.*file = "/dev/zero";
        const TransferResult result = get(server, trust, shortLimits()).result;
        EXPECT_EQ(result.status, status);
        EXPECT_THAT(result.cause, HasSubstr("/dev/zero cannot be read: it is not a regular file"));
    }
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(HttpSessionTest, AFileThatWasPutRightIsReadByTheNextRequest)
{
    const TlsTestServer server(serverWith(pki().server), always(answer(200, "{}")));
    HttpSession session("127.0.0.1", server.port(), trustAndShow(pki().host), shortLimits());
    std::filesystem::rename(FILES + "/key", FILES + "/away");
    HttpReply reply;
    EXPECT_EQ(session.send({"GET", "a", nullptr, ""}, reply).status, 7622);
    std::filesystem::rename(FILES + "/away", FILES + "/key");
    EXPECT_EQ(session.send({"GET", "a", nullptr, ""}, reply).status, 0);
}

TEST_F(HttpSessionTest, AnEncryptedKeyIs7622AndNobodyIsAskedForAPassword)
{
    const TlsTestServer server(serverWith(pki().server), always(answer(200, "{}")));
    const tq::TlsTrust trust = trustAndShow(pki().host);
    write(FILES + "/key", fakes::encryptedKeyPem(*pki().host.key, "secret"));
    EXPECT_EQ(get(server, trust, shortLimits()).result.status, 7622);
}
