#include "masterd/command_line.h"

#include "masterd/clock.h"
#include "masterd/command_failure.h"
#include "masterd/data_folder.h"
#include "masterd/store.h"
#include "platform/paths.h"
#include "tests/unit/masterd/raw_tls_client.h"
#include "tests/unit/scratch_directory.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/x509v3.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using masterd::DataFolder;

class CommandLine : public testing::Test {
protected:
    int run(std::vector<const char*> arguments)
    {
        arguments.insert(arguments.begin(), "tqmasterd");
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const int status =
            masterd::runCommandLine(static_cast<int>(arguments.size()), arguments.data(), startFolder_);
        out_ = testing::internal::GetCapturedStdout();
        err_ = testing::internal::GetCapturedStderr();
        return status;
    }
    /// The rest of the output's line that begins with a word.
    std::string printed(const std::string& word) const
    {
        const std::size_t at = out_.find(word + ": ");
        return at == std::string::npos
                   ? ""
                   : out_.substr(at + word.size() + 2, out_.find('\n', at) - at - word.size() - 2);
    }
    void init() { ASSERT_EQ(run({"init", "--data", "data", "--name", "localhost,127.0.0.1"}), 0) << err_; }

    tests::ScratchDirectory scratch_;
    DataFolder folder_{scratch_.file("data")};
    std::string startFolder_ = scratch_.path();
    std::string out_;
    std::string err_;
};

TEST_F(CommandLine, InitMakesAFolderThatCountsFromTheStartFolderAndPrintsTheFingerprint)
{
    init();
    const masterd::Authority authority(masterd::loadKeyAndCertificate(folder_.authorityFile()));
    EXPECT_EQ(out_, "fingerprint: " + authority.fingerprint() + "\n");
    EXPECT_EQ(err_, "");
}

TEST_F(CommandLine, InitTakesEveryNameIntoTheServerCertificate)
{
    init();
    const masterd::KeyAndCertificate server = masterd::loadKeyAndCertificate(folder_.serverFile());
    EXPECT_EQ(X509_check_host(server.certificate.get(), "localhost", 0, 0, nullptr), 1);
    EXPECT_EQ(X509_check_ip_asc(server.certificate.get(), "127.0.0.1", 0), 1);
}

TEST_F(CommandLine, SecondInitFailsAndPrintsNothingToRelyOn)
{
    init();
    EXPECT_EQ(run({"init", "--data", "data", "--name", "localhost"}), masterd::EXIT_FAILED);
    EXPECT_EQ(out_, "");
    EXPECT_EQ(err_.rfind("tqmasterd: " + folder_.path() + " holds an authority already", 0), 0U) << err_;
}

TEST_F(CommandLine, InvitePrintsInvitationAndFingerprint)
{
    init();
    const std::string fingerprint = printed("fingerprint");
    ASSERT_EQ(run({"invite", "--data", "data", "--host", "h1"}), 0) << err_;
    EXPECT_EQ(printed("fingerprint"), fingerprint);
    const auto invitation = masterd::parseSecret(printed("invitation"));
    ASSERT_TRUE(invitation) << out_;
    masterd::Store store(folder_.databaseFile());
    const std::int64_t now = masterd::unixNow();
    EXPECT_EQ(store.findInvitation(*invitation, now)->hostName, "h1");
    EXPECT_EQ(store.findInvitation(*invitation, now)->type, masterd::IdentityType::host);
    EXPECT_TRUE(store.findInvitation(*invitation, now + 86000));
    EXPECT_FALSE(store.findInvitation(*invitation, now + 86401));
}

TEST_F(CommandLine, InviteTakesTypeAndEnd)
{
    init();
    ASSERT_EQ(run({"invite", "--data", "data", "--host", "c1", "--cluster", "--expires-in", "10"}), 0)
        << err_;
    const auto invitation = masterd::parseSecret(printed("invitation"));
    ASSERT_TRUE(invitation);
    masterd::Store store(folder_.databaseFile());
    const std::int64_t now = masterd::unixNow();
    EXPECT_EQ(store.findInvitation(*invitation, now)->type, masterd::IdentityType::cluster);
    EXPECT_FALSE(store.findInvitation(*invitation, now + 11));
}

TEST_F(CommandLine, RevokeEndsWhatIsThereAndFailsWithoutIt)
{
    init();
    ASSERT_EQ(run({"invite", "--data", "data", "--host", "h1"}), 0);
    ASSERT_EQ(run({"revoke", "--data", "data", "--host", "h1"}), 0) << err_;
    EXPECT_EQ(out_, "revoked identities: 0\nwithdrawn invitations: 1\n");
    EXPECT_EQ(run({"revoke", "--data", "data", "--host", "h1"}), masterd::EXIT_FAILED);
    EXPECT_EQ(err_, "tqmasterd: no identity and no open invitation is for h1\n");
}

