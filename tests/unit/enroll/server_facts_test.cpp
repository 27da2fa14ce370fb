#include "enroll/server_facts.h"

#include "enroll/enroll_failure.h"
#include "platform/paths.h"
#include "tests/fakes/tls/test_pki.h"
#include "tests/unit/test_files.h"

#include <ctime>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

using enroll::judgeToken;
using enroll::parseUpdateStatus;
using enroll::readServerFacts;
using enroll::ServerFacts;
using enroll::TokenState;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tests::writeText;

namespace {

constexpr std::int64_t NOW = 1'800'000'000;

class ReadServerFacts : public ::testing::Test {
protected:
    ReadServerFacts()
    {
        tests::freshDirectory(TQ_VAR_DIR);
        tests::freshDirectory(TQ_IDENTITY_DIR, 0700);
    }
    ~ReadServerFacts() override { tests::freshDirectory(TQ_VAR_DIR); }

    static tq::Identity store(const std::string& server, cert_type type = CERT_TYPE_HOST)
    {
        static const fakes::Issued ISSUED = fakes::makeSelfSigned({.commonName = "h1", .endSeconds = 5000});
        tq::Identity identity;
        identity.server = server;
        identity.certType = type;
        identity.hostId = "id of " + server;
        identity.hostName = "h1.example";
        EXPECT_EQ(tq::saveIdentity(identity, {ISSUED.pem(), ISSUED.keyPem(), ISSUED.pem()}, &identity), 0);
        return identity;
    }

    static void writeVar(const std::string& name, const std::string& text)
    {
        writeText(std::string(TQ_VAR_DIR) + "/" + name, text, 0644);
    }

    static ServerFacts onlyServer()
    {
        std::vector<ServerFacts> all = readServerFacts(NOW);
        EXPECT_EQ(all.size(), 1U);
        return all.at(0);
    }
};

} // namespace

TEST(ParseUpdateStatus, TakesANumberWithOrWithoutItsLineEnd)
{
    EXPECT_EQ(parseUpdateStatus("25\n"), 25);
    EXPECT_EQ(parseUpdateStatus("7611"), 7611);
    EXPECT_EQ(parseUpdateStatus("-1\n"), -1);
    EXPECT_EQ(parseUpdateStatus("0\n"), 0);
}

TEST(ParseUpdateStatus, RefusesEverythingElse)
{
    for (const std::string& text :
         {std::string(), std::string("\n"), std::string("25\n\n"), std::string("25\r\n"),
          std::string(" 25\n"), std::string("+25"), std::string("25x"), std::string("2 5"),
          std::string("0x19"), std::string("25.0"), std::string("99999999999\n"), std::string("25\0", 3),
          std::string("\xFF\xFE"), std::string(10'000'000, '7')})
        EXPECT_EQ(parseUpdateStatus(text), std::nullopt) << text.substr(0, 20);
}

TEST(JudgeToken, IsExpiredFromItsEndOn)
{
    EXPECT_EQ(judgeToken(std::nullopt, 5), TokenState::none);
    EXPECT_EQ(judgeToken(tq::AccessToken{"t", 6}, 5), TokenState::valid);
    EXPECT_EQ(judgeToken(tq::AccessToken{"t", 5}, 5), TokenState::expired);
}

TEST_F(ReadServerFacts, NoStoreIsNoServers)
{
    EXPECT_THAT(readServerFacts(NOW), IsEmpty());
    std::filesystem::remove_all(TQ_IDENTITY_DIR);
    EXPECT_THAT(readServerFacts(NOW), IsEmpty());
}

TEST_F(ReadServerFacts, AStoreThatCannotBeUsedIs9WithItsCause)
{
    store("m1");
    writeText(TQ_IDENTITY_STORE_FILE, "{", 0600);
    try {
        readServerFacts(NOW);
        ADD_FAILURE() << "no failure";
    } catch (const enroll::Failure& failure) {
        EXPECT_EQ(failure.status(), enroll::ExitStatus::storeFailed);
        EXPECT_THAT(failure.what(), HasSubstr("identity.json: it is not JSON"));
    }
}

TEST_F(ReadServerFacts, AHostThatNeverUpdatedIsInStepAndWasNeverThere)
{
    store("m1");
    const ServerFacts facts = onlyServer();
    EXPECT_EQ(facts.server, "m1");
    EXPECT_FALSE(facts.behind);
    EXPECT_EQ(facts.status, std::nullopt);
    EXPECT_EQ(facts.lastAttempt, std::nullopt);
    EXPECT_EQ(facts.lastRecordSent, std::nullopt);
    EXPECT_THAT(facts.problems, IsEmpty());
    ASSERT_EQ(facts.identities.size(), 1U);
    EXPECT_EQ(facts.identities[0].hostId, "id of m1");
    EXPECT_EQ(facts.identities[0].token, TokenState::none);
    ASSERT_TRUE(facts.identities[0].certificateEnd);
    EXPECT_NEAR(static_cast<double>(*facts.identities[0].certificateEnd),
                static_cast<double>(std::time(nullptr) + 5000), 100);
}

