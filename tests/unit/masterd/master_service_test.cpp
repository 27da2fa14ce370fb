// The running service, over TLS: its handshake, its requests end to end, its end.
#include "masterd/clock.h"
#include "masterd/command_failure.h"
#include "tests/fakes/tls/test_pki.h"
#include "tests/unit/masterd/raw_tls_client.h"
#include "tests/unit/masterd/running_service.h"

#include <atomic>
#include <gtest/gtest.h>
#include <openssl/x509v3.h>
#include <thread>

namespace {

using tests::Host;
using tests::jsonMember;
using tests::RawTlsClient;
using tests::RunningService;

const char* const HOSTS = "/torquenix/config/hosts";
const char* const JSON = "application/json";

int statusOf(const httplib::Result& result)
{
    return result ? result->status : -1;
}

TEST(MasterService, HostEnrolsWritesReadsAndDeletes)
{
    RunningService service;
    const Host host(service, "h1");
    const auto client = host.client();
    const httplib::Result put = client->Put(host.path(), host.bearer(), R"({"osType":"Linux"})", JSON);
    ASSERT_EQ(statusOf(put), 200);
    EXPECT_EQ(put->get_header_value("Content-Type"), JSON);
    EXPECT_EQ(put->body, R"({"uuid":")" + host.hostId + R"(","hostName":"h1","osType":"Linux"})");
    EXPECT_EQ(client->Get(host.path(), host.bearer())->body, put->body);
    EXPECT_EQ(client->Get(HOSTS, host.bearer())->body, R"({"hosts":[)" + put->body + "]}");
    EXPECT_EQ(client->Get(std::string(HOSTS) + "?filter=hostName%20eq%20'h1'", host.bearer())->body,
              R"({"hosts":[)" + put->body + "]}");
    const httplib::Result deleted = client->Delete(host.path(), host.bearer());
    EXPECT_EQ(statusOf(deleted), 204);
    EXPECT_EQ(deleted->body, "");
    EXPECT_EQ(statusOf(client->Get(host.path(), host.bearer())), 404);
    EXPECT_TRUE(service.stop());
}

TEST(MasterService, ShowsItsAuthorityBehindItsCertificate)
{
    RunningService service;
    const RawTlsClient client(service.port());
    ASSERT_TRUE(client.connected());
    const std::vector<tq::Certificate> chain = client.shownChain();
    ASSERT_EQ(chain.size(), 2U);
    EXPECT_EQ(tq::certificateFingerprint(*chain[1]), service.authority().fingerprint());
    EXPECT_EQ(X509_check_host(chain[0].get(), "localhost", 0, 0, nullptr), 1);
}

TEST(MasterService, SpeaksTls12AndNothingOlder)
{
    RunningService service;
    EXPECT_TRUE(RawTlsClient(service.port(), nullptr, nullptr, TLS1_2_VERSION).connected());
    EXPECT_FALSE(RawTlsClient(service.port(), nullptr, nullptr, TLS1_1_VERSION).connected());
    EXPECT_FALSE(RawTlsClient(service.port(), nullptr, nullptr, TLS1_VERSION).connected());
}

TEST(MasterService, NothingIsResumed)
{
    RunningService service;
    RawTlsClient client(service.port(), nullptr, nullptr, TLS1_2_VERSION);
    ASSERT_TRUE(client.connected());
    EXPECT_EQ(SSL_SESSION_is_resumable(SSL_get0_session(client.ssl())), 0);
}

/// Whether a client with this certificate gets a reply over TLS 1.2, where a refusal ends the handshake.
bool isLetIn(const RunningService& service, const fakes::Issued& issued)
{
    return RawTlsClient(service.port(), issued.certificate.get(), issued.key.get(), TLS1_2_VERSION)
        .connected();
}

TEST(MasterService, CertificateThatDoesNotVerifyIsRefusedInTheHandshake)
{
    RunningService service;
    fakes::CertificateOptions options;
    options.dnsNames = {"h1"};
    options.uris = {"urn:uuid:x"};
    options.extendedKeyUsage = "clientAuth";
    fakes::Issued own;
    const masterd::KeyAndCertificate authority =
        masterd::loadKeyAndCertificate(service.folder().authorityFile());
    own.certificate.reset(X509_dup(authority.certificate.get()));
    own.key = tq::parseKey(tq::keyToPem(*authority.key));
    EXPECT_TRUE(isLetIn(service, fakes::makeCertificate(own, options)));

    EXPECT_FALSE(isLetIn(service, fakes::makeSelfSigned(options)));
    const fakes::Issued foreign = fakes::makeSelfSigned(fakes::authorityOptions("foreign"));
    EXPECT_FALSE(isLetIn(service, fakes::makeCertificate(foreign, options)));
    fakes::CertificateOptions expired = options;
    expired.endSeconds = -60;
    EXPECT_FALSE(isLetIn(service, fakes::makeCertificate(own, expired)));
    fakes::CertificateOptions future = options;
    future.startSeconds = 600;
    EXPECT_FALSE(isLetIn(service, fakes::makeCertificate(own, future)));
    fakes::CertificateOptions forServers = options;
    forServers.extendedKeyUsage = "serverAuth";
    EXPECT_FALSE(isLetIn(service, fakes::makeCertificate(own, forServers)));
    const fakes::Issued host = fakes::makeCertificate(own, options);
    EXPECT_FALSE(isLetIn(service, fakes::makeCertificate(host, options))); // a host is no authority
    EXPECT_TRUE(service.stop());
    EXPECT_NE(service.requestLog().find("client\\x20certificate:\\x20certificate\\x20has\\x20expired"),
              std::string::npos)
        << service.requestLog();
}

TEST(MasterService, ServersOwnCertificateOpensNothingToAClient)
{
    RunningService service;
    const masterd::KeyAndCertificate own = masterd::loadKeyAndCertificate(service.folder().serverFile());
    EXPECT_FALSE(
        RawTlsClient(service.port(), own.certificate.get(), own.key.get(), TLS1_2_VERSION).connected());
}

TEST(MasterService, RevocationTakesEffectOnAnOpenConnection)
{
    RunningService service;
    const Host host(service, "h1");
    const auto client = host.client();
    client->set_keep_alive(true);
    EXPECT_EQ(statusOf(client->Get(HOSTS, host.bearer())), 200);
    service.store().revoke("h1", masterd::unixNow());
    EXPECT_EQ(statusOf(client->Get(HOSTS, host.bearer())), 403);
    EXPECT_EQ(statusOf(client->Post("/torquenix/security/tokens", "{}", JSON)), 403);
}

TEST(MasterService, OfTenEnrolmentsAtOnceExactlyOneSucceeds)
{
    RunningService service;
    const std::string invitation =
        service.store().invite("h1", masterd::IdentityType::host, masterd::unixNow() + 600).text();
    std::atomic<int> made = 0;
    std::atomic<int> forbidden = 0;
    std::vector<std::thread> threads;
    threads.reserve(10);
    for (int i = 0; i < 10; ++i)
        threads.emplace_back([&] {
            const int status = statusOf(Host(service).enroll(invitation));
            made += status == 201 ? 1 : 0;
            forbidden += status == 403 ? 1 : 0;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(made, 1);
    EXPECT_EQ(forbidden, 9);
}

TEST(MasterService, FortyHostsWriteAtOnceAndNoRecordIsLost)
{
    masterd::ConnectionLimits patient; // forty clients in this one process may be slow
    patient.handshake = patient.firstByte = patient.request = std::chrono::minutes(2);
    RunningService service(patient);
    const Host reader(service, "reader");
    std::vector<std::thread> threads;
    threads.reserve(40);
    std::atomic<int> stored = 0;
    for (int i = 0; i < 40; ++i)
        threads.emplace_back([&, i] {
            const Host host(service, "h" + std::to_string(i));
            stored += statusOf(host.client()->Put(host.path(), host.bearer(), "{}", JSON)) == 200 ? 1 : 0;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(stored, 40);
    const std::string list = reader.client()->Get(HOSTS, reader.bearer())->body;
    std::size_t count = 0;
    for (std::size_t at = list.find("\"uuid\""); at != std::string::npos; at = list.find("\"uuid\"", at + 1))
        ++count;
    EXPECT_EQ(count, 40U);
}

TEST(MasterService, ReplyIsCompressedForWhoTakesItSo)
{
    RunningService service;
    const Host host(service, "h1");
    const auto client = host.client();
    client->set_decompress(false);
    httplib::Headers headers = host.bearer();
    headers.emplace("Accept-Encoding", "gzip");
    const httplib::Result result = client->Get(HOSTS, headers);
    ASSERT_EQ(statusOf(result), 200);
    EXPECT_EQ(result->get_header_value("Content-Encoding"), "gzip");
}

TEST(MasterService, RequestLogTellsWhoAskedForWhatWithoutSecrets)
{
    RunningService service;
    const Host host(service, "h1");
    host.client()->Put(host.path(), host.bearer(), R"({"osType":"secret-text"})", JSON);
    host.anonymous()->Get("/nothing");
    EXPECT_TRUE(service.stop());
    const std::string log = service.requestLog();
    const std::string identity =
        " h1/" + host.hostId + ' ' + tq::certificateFingerprint(*host.certificate) + '\n';
    EXPECT_NE(log.find("127.0.0.1 \"PUT " + host.path() + "\" 200" + identity), std::string::npos) << log;
    EXPECT_NE(log.find("127.0.0.1 \"POST /torquenix/security/tokens\" 201" + identity), std::string::npos)
        << log;
    EXPECT_NE(log.find("127.0.0.1 \"GET /nothing\" 403 - -\n"), std::string::npos) << log;
    EXPECT_EQ(log.find(host.token), std::string::npos);
    EXPECT_EQ(log.find("secret-text"), std::string::npos);
}

TEST(MasterService, SettingsAreReadAgainOnDemand)
{
    RunningService service;
    const Host host(service, "h1");
    tests::writeText(service.folder().settingsFile(), "{\"tokenLifetimeSeconds\": 77}");
    service.service().reloadSettings();
    const auto taken = host.client()->Post("/torquenix/security/tokens", "{}", JSON);
    EXPECT_EQ(jsonMember(taken->body, "expiresIn"), "77");
    tests::writeText(service.folder().settingsFile(), "{");
    testing::internal::CaptureStderr();
    service.service().reloadSettings();
    EXPECT_NE(testing::internal::GetCapturedStderr().find("the settings stay as they were"),
              std::string::npos);
}

TEST(MasterService, TokenThatHasExpiredIsUnauthorizedAndANewOneIsGood)
{
    RunningService service;
    Host host(service, "h1");
    const std::int64_t now = masterd::unixNow();
    host.token = service.store().issueToken(host.hostId, now - 10, now - 1).text();
    EXPECT_EQ(statusOf(host.client()->Get(HOSTS, host.bearer())), 401);
    host.takeToken();
    EXPECT_EQ(statusOf(host.client()->Get(HOSTS, host.bearer())), 200);
}

TEST(MasterService, RequestInHandIsAnsweredWhenItIsStopped)
{
    RunningService service;
    const Host host(service, "h1");
    RawTlsClient client(service.port(), host.certificate.get(), &host.key());
    ASSERT_TRUE(client.connected());
    ASSERT_TRUE(client.send("PUT " + host.path() + " HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer " +
                            host.token + "\r\nContent-Length: 2\r\n\r\n{"));
    std::this_thread::sleep_for(std::chrono::milliseconds(200)); // its first bytes are in the service's hands
    std::thread stopping([&] { EXPECT_TRUE(service.stop()); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    ASSERT_TRUE(client.send("}"));
    EXPECT_EQ(client.receiveAll().rfind("HTTP/1.1 200 OK\r\n", 0), 0U);
    stopping.join();
    EXPECT_TRUE(service.store().findHost(host.hostId));
}

TEST(MasterService, IdleConnectionsDoNotDelayTheEnd)
{
    RunningService service;
    const Host host(service, "h1");
    const auto client = host.client();
    client->set_keep_alive(true);
    EXPECT_EQ(statusOf(client->Get(HOSTS, host.bearer())), 200);
    const tq::FileDescriptor silent = tests::connectTo(service.port());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(service.stop());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}

TEST(MasterService, MayBeStoppedBeforeItRuns)
{
    const tests::ScratchDirectory scratch;
    const masterd::DataFolder folder(scratch.file("data"));
    masterd::initDataFolder(folder, {"localhost"});
    masterd::MasterService service(folder, "127.0.0.1", 0, {});
    service.stop();
    EXPECT_TRUE(service.run());
    service.stop();
}

/// Exit status and message of a service that cannot start; 0 when it can.
int startFailure(const masterd::DataFolder& folder, const std::string& address, int port,
                 std::string* message)
{
    try {
        const masterd::MasterService service(folder, address, port, {});
    } catch (const masterd::CommandFailure& failure) {
        *message = failure.what();
        return failure.exitStatus();
    }
    return 0;
}

TEST(MasterService, SecondOneOnTheSameFolderOrPortSaysSo)
{
    RunningService service;
    std::string message;
    EXPECT_EQ(startFailure(service.folder(), "127.0.0.1", 0, &message), masterd::EXIT_FOLDER_BUSY);
    EXPECT_EQ(message, "another tqmasterd is using the data folder " + service.folder().path());

    const tests::ScratchDirectory scratch;
    const masterd::DataFolder other(scratch.file("data"));
    masterd::initDataFolder(other, {"localhost"});
    const std::string port = std::to_string(service.port());
    EXPECT_EQ(startFailure(other, "127.0.0.1", service.port(), &message), masterd::EXIT_PORT_TAKEN);
    EXPECT_EQ(message, "cannot listen on 127.0.0.1 port " + port + ": Address already in use");
    EXPECT_EQ(startFailure(other, "192.0.2.1", service.port(), &message), masterd::EXIT_PORT_TAKEN);
    EXPECT_EQ(message, "cannot listen on 192.0.2.1 port " + port + ": Cannot assign requested address");
    EXPECT_EQ(startFailure(other, "no such name", 0, &message), masterd::EXIT_PORT_TAKEN);
}

TEST(MasterService, PortIsFreeAgainAfterTheEnd)
{
    const tests::ScratchDirectory scratch;
    const masterd::DataFolder folder(scratch.file("data"));
    masterd::initDataFolder(folder, {"localhost"});
    int port = 0;
    {
        const masterd::MasterService bound(folder, "127.0.0.1", 0, {});
        port = bound.port();
    }
    std::string message;
    EXPECT_EQ(startFailure(folder, "127.0.0.1", port, &message), 0) << message;
}

TEST(MasterService, DamagedFolderIsToldByFile)
{
    const tests::ScratchDirectory scratch;
    const masterd::DataFolder folder(scratch.file("data"));
    std::string message;
    EXPECT_EQ(startFailure(folder, "127.0.0.1", 0, &message), masterd::EXIT_FAILED);
    EXPECT_EQ(message, folder.path() + " holds no authority; make one with `tqmasterd init`");

    masterd::initDataFolder(folder, {"localhost"});
    tests::writeText(folder.settingsFile(), "[]");
    EXPECT_EQ(startFailure(folder, "127.0.0.1", 0, &message), masterd::EXIT_FAILED);
    EXPECT_EQ(message, folder.settingsFile() + ": it is not a JSON object");

    std::filesystem::remove(folder.databaseFile() + "-wal");
    tests::writeText(folder.databaseFile(), std::string(4096, 'x'));
    EXPECT_EQ(startFailure(folder, "127.0.0.1", 0, &message), masterd::EXIT_FAILED);
    EXPECT_EQ(message, "cannot open the database " + folder.databaseFile() + ": file is not a database");
}

} // namespace
