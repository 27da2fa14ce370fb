#include "enroll/enroll_command.h"

#include "platform/identity_store.h"
#include "platform/user.h"
#include "tests/fakes/log/recording_log.h"
#include "tests/unit/enroll/enrolling_server.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <utility>
#include <vector>

using fakes::TlsTestServer;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

namespace {

int isRoot = 1;

} // namespace

/// In place of the platform's own: tests run as anybody.
int is_user_admin(int /*mode*/)
{
    return isRoot;
}

namespace {

struct CommandRun {
    int status = -1;
    std::string out;
    std::string err;
    std::vector<std::string> argv; ///< as the process's command line shows them afterwards
};

/// Runs the command; `output` takes its standard output instead of the result's `out`.
CommandRun run(const std::vector<std::string>& arguments, int port = 1, std::ostream* output = nullptr)
{
    CommandRun result;
    result.argv = arguments;
    result.argv.insert(result.argv.begin(), "tqenroll");
    std::vector<char*> argv;
    for (std::string& argument : result.argv)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    std::ostringstream out;
    std::ostringstream err;
    result.status = enroll::runCommand(static_cast<int>(result.argv.size()), argv.data(),
                                       output != nullptr ? *output : out, err, port);
    result.out = out.str();
    result.err = err.str();
    return result;
}

class EnrollCommandTest : public ::testing::Test {
protected:
    EnrollCommandTest()
    {
        isRoot = 1;
        std::filesystem::remove_all(TQ_VAR_DIR);
        std::ofstream(TQ_CONFIG_FILE) << "CLIENT_NAME = h1.example\n";
        answerAll();
    }
    ~EnrollCommandTest() override
    {
        std::filesystem::create_directories(TQ_VAR_DIR);
        std::filesystem::remove(TQ_CONFIG_FILE);
    }

    [[nodiscard]] std::vector<std::string> enrolment() const
    {
        return {"--server",         "localhost",     "--invitation",
                master_.invitation, "--fingerprint", master_.fingerprint()};
    }

    /// Enrolment, tokens and renewals.
    void answerAll()
    {
        master_.instead = [this](const fakes::SeenRequest& request) {
            if (request.path == "/torquenix/security/tokens")
                return fakes::answer(201, R"({"token": "token-1", "expiresIn": 3600})");
            return request.path == "/torquenix/security/renewals" ? master_.renew(request)
                                                                  : master_.enrol(request);
        };
    }

    [[nodiscard]] CommandRun enrolHere(const std::vector<std::string>& more = {})
    {
        const TlsTestServer& server = master_.start();
        std::vector<std::string> arguments = enrolment();
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run(arguments, server.port());
    }

    EnrollingServer master_;
};

const std::string GOOD_FINGERPRINT(64, 'a');

} // namespace

TEST_F(EnrollCommandTest, EnrolsAndSaysAsWhom)
{
    const CommandRun result = enrolHere();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, MatchesRegex("Enrolled with localhost as host h1.example, host id "
                                         "6f0f0000-1111-4222-8333-444455556666; the certificate ends "
                                         "20..-..-.. ..:..:.. UTC\n"));
}

