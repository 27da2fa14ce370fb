#include "enroll/enrollment.h"

#include "enroll/enroll_failure.h"
#include "platform/file_io.h"
#include "platform/paths.h"
#include "tests/fakes/log/recording_log.h"
#include "tests/unit/enroll/enrolling_server.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <optional>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using enroll::EnrollmentOrder;
using enroll::ExitStatus;
using enroll::Failure;
using fakes::TlsTestServer;
using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

constexpr const char* SPENT = "; the invitation is spent, so ask for a new one";
constexpr const char* MAYBE_SPENT = "; the invitation may be spent, so ask for a new one";

class EnrollmentTest : public ::testing::Test {
protected:
    EnrollmentTest() { std::filesystem::remove_all(TQ_VAR_DIR); }
    ~EnrollmentTest() override { std::filesystem::create_directories(TQ_VAR_DIR); }

    [[nodiscard]] EnrollmentOrder order(const TlsTestServer& server) const
    {
        return {"localhost", server.port(), master_.invitation, master_.fingerprint(), CERT_TYPE_HOST};
    }

    [[nodiscard]] tq::WebLimits limits() const
    {
        tq::WebLimits made;
        made.connectMs = connectMs_;
        made.totalMs = totalMs_;
        return made;
    }

    static std::vector<tq::Identity> stored()
    {
        std::vector<tq::Identity> identities;
        std::string cause;
        const int status = tq::loadIdentityStore(identities, &cause);
        EXPECT_TRUE(status == 0 || status == 7610) << cause;
        return identities;
    }

    /// The sentence of a failure with this status.
    std::string failureOf(const EnrollmentOrder& order, ExitStatus status) const
    {
        try {
            enroll::enroll(order, limits());
        } catch (const Failure& failure) {
            EXPECT_EQ(static_cast<int>(failure.status()), static_cast<int>(status)) << failure.what();
            return failure.what();
        }
        ADD_FAILURE() << "no failure";
        return "";
    }

    /// Lets this process mount for itself alone: as root, or else as root of its own user namespace. Root
    /// needs none, and may have none in a chroot.
    static bool becomeMounter()
    {
        const auto tell = [](const char* file, const std::string& text) {
            return static_cast<bool>(std::ofstream(std::string("/proc/self/") + file) << text << std::flush);
        };
        const std::string user = "0 " + std::to_string(geteuid()) + " 1";
        const std::string group = "0 " + std::to_string(getegid()) + " 1";
        if (geteuid() == 0)
            return unshare(CLONE_NEWNS) == 0 &&
                   mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && tell("uid_map", user) &&
               tell("setgroups", "deny") && tell("gid_map", group);
    }

    /// The same in a process that has a file system of its own for the store's parent.
    [[nodiscard]] std::string sentenceOnDisk(const EnrollmentOrder& order, const char* options,
                                             unsigned long flags) const
    {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        const pid_t child = fork();
        if (child == 0) {
            const bool mounted = becomeMounter() && mount("none", TQ_VAR_DIR, "tmpfs", flags, options) == 0;
            const std::string sentence = mounted ? failureOf(order, ExitStatus::storeFailed) : "not mounted";
            _exit(tq::writeAll(ends[1], sentence) ? 0 : 1);
        }
        close(ends[1]);
        const std::string sentence = tq::readRest(ends[0], 100'000).value_or("");
        close(ends[0]);
        waitpid(child, nullptr, 0);
        return sentence;
    }

    static mode_t modeOf(const std::string& path)
    {
        struct stat facts {};
        EXPECT_EQ(stat(path.c_str(), &facts), 0) << path;
        return facts.st_mode & 07777U;
    }

    EnrollingServer master_;
    std::int64_t connectMs_ = 20'000;
    std::int64_t totalMs_ = 30'000;
};

} // namespace