TEST_F(CommandLine, CommandsOnAFolderWithoutAuthorityFail)
{
    for (const char* command : {"invite", "revoke"}) {
        EXPECT_EQ(run({command, "--data", "data", "--host", "h1"}), masterd::EXIT_FAILED);
        EXPECT_EQ(err_,
                  "tqmasterd: " + folder_.path() + " holds no authority; make one with `tqmasterd init`\n");
    }
    EXPECT_EQ(run({"serve", "--data", "data"}), masterd::EXIT_FAILED);
    EXPECT_FALSE(std::filesystem::exists(folder_.path()));
}

TEST_F(CommandLine, DamagedDatabaseIsToldByName)
{
    init();
    tests::writeText(folder_.databaseFile(), std::string(4096, 'x'));
    EXPECT_EQ(run({"invite", "--data", "data", "--host", "h1"}), masterd::EXIT_FAILED);
    EXPECT_EQ(err_, "tqmasterd: " + folder_.databaseFile() + ": file is not a database\n");
}

TEST_F(CommandLine, DotsAfterALinkLeadWhereTheFileSystemSays)
{
    std::filesystem::create_directories(scratch_.file("far/away"));
    std::filesystem::create_directory_symlink(scratch_.file("far/away"), scratch_.file("link"));
    ASSERT_EQ(run({"init", "--data", "link/../data", "--name", "localhost"}), 0) << err_;
    EXPECT_TRUE(std::filesystem::exists(scratch_.file("far/data/authority.pem")));
    EXPECT_FALSE(std::filesystem::exists(folder_.path()));
    EXPECT_EQ(run({"invite", "--data", "link/../data/", "--host", "h1"}), 0) << err_;
}

TEST_F(CommandLine, RelativePathWithoutAStartFolderIsAnError)
{
    init();
    startFolder_ = "";
    EXPECT_EQ(run({"invite", "--data", "data", "--host", "h1"}), masterd::EXIT_FAILED);
    EXPECT_EQ(err_, "tqmasterd: the current folder cannot be read, so data leads nowhere; give an absolute "
                    "path\n");
    EXPECT_EQ(run({"invite", "--data", folder_.path().c_str(), "--host", "h1"}), 0) << err_;
}

TEST_F(CommandLine, CommandLineThatIsWrongTouchesNothing)
{
    const std::vector<std::vector<const char*>> wrong = {
        {},
        {"start"},
        {"init"},
        {"init", "--data", "data"},
        {"init", "--name", "a"},
        {"init", "--data", "data", "--name", ""},
        {"init", "--data", "data", "--name", "a,*.b"},
        {"init", "--data", "data", "--name", "a", "--cluster"},
        {"invite", "--data", "data"},
        {"invite", "--data", "data", "--host", "a b"},
        {"invite", "--data", "data", "--host", "h1", "--expires-in", "0"},
        {"invite", "--data", "data", "--host", "h1", "--expires-in", "x"},
        {"revoke", "--data", "data"},
        {"serve"},
        {"serve", "--data", "data", "extra"},
    };
    for (const auto& arguments : wrong) {
        EXPECT_EQ(run(arguments), masterd::EXIT_USAGE) << testing::PrintToString(arguments);
        EXPECT_NE(err_, "") << testing::PrintToString(arguments);
        EXPECT_FALSE(std::filesystem::exists(folder_.path())) << testing::PrintToString(arguments);
    }
}

TEST_F(CommandLine, HelpTellsTheExitStatuses)
{
    EXPECT_EQ(run({"--help"}), 0);
    EXPECT_NE(out_.find("Exit status: 0 done; 1"), std::string::npos) << out_;
    EXPECT_EQ(run({"serve", "--help"}), 0);
    EXPECT_NE(out_.find("--listen"), std::string::npos) << out_;
}