TEST_F(ReadServerFacts, TimesAreThoseOfCacheAndLockAndTheStatusIsItsFiles)
{
    store("m1");
    writeVar("hostdb.cache.m1", "{}\n");
    writeVar("hostdbupdate.lock.m1", "");
    writeVar("hostdbupdate.status.m1", "7620\n");
    const ServerFacts facts = onlyServer();
    struct stat cache {};
    struct stat lock {};
    ASSERT_EQ(stat(TQ_INSTALL_ROOT "/var/hostdb.cache.m1", &cache), 0);
    ASSERT_EQ(stat(TQ_INSTALL_ROOT "/var/hostdbupdate.lock.m1", &lock), 0);
    EXPECT_EQ(facts.lastRecordSent, cache.st_mtim.tv_sec);
    EXPECT_EQ(facts.lastAttempt, lock.st_mtim.tv_sec);
    EXPECT_TRUE(facts.behind);
    EXPECT_EQ(facts.status, 7620);
    EXPECT_THAT(facts.problems, IsEmpty());
}

TEST_F(ReadServerFacts, IdentitiesOfOneServerStandTogetherUnderItsNameAsItIsSpelt)
{
    store("m1");
    store("M2");
    store("m1", CERT_TYPE_CLUSTER);
    store("m2", CERT_TYPE_CLUSTER);
    writeVar("hostdbupdate.status.M2", "25\n");
    const std::vector<ServerFacts> all = readServerFacts(NOW);
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[0].server, "m1");
    EXPECT_EQ(all[0].identities.size(), 2U);
    EXPECT_EQ(all[1].server, "M2");
    EXPECT_TRUE(all[1].behind);
    EXPECT_EQ(all[2].server, "m2");
    EXPECT_FALSE(all[2].behind);
}

TEST_F(ReadServerFacts, AFileThatIsNoneIsAProblemOfItsServerAlone)
{
    const tq::Identity identity = store("m1");
    store("m2");
    std::filesystem::create_directory(TQ_INSTALL_ROOT "/var/hostdb.cache.m1");
    std::filesystem::create_symlink("/etc/passwd", TQ_INSTALL_ROOT "/var/hostdbupdate.status.m1");
    std::filesystem::create_directory(tq::identityFiles(identity).token);
    const std::vector<ServerFacts> all = readServerFacts(NOW);
    ASSERT_EQ(all.size(), 2U);
    EXPECT_THAT(all[0].problems, ElementsAre(HasSubstr("token.host.m1 cannot be read: "),
                                             HasSubstr("cache.m1 is not a regular file"),
                                             HasSubstr("hostdbupdate.status.m1 cannot be read: ")));
    EXPECT_TRUE(all[0].behind) << "what cannot be read is not taken for in step";
    EXPECT_EQ(all[0].status, std::nullopt);
    EXPECT_THAT(all[1].problems, IsEmpty());
}

TEST_F(ReadServerFacts, WhatIsCutOffOrDamagedSaysWhatBecomesOfIt)
{
    const tq::Identity identity = store("m1");
    writeVar("hostdbupdate.status.m1", "");
    writeText(tq::identityFiles(identity).token, "{", 0600);
    writeText(tq::identityFiles(identity).certificate, "damaged", 0600);
    const ServerFacts facts = onlyServer();
    EXPECT_THAT(facts.problems,
                ElementsAre(HasSubstr(".crt holds no usable certificate"),
                            HasSubstr("token.host.m1 is damaged, and the next request replaces it"),
                            HasSubstr("holds no status, and the next update replaces or removes")));
    EXPECT_EQ(facts.identities.at(0).certificateEnd, std::nullopt);
    EXPECT_EQ(facts.identities.at(0).token, TokenState::none);
}

TEST_F(ReadServerFacts, AMissingCertificateIsAProblem)
{
    const tq::Identity identity = store("m1");
    std::filesystem::remove(tq::identityFiles(identity).certificate);
    EXPECT_THAT(onlyServer().problems, ElementsAre(HasSubstr(identity.certificate + " is missing")));
}

TEST_F(ReadServerFacts, AVarFolderThatIsNoneIsAProblemAndNoCrash)
{
    tq::Identity identity;
    identity.server = "m1";
    identity.certificate = "none.crt";
    std::filesystem::remove_all(TQ_VAR_DIR);
    writeText(TQ_VAR_DIR, "a file", 0644);
    const std::vector<ServerFacts> all = readServerFacts({identity}, NOW);
    std::filesystem::remove(TQ_VAR_DIR);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_TRUE(all[0].behind);
    EXPECT_THAT(all[0].problems, testing::Contains(HasSubstr("cannot be looked at: Not a directory")));
}