TEST_F(EnrollmentTest, StoresAnIdentityWhoseKeyAndCertificateBelongTogether)
{
    const TlsTestServer& server = master_.start();
    const tq::Identity made = enroll::enroll(order(server), limits());
    EXPECT_EQ(made.hostId, HOST_ID);
    EXPECT_EQ(made.hostName, "h1.example");

    const std::vector<tq::Identity> identities = stored();
    ASSERT_EQ(identities.size(), 1U);
    EXPECT_EQ(identities[0].server, "localhost");
    EXPECT_EQ(identities[0].certType, CERT_TYPE_HOST);
    EXPECT_EQ(identities[0].hostId, HOST_ID);
    EXPECT_EQ(identities[0].hostName, "h1.example");
    EXPECT_EQ(identities[0].trustVersion, "7");
    EXPECT_EQ(identities[0].caMode, CA_USAGE_INTERNAL);
    const tq::IdentityFiles files = tq::identityFiles(identities[0]);
    const tq::Certificate certificate =
        tq::parseCertificate(*tq::readFile(files.certificate, 100'000, nullptr));
    const tq::Key key = tq::parseKey(*tq::readFile(files.privateKey, 100'000, nullptr));
    ASSERT_TRUE(certificate && key);
    EXPECT_TRUE(tq::isKeyOfCertificate(*key, *certificate));
    EXPECT_EQ(tq::readFile(files.caCertificates, 100'000, nullptr), master_.authority.pem());
}

TEST_F(EnrollmentTest, MakesTheDirectoriesForRootAlone)
{
    const TlsTestServer& server = master_.start();
    const tq::Identity made = enroll::enroll(order(server), limits());
    EXPECT_EQ(modeOf(TQ_VAR_DIR), 0755U);
    EXPECT_EQ(modeOf(TQ_IDENTITY_DIR), 0700U);
    EXPECT_EQ(modeOf(std::string(TQ_IDENTITY_DIR) + "/identity.json"), 0600U);
    EXPECT_EQ(modeOf(tq::identityFiles(made).privateKey), 0600U);
    EXPECT_EQ(modeOf(tq::identityFiles(made).certificate), 0600U);
}

TEST_F(EnrollmentTest, TheFirstConnectionSendsNothingAndTheSecondTheInvitationWithoutACertificate)
{
    master_.options.clientAuthoritiesPem = master_.authority.pem();
    const TlsTestServer& server = master_.start();
    enroll::enroll(order(server), limits());
    EXPECT_EQ(server.connections(), 2);
    ASSERT_EQ(server.requests().size(), 1U);
    const fakes::SeenRequest request = server.requests()[0];
    EXPECT_EQ(request.method + request.path, "POST/torquenix/security/enrollments");
    EXPECT_EQ(request.clientCertificate, "");
    EXPECT_THAT(request.head, Not(HasSubstr("Authorization")));
    EXPECT_THAT(request.body, HasSubstr(R"("invitation":"let-me-in")"));
    EXPECT_THAT(request.body, HasSubstr(R"("certificateRequest":"-----BEGIN CERTIFICATE REQUEST-----)"));
    EXPECT_THAT(request.body, Not(HasSubstr("PRIVATE KEY")));
}

TEST_F(EnrollmentTest, ReenrolmentReplacesTheIdentityAndItsToken)
{
    const TlsTestServer& server = master_.start();
    const tq::Identity first = enroll::enroll(order(server), limits());
    std::ofstream(tq::identityFiles(first).token) << "old token";
    master_.hostName = "h2.example";
    const tq::Identity second = enroll::enroll(order(server), limits());
    ASSERT_EQ(stored().size(), 1U);
    EXPECT_EQ(stored()[0].hostName, "h2.example");
    EXPECT_FALSE(std::filesystem::exists(tq::identityFiles(first).privateKey));
    EXPECT_FALSE(std::filesystem::exists(tq::identityFiles(second).token));
}

TEST_F(EnrollmentTest, HostAndClusterIdentitiesStandSideBySide)
{
    const TlsTestServer& server = master_.start();
    EnrollmentOrder cluster = order(server);
    cluster.certType = CERT_TYPE_CLUSTER;
    enroll::enroll(order(server), limits());
    enroll::enroll(cluster, limits());
    ASSERT_EQ(stored().size(), 2U);
    EXPECT_EQ(stored()[1].certType, CERT_TYPE_CLUSTER);
}

TEST_F(EnrollmentTest, AnotherFingerprintEndsItBeforeTheInvitationIsSent)
{
    const TlsTestServer& server = master_.start();
    EnrollmentOrder wrong = order(server);
    wrong.fingerprint.back() = wrong.fingerprint.back() == '0' ? '1' : '0';
    EXPECT_THAT(failureOf(wrong, ExitStatus::wrongFingerprint), HasSubstr("another fingerprint"));
    EXPECT_EQ(server.connections(), 1);
    EXPECT_TRUE(server.requests().empty());
    EXPECT_TRUE(stored().empty());
}

TEST_F(EnrollmentTest, TheFingerprintOfTheServersOwnCertificateIsNotEnough)
{
    const fakes::Issued certificate = fakes::makeCertificate(master_.authority, fakes::serverOptions());
    master_.show(certificate);
    const TlsTestServer& server = master_.start();
    EnrollmentOrder wrong = order(server);
    wrong.fingerprint = tq::certificateFingerprint(*certificate.certificate);
    failureOf(wrong, ExitStatus::wrongFingerprint);
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(EnrollmentTest, AChainWithoutItsAuthorityIsNotTrusted)
{
    const fakes::Issued certificate = fakes::makeCertificate(master_.authority, fakes::serverOptions());
    master_.options.chainPem = certificate.pem();
    master_.options.keyPem = certificate.keyPem();
    const TlsTestServer& server = master_.start();
    EXPECT_THAT(failureOf(order(server), ExitStatus::notTrusted),
                HasSubstr("does not show the certificate of its authority"));
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(EnrollmentTest, AnAuthorityThatOnlyStandsInTheChainButDidNotIssueIsNotTrusted)
{
    const fakes::Issued foreign = fakes::makeSelfSigned(fakes::authorityOptions("foreign"));
    master_.show(fakes::makeCertificate(foreign, fakes::serverOptions()));
    const TlsTestServer& server = master_.start();
    EXPECT_THAT(failureOf(order(server), ExitStatus::notTrusted), HasSubstr("not trusted"));
    EXPECT_EQ(server.connections(), 2);
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(EnrollmentTest, AServerOfAnotherNameIsNotTrusted)
{
    fakes::CertificateOptions other;
    other.dnsNames = {"other.example"};
    master_.show(fakes::makeCertificate(master_.authority, other));
    const TlsTestServer& server = master_.start();
    EXPECT_THAT(failureOf(order(server), ExitStatus::notTrusted), HasSubstr("ostname mismatch"));
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(EnrollmentTest, PlainHttpAndOldTlsAreNotTrusted)
{
    master_.options.greeting = "HTTP/1.1 200 OK\r\n\r\n";
    failureOf(order(master_.start()), ExitStatus::notTrusted);
    master_.options.greeting.clear();
    master_.options.maxVersion = TLS1_1_VERSION;
    failureOf(order(master_.start()), ExitStatus::notTrusted);
}

TEST_F(EnrollmentTest, AServerThatIsNotThereOrSaysNothingIsNotReachable)
{
    EnrollmentOrder nobody = order(master_.start());
    nobody.port = fakes::closedPort();
    EXPECT_THAT(failureOf(nobody, ExitStatus::notReachable), HasSubstr("is not reachable"));
    nobody.server = "no-such-host.invalid";
    EXPECT_THAT(failureOf(nobody, ExitStatus::notReachable), HasSubstr("no-such-host.invalid"));
    connectMs_ = 1000;
    master_.options.silent = true;
    EXPECT_THAT(failureOf(order(master_.start()), ExitStatus::notReachable), HasSubstr("in time"));
}

TEST_F(EnrollmentTest, A403IsARefusedInvitation)
{
    const TlsTestServer& server = master_.start();
    EnrollmentOrder unknown = order(server);
    unknown.invitation = "used-before";
    const std::string sentence = failureOf(unknown, ExitStatus::invitationRefused);
    EXPECT_THAT(sentence, HasSubstr("unknown, used or expired"));
    EXPECT_THAT(sentence, Not(HasSubstr("used-before")));
    EXPECT_TRUE(stored().empty());
}

TEST_F(EnrollmentTest, OtherAnswersAreUnusableAndLeaveTheStoreAsItWas)
{
    enroll::enroll(order(master_.start()), limits());
    const std::string key = tq::identityFiles(stored()[0]).privateKey;
    const std::optional<std::string> before = tq::readFile(key, 100'000, nullptr);
    fakes::ServerAnswer cut = fakes::answer(201, "{}");
    cut.bytes.pop_back();
    cut.close = true;
    for (const fakes::ServerAnswer& given :
         {fakes::answer(500, "{}"), fakes::answer(200, "{}"), fakes::answer(201, "{}"),
          fakes::answer(201, ""), fakes::answer(302, ""), cut}) {
        master_.instead = [&](const fakes::SeenRequest&) { return given; };
        const std::string sentence = failureOf(order(master_.start()), ExitStatus::replyUnusable);
        EXPECT_THAT(sentence, HasSubstr("server localhost"));
        EXPECT_THAT(sentence, ContainsRegex("; the invitation (is|may be) spent, so ask for a new one$"));
    }
    ASSERT_EQ(stored().size(), 1U);
    EXPECT_EQ(tq::identityFiles(stored()[0]).privateKey, key);
    EXPECT_EQ(tq::readFile(key, 100'000, nullptr), before);
}

TEST_F(EnrollmentTest, ADamagedStoreIsFoundBeforeTheInvitationIsSpent)
{
    enroll::enroll(order(master_.start()), limits());
    std::ofstream(std::string(TQ_IDENTITY_DIR) + "/identity.json") << "damaged";
    const TlsTestServer& server = master_.start();
    EXPECT_THAT(failureOf(order(server), ExitStatus::storeFailed), HasSubstr("identity.json"));
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(EnrollmentTest, AnUnsafeDirectoryIsFoundBeforeTheInvitationIsSpent)
{
    std::filesystem::create_directories(TQ_IDENTITY_DIR);
    ASSERT_EQ(chmod(TQ_IDENTITY_DIR, 0777), 0);
    const TlsTestServer& server = master_.start();
    EXPECT_THAT(failureOf(order(server), ExitStatus::storeFailed), HasSubstr(TQ_IDENTITY_DIR));
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(EnrollmentTest, AStoreThatBecomesUnusableMeanwhileSaysThatTheInvitationIsSpent)
{
    const TlsTestServer* server = nullptr;
    master_.instead = [&](const fakes::SeenRequest& request) {
        chmod(TQ_IDENTITY_DIR, 0777);
        return master_.enrol(request);
    };
    server = &master_.start();
    EXPECT_THAT(failureOf(order(*server), ExitStatus::storeFailed),
                AllOf(HasSubstr("could not be stored: "), EndsWith(SPENT)));
}

TEST_F(EnrollmentTest, AnAnswerThatCannotBeUsedNamesTheServerAndSaysThatTheInvitationIsSpent)
{
    master_.instead = [](const fakes::SeenRequest&) { return fakes::answer(201, R"({"hostId": "h1"})"); };
    EXPECT_EQ(failureOf(order(master_.start()), ExitStatus::replyUnusable),
              std::string("the answer of server localhost cannot be used: \"hostId\" is not a UUID") + SPENT);
}

TEST_F(EnrollmentTest, ALostOrLateAnswerSaysThatTheInvitationMayBeSpent)
{
    fakes::ServerAnswer lost;
    lost.close = true;
    master_.instead = [&](const fakes::SeenRequest&) { return lost; };
    EXPECT_THAT(failureOf(order(master_.start()), ExitStatus::replyUnusable), EndsWith(MAYBE_SPENT));

    totalMs_ = 1500;
    master_.instead = [](const fakes::SeenRequest&) {
        std::this_thread::sleep_for(std::chrono::seconds(3));
        return fakes::answer(201, "{}");
    };
    EXPECT_THAT(failureOf(order(master_.start()), ExitStatus::notReachable),
                AllOf(HasSubstr("in time"), EndsWith(MAYBE_SPENT)));
}

TEST_F(EnrollmentTest, BeforeTheInvitationIsSentNothingIsSaidOfItsEnd)
{
    EnrollmentOrder nobody = order(master_.start());
    nobody.port = fakes::closedPort();
    EXPECT_THAT(failureOf(nobody, ExitStatus::notReachable), Not(HasSubstr("invitation")));
    fakes::CertificateOptions other;
    other.dnsNames = {"other.example"};
    master_.show(fakes::makeCertificate(master_.authority, other));
    EXPECT_THAT(failureOf(order(master_.start()), ExitStatus::notTrusted), Not(HasSubstr("invitation")));
}

TEST_F(EnrollmentTest, ARequestThatCouldNotBeMadeIsNotTheServersFault)
{
    const TlsTestServer& server = master_.start();
    EnrollmentOrder unusable = order(server);
    unusable.server = "user@localhost"; // the first connection refuses it
    const std::string sentence = failureOf(unusable, ExitStatus::failed);
    EXPECT_THAT(sentence, StartsWith("this host could not ask server user@localhost on port "));
    EXPECT_THAT(sentence, Not(HasSubstr("answer")));
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(EnrollmentTest, AServerNameTooLongForTheStoresFilesIsFoundBeforeTheFirstConnection)
{
    const TlsTestServer& server = master_.start();
    EnrollmentOrder tooLong = order(server);
    tooLong.server = std::string(240, 'a');
    EXPECT_THAT(failureOf(tooLong, ExitStatus::storeFailed),
                AllOf(StartsWith("the identity store cannot be used: Unable to write "),
                      EndsWith(": File name too long")));
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(EnrollmentTest, AFullOrReadOnlyDiskIsFoundBeforeTheFirstConnection)
{
    const TlsTestServer& server = master_.start();
    std::filesystem::create_directories(TQ_VAR_DIR);
    struct Case {
        const char* size; ///< of the file system with the store
        unsigned long flags;
        const char* cause;
    };
    for (const Case& disk : {Case{"size=32k,mode=0755", 0, "No space left on device"},
                             Case{"size=1m,mode=0755", MS_RDONLY, "Read-only file system"}}) {
        const std::string sentence = sentenceOnDisk(order(server), disk.size, disk.flags);
        EXPECT_THAT(sentence, AllOf(StartsWith("the identity store cannot be used: Unable to "),
                                    EndsWith(std::string(": ") + disk.cause)));
    }
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(EnrollmentTest, ALockThatCannotBeTakenIsFoundBeforeTheFirstConnection)
{
    ASSERT_EQ(tq::makeIdentityDirectory(), 0);
    const TlsTestServer& server = master_.start();
    std::filesystem::create_directory(TQ_IDENTITY_LOCK_FILE);
    EXPECT_THAT(failureOf(order(server), ExitStatus::storeFailed), HasSubstr("Unable to lock "));
    EXPECT_EQ(server.connections(), 0);
}