/// A command whose standard output is a full disk.
class FullDisk : public CommandLine {
protected:
    /// Exit status; standard error goes to err_.
    int runOnFullDisk(std::vector<const char*> arguments)
    {
        arguments.insert(arguments.begin(), "tqmasterd");
        const pid_t child = fork();
        if (child == 0) {
            dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO);
            dup2(open(scratch_.file("err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
            _exit(masterd::runCommandLine(static_cast<int>(arguments.size()), arguments.data(),
                                          scratch_.path()));
        }
        int status = 0;
        waitpid(child, &status, 0);
        err_ = tests::readText(scratch_.file("err"));
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

TEST_F(FullDisk, ResultThatIsLostIsAFailure)
{
    const std::string begin = "tqmasterd: cannot write to standard output: No space left on device; ";
    EXPECT_EQ(runOnFullDisk({"init", "--data", "data", "--name", "localhost"}), masterd::EXIT_FAILED);
    EXPECT_EQ(err_, begin + "the authority is made, and an invitation shows its fingerprint\n");
    EXPECT_EQ(runOnFullDisk({"invite", "--data", "data", "--host", "h1"}), masterd::EXIT_FAILED);
    EXPECT_EQ(err_, begin + "the invitation is lost, make another one\n");
    EXPECT_EQ(runOnFullDisk({"revoke", "--data", "data", "--host", "h1"}), masterd::EXIT_FAILED);
    EXPECT_EQ(err_, begin + "it is done nevertheless\n");
    EXPECT_EQ(run({"invite", "--data", "data", "--host", "h1"}), 0) << err_;
}

/// `tqmasterd serve` as a process of its own; its standard error goes to a file.
class ServeProcess : public CommandLine {
protected:
    void start(std::vector<const char*> arguments)
    {
        arguments.insert(arguments.begin(),
                         {"tqmasterd", "serve", "--data", "data", "--listen", "127.0.0.1"});
        child_ = fork();
        ASSERT_GE(child_, 0);
        if (child_ != 0)
            return;
        for (const auto& [name, descriptor] :
             {std::pair{"out", STDOUT_FILENO}, std::pair{"err", STDERR_FILENO}})
            dup2(open(scratch_.file(name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), descriptor);
        exit(masterd::runCommandLine(static_cast<int>(arguments.size()), arguments.data(), scratch_.path()));
    }
    void waitUntilListening() const
    {
        for (int i = 0; i < 1000 && tests::readText(scratch_.file("out")).empty(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ASSERT_EQ(tests::readText(scratch_.file("out")),
                  "listening on 127.0.0.1 port " + std::to_string(TQ_WEB_SERVICE_PORT) + "\n");
    }
    /// Exit status after a signal (0: none).
    int end(int signal)
    {
        if (signal != 0)
            kill(child_, signal);
        int status = 0;
        waitpid(child_, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    pid_t child_ = -1;
};

TEST_F(ServeProcess, ServesOnItsPortUntilASignalEndsIt)
{
    init();
    for (const int signal : {SIGTERM, SIGINT}) {
        start({});
        waitUntilListening();
        EXPECT_TRUE(tests::RawTlsClient(TQ_WEB_SERVICE_PORT).connected());
        EXPECT_EQ(end(signal), 0);
        std::filesystem::remove(scratch_.file("out"));
    }
}

TEST_F(ServeProcess, HangupReadsTheSettingsAgainAndDoesNotEndIt)
{
    init();
    start({});
    waitUntilListening();
    tests::writeText(folder_.settingsFile(), "[]");
    kill(child_, SIGHUP);
    for (int i = 0; i < 1000 && tests::readText(scratch_.file("err")).empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(end(SIGTERM), 0);
    EXPECT_EQ(tests::readText(scratch_.file("err")),
              "tqmasterd: the settings stay as they were: " + folder_.settingsFile() +
                  ": it is not a JSON object\n");
}

TEST_F(ServeProcess, RequestLogGoesWhereItIsToGo)
{
    init();
    const std::string request = "GET / HTTP/1.1\r\nConnection: close\r\n\r\n";
    for (const bool toFile : {true, false}) {
        start(toFile ? std::vector<const char*>{"--request-log", "log"}
                     : std::vector<const char*>{"--no-request-log"});
        waitUntilListening();
        tests::RawTlsClient client(TQ_WEB_SERVICE_PORT);
        client.send(request);
        EXPECT_NE(client.receiveAll().find("403"), std::string::npos);
        EXPECT_EQ(end(SIGTERM), 0);
        EXPECT_EQ(tests::readText(scratch_.file("err")), "");
        std::filesystem::remove(scratch_.file("out"));
    }
    const std::string log = tests::readText(scratch_.file("log"));
    EXPECT_NE(log.find("\"GET /\" 403"), std::string::npos) << log;
    EXPECT_EQ(log.find('\n'), log.size() - 1) << log;
    EXPECT_EQ(tests::modeOf(scratch_.file("log")), 0600U);
}

TEST_F(ServeProcess, RequestLogThatCannotBeOpenedEndsIt)
{
    init();
    start({"--request-log", "absent/log"});
    EXPECT_EQ(end(0), masterd::EXIT_FAILED);
    EXPECT_EQ(tests::readText(scratch_.file("err")), "tqmasterd: cannot open the request log " +
                                                         scratch_.file("absent/log") +
                                                         ": No such file or directory\n");
}

} // namespace
