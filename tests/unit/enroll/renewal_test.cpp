#include "enroll/renewal.h"

#include "enroll/enroll_failure.h"
#include "platform/paths.h"
#include "platform/status.h"
#include "platform/token_store.h"
#include "tests/unit/enroll/enrolling_server.h"
#include "tests/unit/test_files.h"

#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using enroll::chooseRenewal;
using enroll::ExitStatus;
using enroll::readCertificateLife;
using enroll::RenewalNeed;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using tests::readText;

namespace {

constexpr const char* RENEWAL = "/torquenix/security/renewals";
constexpr const char* ASK =
    "; enrol again with a new invitation of that server (tqmasterd invite --host h1.example)";

/// A host with an identity towards a server that renews it.
class RenewalTest : public ::testing::Test {
protected:
    RenewalTest()
    {
        tests::freshDirectory(TQ_VAR_DIR);
        master_.options.clientAuthoritiesPem = master_.authority.pem();
        master_.instead = [this](const fakes::SeenRequest& request) { return answer(request); };
        store({.commonName = "h1.example", .endSeconds = 50'000});
    }
    ~RenewalTest() override { tests::freshDirectory(TQ_VAR_DIR); }

    /// Gives the host a certificate of these options.
    void store(const fakes::CertificateOptions& options, const std::string& hostId = HOST_ID)
    {
        const fakes::Issued made = fakes::makeCertificate(master_.authority, options);
        tq::Identity identity;
        identity.server = "localhost";
        identity.hostId = hostId;
        identity.hostName = "h1.example";
        ASSERT_EQ(
            tq::saveIdentity(identity, {made.pem(), made.keyPem(), master_.authority.pem()}, &identity_), 0);
    }

    fakes::ServerAnswer answer(const fakes::SeenRequest& request)
    {
        if (request.path != RENEWAL)
            return tokenAnswer_;
        return renewalAnswer_.bytes.empty() && !renewalAnswer_.close ? master_.renew(request)
                                                                     : renewalAnswer_;
    }

    tq::Identity renew() { return enroll::renew(identity_, master_.start().port(), tq::WebLimits()); }

    /// The sentence of a renewal that has to fail, and to leave every file but the token as it was.
    std::string failureOf(ExitStatus status, int port = 0)
    {
        const std::string before = files();
        try {
            if (port == 0)
                renew();
            else
                enroll::renew(identity_, port, tq::WebLimits());
            ADD_FAILURE() << "no failure";
        } catch (const enroll::Failure& failure) {
            EXPECT_EQ(failure.status(), status) << failure.what();
            EXPECT_EQ(files(), before);
            return failure.what();
        }
        return "";
    }

    /// Names and contents of the store's files but the token.
    static std::string files()
    {
        std::string all;
        for (const std::string& name : tests::namesIn(TQ_IDENTITY_DIR)) {
            if (name.rfind("token.", 0) != 0)
                all += name + "\n" + readText(std::string(TQ_IDENTITY_DIR) + "/" + name);
        }
        return all;
    }

    EnrollingServer master_;
    tq::Identity identity_;
    fakes::ServerAnswer tokenAnswer_ = fakes::answer(201, R"({"token": "token-1", "expiresIn": 3600})");
    fakes::ServerAnswer renewalAnswer_; ///< in place of the renewal, when it has bytes or an end
};

} // namespace

TEST(ChooseRenewal, IsDueFromTwoThirdsOfTheLifeOn)
{
    const enroll::CertificateLife life{1000, 1300};
    EXPECT_EQ(chooseRenewal(life, 0), RenewalNeed::none);
    EXPECT_EQ(chooseRenewal(life, 1199), RenewalNeed::none);
    EXPECT_EQ(chooseRenewal(life, 1200), RenewalNeed::due);
    EXPECT_EQ(chooseRenewal(life, 1300), RenewalNeed::due);
    EXPECT_EQ(chooseRenewal(life, 1301), RenewalNeed::ended);
    EXPECT_EQ(chooseRenewal({1300, 1000}, 999), RenewalNeed::none);
    EXPECT_EQ(chooseRenewal({1300, 1000}, 1001), RenewalNeed::ended);
}

TEST(ReadCertificateLife, IsThatOfTheFilesCertificate)
{
    const std::string path = "/tmp/renewal_test.crt";
    tests::writeText(path, fakes::makeSelfSigned({.startSeconds = -500, .endSeconds = 1000}).pem());
    const auto life = readCertificateLife(path);
    ASSERT_TRUE(life);
    EXPECT_EQ(life->end - life->begin, 1500);
    tests::writeText(path, "no certificate");
    EXPECT_FALSE(readCertificateLife(path));
    std::filesystem::remove(path);
    EXPECT_FALSE(readCertificateLife(path));
}

TEST_F(RenewalTest, StoresANewKeyWithItsCertificateAndKeepsTheToken)
{
    const std::string oldKey = readText(tq::identityFiles(identity_).privateKey);
    const tq::Identity renewed = renew();
    const tq::IdentityFiles files = tq::identityFiles(renewed);
    EXPECT_EQ(renewed.hostId, HOST_ID);
    EXPECT_EQ(renewed.trustVersion, "7");
    const std::string key = readText(files.privateKey);
    EXPECT_NE(key, oldKey);
    EXPECT_TRUE(
        tq::isKeyOfCertificate(*tq::parseKey(key), *tq::parseCertificate(readText(files.certificate))));
    EXPECT_THAT(readText(files.token), HasSubstr("token-1"));
    EXPECT_EQ(tests::namesIn(TQ_IDENTITY_DIR).size(), 6U); // three files, the store, its lock, the token
}

TEST_F(RenewalTest, ShowsThePresentCertificateAndATokenAndSendsNoKey)
{
    ASSERT_TRUE(tq::storeToken(tq::identityFiles(identity_).token, {"token-0", std::time(nullptr) + 500}));
    const fakes::TlsTestServer& server = master_.start();
    enroll::renew(identity_, server.port(), tq::WebLimits());
    ASSERT_EQ(server.requests().size(), 1U);
    const fakes::SeenRequest request = server.requests()[0];
    EXPECT_EQ(request.method + request.path, std::string("POST") + RENEWAL);
    EXPECT_NE(request.clientCertificate, "");
    EXPECT_THAT(request.head, HasSubstr("Authorization: Bearer token-0\r\n"));
    EXPECT_THAT(request.body, StartsWith(R"({"certificateRequest":"-----BEGIN CERTIFICATE REQUEST-----)"));
    EXPECT_THAT(request.body, Not(HasSubstr("PRIVATE KEY")));
}

TEST_F(RenewalTest, AnEndedCertificateIsToldWithoutAConnection)
{
    store({.commonName = "h1.example", .startSeconds = -5000, .endSeconds = -100});
    EXPECT_THAT(failureOf(ExitStatus::invitationNeeded, fakes::closedPort()),
                AllOf(HasSubstr("the certificate of the host identity towards localhost has ended at 20"),
                      HasSubstr(" by this host's clock, so it cannot be renewed"), EndsWith(ASK)));
}

TEST_F(RenewalTest, ACertificateThatIsRefusedOrMissingNeedsANewInvitation)
{
    tokenAnswer_ = fakes::answer(403, R"({"errorCode": 7403, "errMessage": "revoked"})");
    EXPECT_THAT(failureOf(ExitStatus::invitationNeeded),
                AllOf(HasSubstr("server localhost does not renew the host identity towards localhost: "),
                      HasSubstr("HTTP status 403 (revoked)"), EndsWith(ASK)));
    ASSERT_TRUE(tq::storeToken(tq::identityFiles(identity_).token, {"token-0", std::time(nullptr) + 500}));
    renewalAnswer_ = tokenAnswer_;
    EXPECT_THAT(failureOf(ExitStatus::invitationNeeded), EndsWith(ASK));
    std::filesystem::remove(tq::identityFiles(identity_).certificate);
    EXPECT_THAT(failureOf(ExitStatus::invitationNeeded),
                AllOf(HasSubstr("this host's certificate /usr/torqv/var/identity/"), EndsWith(ASK)));
}

TEST_F(RenewalTest, OtherFailuresNeedNoInvitation)
{
    EXPECT_THAT(failureOf(ExitStatus::notReachable, fakes::closedPort()), Not(HasSubstr("invitation")));
    tokenAnswer_ = fakes::answer(500, "{}");
    EXPECT_THAT(failureOf(ExitStatus::replyUnusable), AllOf(HasSubstr("500"), Not(HasSubstr("invitation"))));
    tokenAnswer_ = fakes::answer(201, R"({"token": "token-1", "expiresIn": 3600})");
    for (const int status : {201, 302, 404, 500}) {
        renewalAnswer_ = fakes::answer(status, "{}");
        EXPECT_THAT(failureOf(ExitStatus::replyUnusable),
                    HasSubstr("did not renew the host identity towards localhost: HTTP status " +
                              std::to_string(status)));
    }
    renewalAnswer_ = fakes::answer(200, "{}");
    EXPECT_THAT(failureOf(ExitStatus::replyUnusable), HasSubstr("it has no \"hostId\""));
    fakes::CertificateOptions other;
    other.dnsNames = {"other.example"};
    master_.show(fakes::makeCertificate(master_.authority, other));
    failureOf(ExitStatus::notTrusted);
}

TEST_F(RenewalTest, AnAnswerForAnotherHostIsNotTaken)
{
    store({.commonName = "h1.example"}, "aaaaaaaa-1111-4222-8333-444455556666");
    EXPECT_THAT(failureOf(ExitStatus::replyUnusable),
                HasSubstr(std::string("it is for the host identifier ") + HOST_ID +
                          ", not for aaaaaaaa-1111-4222-8333-444455556666"));
}

TEST_F(RenewalTest, AnIdentityThatWasReplacedMeanwhileStaysAsItIs)
{
    master_.instead = [this](const fakes::SeenRequest& request) {
        const int removed = request.path == RENEWAL ? tq::removeIdentity("localhost", CERT_TYPE_HOST) : 0;
        EXPECT_EQ(removed, 0);
        return answer(request);
    };
    try {
        renew();
        ADD_FAILURE() << "no failure";
    } catch (const enroll::Failure& failure) {
        EXPECT_EQ(failure.status(), ExitStatus::noSuchIdentity);
        EXPECT_THAT(failure.what(), HasSubstr("was removed or replaced by another run meanwhile"));
    }
    EXPECT_FALSE(std::filesystem::exists(TQ_IDENTITY_STORE_FILE));
}

TEST_F(RenewalTest, FilesThatAnotherRenewalTookAwayAreNotCalledMissing)
{
    const tq::Identity stale = identity_;
    renew();
    identity_ = stale;
    EXPECT_THAT(failureOf(ExitStatus::noSuchIdentity, master_.start().port()),
                HasSubstr("was removed or replaced by another run meanwhile"));
}