TEST_F(EnrollCommandTest, ListShowsServerTypeHostIdNameAndEnd)
{
    ASSERT_EQ(enrolHere().status, 0);
    ASSERT_EQ(enrolHere({"--cluster"}).status, 0);
    const CommandRun result = run({"--list"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out,
                MatchesRegex(
                    "SERVER     TYPE     HOST ID                               HOST NAME   CERTIFICATE ENDS\n"
                    "localhost  host     6f0f0000-1111-4222-8333-444455556666  h1.example  20.*UTC\n"
                    "localhost  cluster  6f0f0000-1111-4222-8333-444455556666  h1.example  20.*UTC\n"));
}

TEST_F(EnrollCommandTest, ListWithoutAStoreSaysSo)
{
    const CommandRun result = run({"--list"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "This host has no identities.\n");
}

TEST_F(EnrollCommandTest, RemoveTakesTheNamedIdentityAlone)
{
    ASSERT_EQ(enrolHere().status, 0);
    ASSERT_EQ(enrolHere({"--cluster"}).status, 0);
    const CommandRun result = run({"--remove", "--server", "localhost", "--cluster"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "Removed the cluster identity towards localhost\n");
    std::vector<tq::Identity> identities;
    ASSERT_EQ(tq::loadIdentityStore(identities), 0);
    ASSERT_EQ(identities.size(), 1U);
    EXPECT_EQ(identities[0].certType, CERT_TYPE_HOST);
}

TEST_F(EnrollCommandTest, RemovingTheLastIdentityDeletesTheStore)
{
    ASSERT_EQ(enrolHere().status, 0);
    EXPECT_EQ(run({"--remove", "--server", "localhost"}).status, 0);
    std::vector<tq::Identity> identities;
    EXPECT_EQ(tq::loadIdentityStore(identities), 7610);
}

TEST_F(EnrollCommandTest, RemovingWhatIsNotThereIs10)
{
    const CommandRun noStore = run({"--remove", "--server", "localhost"});
    EXPECT_EQ(noStore.status, 10);
    EXPECT_EQ(noStore.err, "tqenroll: this host has no host identity towards localhost.\n");
    ASSERT_EQ(enrolHere().status, 0);
    EXPECT_EQ(run({"--remove", "--server", "other"}).status, 10);
    EXPECT_EQ(run({"--remove", "--server", "localhost", "--cluster"}).status, 10);
}

TEST_F(EnrollCommandTest, WrongCommandLinesAre2WithOneSentence)
{
    const std::vector<std::string> wrong[] = {
        {},
        {"--bogus"},
        {"extra"},
        {"--server"},
        {"--server", "s"},
        {"--server", "s", "--invitation", "i"},
        {"--server", "s", "--fingerprint", GOOD_FINGERPRINT},
        {"--invitation", "i", "--fingerprint", GOOD_FINGERPRINT},
        {"--server", "s", "--invitation", "i", "--fingerprint", "abc"},
        {"--server", "a/b", "--invitation", "i", "--fingerprint", GOOD_FINGERPRINT},
        {"--server", "daemon", "--invitation", "i", "--fingerprint", GOOD_FINGERPRINT},
        {"--server", "user@host", "--invitation", "i", "--fingerprint", GOOD_FINGERPRINT},
        {"--server", ".s", "--invitation", "i", "--fingerprint", GOOD_FINGERPRINT},
        {"--server", "s", "--invitation", "\xFF", "--fingerprint", GOOD_FINGERPRINT},
        {"--list", "--server", "s"},
        {"--list", "--remove"},
        {"--list", "--cluster"},
        {"--remove"},
        {"--remove", "--server", "s", "--invitation", "i"},
        {"--remove", "--renew", "--server", "s"},
        {"--json"},
        {"--list", "--metrics"},
        {"--renew", "--json"},
        {"--renew", "--cluster"},
        {"--renew", "--server", "a/b"},
        {"--renew", "--fingerprint", GOOD_FINGERPRINT},
        {"--if-needed"},
    };
    for (const std::vector<std::string>& arguments : wrong) {
        const CommandRun result = run(arguments);
        EXPECT_EQ(result.status, 2) << ::testing::PrintToString(arguments);
        EXPECT_THAT(result.err, MatchesRegex("tqenroll: .*\\.\n")) << ::testing::PrintToString(arguments);
        EXPECT_EQ(result.out, "");
    }
    EXPECT_FALSE(std::filesystem::exists(TQ_VAR_DIR));
}

TEST_F(EnrollCommandTest, AWrongCommandLineOfAStatusIsNotTakenForAVerdict)
{
    const std::vector<std::string> wrong[] = {
        {"--status", "--list"}, {"--status", "--server", "s"}, {"--status", "--json", "--metrics"},
        {"--jsn", "--status"},  {"--status", "--if-needed"},
    };
    for (const std::vector<std::string>& arguments : wrong) {
        const CommandRun result = run(arguments);
        EXPECT_EQ(result.status, 12) << ::testing::PrintToString(arguments);
        EXPECT_THAT(result.err, MatchesRegex("tqenroll: .*\\.\n")) << ::testing::PrintToString(arguments);
        EXPECT_EQ(result.out, "");
    }
}

TEST_F(EnrollCommandTest, AnInvitationThatIsNotUtf8IsNamed)
{
    EXPECT_EQ(run({"--server", "s", "--invitation", "a\xC3", "--fingerprint", GOOD_FINGERPRINT}).err,
              "tqenroll: the invitation is not UTF-8 text.\n");
}

TEST_F(EnrollCommandTest, AResultThatCannotBeWrittenIs1WithOneSentence)
{
    const TlsTestServer& server = master_.start();
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"--help"}, "the help"},
        {{"--list"}, "the list of identities"},
        {enrolment(), "this host is enrolled, but the report of it"},
        {{"--renew"}, "the identity is renewed, but the report of it"},
        {{"--remove", "--server", "localhost"}, "the identity is removed, but the report of it"},
    };
    for (const auto& [arguments, what] : cases) {
        std::ofstream full("/dev/full");
        ASSERT_TRUE(full);
        const CommandRun result = run(arguments, server.port(), &full);
        EXPECT_EQ(result.status, 1) << what;
        EXPECT_EQ(result.err, std::string("tqenroll: ") + what +
                                  " could not be written to standard output: No space left on device.\n");
    }
}

TEST_F(EnrollCommandTest, HelpNamesTheExitStatuses)
{
    const CommandRun result = run({"--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("11 the certificate has ended or is refused"));
    EXPECT_THAT(result.out, HasSubstr("Of --status: 0 in step with every server;"));
    EXPECT_EQ(result.err, "");
}

TEST_F(EnrollCommandTest, WhoIsNotRootGets3AndNothingIsTouched)
{
    isRoot = 0;
    for (const std::vector<std::string>& arguments : {enrolment(),
                                                      {"--list"},
                                                      {"--remove", "--server", "localhost"},
                                                      {"--status"},
                                                      {"--renew", "--if-needed"}}) {
        const CommandRun result = run(arguments);
        EXPECT_EQ(result.status, 3);
        EXPECT_EQ(result.err, "tqenroll: only root may read or change this host's identities.\n");
    }
    EXPECT_FALSE(std::filesystem::exists(TQ_VAR_DIR));
}

TEST_F(EnrollCommandTest, EachFailureHasItsStatusAndOneSentence)
{
    const CommandRun unreachable = run(enrolment(), fakes::closedPort());
    EXPECT_EQ(unreachable.status, 4);
    EXPECT_THAT(unreachable.err,
                MatchesRegex("tqenroll: server localhost on port [0-9]+ is not reachable: .*\\.\n"));

    const std::string good = master_.invitation;
    master_.invitation = "another";
    const TlsTestServer& server = master_.start();
    std::vector<std::string> arguments = enrolment();
    arguments[3] = good;
    const CommandRun refused = run(arguments, server.port());
    EXPECT_EQ(refused.status, 7);
    EXPECT_EQ(refused.err,
              "tqenroll: server localhost does not take the invitation, which is unknown, used or expired; "
              "ask for a new one.\n");

    arguments[5] = GOOD_FINGERPRINT;
    EXPECT_EQ(run(arguments, server.port()).status, 6);

    fakes::CertificateOptions other;
    other.dnsNames = {"other.example"};
    master_.show(fakes::makeCertificate(master_.authority, other));
    EXPECT_EQ(enrolHere().status, 5);

    std::ofstream(std::string(TQ_IDENTITY_DIR) + "/identity.json") << "damaged";
    for (const std::vector<std::string>& each : {enrolment(),
                                                 {"--list"},
                                                 {"--remove", "--server", "localhost"},
                                                 {"--status"},
                                                 {"--renew"},
                                                 {"--renew", "--if-needed"}}) {
        const CommandRun damaged = run(each);
        EXPECT_EQ(damaged.status, 9);
        EXPECT_THAT(damaged.err, HasSubstr("identity.json"));
    }
}

TEST_F(EnrollCommandTest, AnInvitationForAnotherHostIsRefusedAndLeavesNoIdentity)
{
    master_.hostName = "db7.example";
    const CommandRun result = enrolHere();
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(
        result.err,
        "tqenroll: the invitation was for host db7.example, this host is h1.example, and it is spent now; "
        "ask for one for this host (tqmasterd invite --host h1.example), or set CLIENT_NAME in "
        "/usr/torqv/torquenix/kx.conf if the invited name is this host's.\n");
    EXPECT_EQ(run({"--list"}).out, "This host has no identities.\n");
    EXPECT_EQ(enrolHere({"--cluster"}).status, 0) << "a cluster's virtual host has a name of its own";
}

TEST_F(EnrollCommandTest, StatusIsToldInThreeForms)
{
    EXPECT_EQ(run({"--status"}).status, 2);
    ASSERT_EQ(enrolHere().status, 0);
    const CommandRun lines = run({"--status"});
    EXPECT_EQ(lines.status, 1) << "the certificate of the test ends within the hour";
    EXPECT_THAT(lines.out, MatchesRegex("localhost: in step; .*\n"));
    EXPECT_THAT(run({"--status", "--json"}).out, MatchesRegex("\\{\"servers\": .*\\}\n"));
    EXPECT_THAT(run({"--status", "--metrics"}).out,
                HasSubstr("tqhostdb_last_status{server=\"localhost\"} 0\n"));
}

TEST_F(EnrollCommandTest, AStatusThatCannotBeWrittenIsNoVerdict)
{
    std::ofstream full("/dev/full");
    const CommandRun result = run({"--status"}, 1, &full);
    EXPECT_EQ(result.status, 12);
    EXPECT_EQ(result.err,
              "tqenroll: the status could not be written to standard output: No space left on device.\n");
}

TEST_F(EnrollCommandTest, RenewalWithoutAnythingToRenew)
{
    EXPECT_EQ(run({"--renew", "--if-needed"}).status, 0);
    EXPECT_EQ(run({"--renew"}).err, "tqenroll: this host has no identity to renew.\n");
    EXPECT_EQ(run({"--renew", "--if-needed", "--server", "localhost"}).status, 10);
    ASSERT_EQ(enrolHere().status, 0);
    const CommandRun early = run({"--renew", "--if-needed"});
    EXPECT_EQ(early.status, 0);
    EXPECT_EQ(early.out + early.err, "");
    EXPECT_EQ(run({"--renew", "--server", "localhost", "--cluster"}).status, 10);
}

TEST_F(EnrollCommandTest, ARenewalThatFailsSaysSoAndGoesOnWithTheNext)
{
    ASSERT_EQ(enrolHere().status, 0);
    ASSERT_EQ(enrolHere({"--cluster"}).status, 0);
    const CommandRun result = run({"--renew"}, fakes::closedPort());
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.err,
                MatchesRegex("(tqenroll: server localhost on port [0-9]+ is not reachable: .*\\.\n){2}"));
    const TlsTestServer& server = master_.start();
    EXPECT_THAT(
        run({"--renew"}, server.port()).out,
        MatchesRegex("Renewed the host identity towards localhost; the certificate ends 20.* UTC\n"
                     "Renewed the cluster identity towards localhost; the certificate ends 20.* UTC\n"));
}

TEST_F(EnrollCommandTest, TheInvitationIsBlottedOutOnTheCommandLineAndNeverShown)
{
    const CommandRun spaced = enrolHere();
    EXPECT_EQ(spaced.argv[4], std::string(master_.invitation.size(), 'x'));
    const CommandRun joined =
        run({"--server", "localhost", "--invitation=let-me-in", "--fingerprint", GOOD_FINGERPRINT},
            fakes::closedPort());
    EXPECT_EQ(joined.argv[3], "--invitation=xxxxxxxxx");
    EXPECT_THAT(spaced.out + spaced.err + joined.out + joined.err, Not(HasSubstr("let-me-in")));
    EXPECT_EQ(fakes::countRecorded(0, "let-me-in"), 0U);
}
