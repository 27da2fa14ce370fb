#include "platform/identity.h"

#include "tests/unit/platform/identity_fixture.h"

#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <memory>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using fakes::countRecorded;
using fakes::recordedLog;
using testing::ElementsAre;
using testing::IsEmpty;
using tests::IdentityFixture;
using tests::writeText;

namespace {

using IdentityCalls = IdentityFixture;
using IdentityStoreSafety = IdentityFixture;

std::vector<std::string> mappedServers(cert_type certType)
{
    int count = -1;
    char** servers = nullptr;
    EXPECT_EQ(getServersFromMapInfo(certType, &count, &servers, 0), 0);
    EXPECT_EQ(count == 0, servers == nullptr);
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i) {
        names.emplace_back(servers[i]);
        std::free(servers[i]);
    }
    std::free(static_cast<void*>(servers));
    return names;
}

/// Statuses of all four questions about one identity.
std::vector<int> statusesOf(cert_type certType, const char* server)
{
    char buffer[64] = "untouched";
    int mode = -7;
    std::vector<int> statuses = {getHostID(certType, server, buffer, sizeof buffer),
                                 getTrustVersion(certType, server, buffer, sizeof buffer),
                                 getCAModeByServer(certType, server, &mode)};
    EXPECT_STREQ(buffer, "untouched");
    EXPECT_EQ(mode, -7);
    return statuses;
}

/// Statuses of a store that cannot be used: of the three questions and of the list.
std::vector<int> statusesOfStore()
{
    std::vector<int> statuses = statusesOf(CERT_TYPE_HOST, "m1");
    int count = -7;
    char** servers = nullptr;
    statuses.push_back(getServersFromMapInfo(CERT_TYPE_HOST, &count, &servers, 0));
    EXPECT_EQ(count, -7);
    return statuses;
}

const std::vector<int> DAMAGED = {7611, 7611, 7611, 7611};
const std::vector<int> MISSING = {7610, 7610, 7610, 7610};

} // namespace

TEST_F(IdentityCalls, SweepUpWhatAKilledProcessLeftThoughTheyWriteNothing)
{
    store(identity("m1"), "a");
    const std::set<std::string> before = tests::namesIn(directory);
    const pid_t dead = fork();
    if (dead == 0)
        _exit(0);
    ASSERT_EQ(waitpid(dead, nullptr, 0), dead);
    const std::string left = directory + "/.tq-new." + std::to_string(dead) + "." + std::string(32, 'a');
    writeText(left, "half a token");
    tests::makeOlder(left, 120);
    EXPECT_THAT(mappedServers(CERT_TYPE_HOST), ElementsAre("m1"));
    EXPECT_EQ(tests::namesIn(directory), before);
}

TEST_F(IdentityCalls, AnswerFromTheIdentityOfServerAndType)
{
    tq::Identity cluster = identity("m1", CERT_TYPE_CLUSTER);
    cluster.hostId = "cluster-id";
    cluster.trustVersion = "42";
    cluster.caMode = CA_USAGE_NONE;
    store(identity("m1"), "a");
    store(cluster, "b");
    char buffer[64];
    EXPECT_EQ(getHostID(CERT_TYPE_HOST, "m1", buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "id-of-m1");
    EXPECT_EQ(getHostID(CERT_TYPE_CLUSTER, "m1", buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "cluster-id");
    EXPECT_EQ(getTrustVersion(CERT_TYPE_CLUSTER, "m1", buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "42");
    int mode = 0;
    EXPECT_EQ(getCAModeByServer(CERT_TYPE_CLUSTER, "m1", &mode), 0);
    EXPECT_EQ(mode, CA_USAGE_NONE);
    EXPECT_EQ(getCAModeByServer(CERT_TYPE_HOST, "m1", &mode), 0);
    EXPECT_EQ(mode, CA_USAGE_INTERNAL);
    EXPECT_THAT(recordedLog(), IsEmpty());
}

TEST_F(IdentityCalls, ServerNamesHaveNoCase)
{
    store(identity("Master1.Example"), "a");
    char buffer[64];
    EXPECT_EQ(getHostID(CERT_TYPE_HOST, "master1.EXAMPLE", buffer, sizeof buffer), 0);
}

TEST_F(IdentityCalls, NoEntryIs7612)
{
    store(identity("m1"), "a");
    const std::vector<int> notFound = {7612, 7612, 7612};
    EXPECT_EQ(statusesOf(CERT_TYPE_HOST, "m2"), notFound);
    EXPECT_EQ(statusesOf(CERT_TYPE_CLUSTER, "m1"), notFound);
    EXPECT_EQ(statusesOf(CERT_TYPE_NONE, "m1"), notFound);
    EXPECT_EQ(statusesOf(CERT_TYPE_HOST, ""), notFound);
    EXPECT_EQ(statusesOf(CERT_TYPE_HOST, nullptr), notFound);
}

TEST_F(IdentityCalls, NoTrustVersionIs227)
{
    tq::Identity untrusted = identity("m1");
    untrusted.trustVersion.reset();
    store(untrusted, "a");
    char buffer[8];
    EXPECT_EQ(getTrustVersion(CERT_TYPE_HOST, "m1", buffer, sizeof buffer), 227);
}

TEST_F(IdentityCalls, TextLongerThanTheBufferIs7613)
{
    store(identity("m1"), "a"); // host id of 8 characters
    char buffer[16] = "untouched";
    EXPECT_EQ(getHostID(CERT_TYPE_HOST, "m1", buffer, 8), 7613);
    EXPECT_EQ(getHostID(CERT_TYPE_HOST, "m1", buffer, 0), 7613);
    EXPECT_EQ(getHostID(CERT_TYPE_HOST, "m1", buffer, -1), 7613);
    EXPECT_EQ(getTrustVersion(CERT_TYPE_HOST, "m1", buffer, 1), 7613);
    EXPECT_STREQ(buffer, "untouched");
    EXPECT_EQ(getHostID(CERT_TYPE_HOST, "m1", nullptr, 64), 7613);
    EXPECT_EQ(getHostID(CERT_TYPE_HOST, "m1", buffer, 9), 0);
    EXPECT_STREQ(buffer, "id-of-m1");
}

TEST_F(IdentityCalls, ServersOfATypeAreListedInFileOrder)
{
    store(identity("m2"), "a");
    store(identity("c", CERT_TYPE_CLUSTER), "b");
    store(identity("m1"), "c");
    EXPECT_THAT(mappedServers(CERT_TYPE_HOST), ElementsAre("m2", "m1"));
    EXPECT_THAT(mappedServers(CERT_TYPE_CLUSTER), ElementsAre("c"));
}

TEST_F(IdentityCalls, StoreWithoutAnIdentityOfTheTypeGivesCountZero)
{
    store(identity("m1"), "a");
    EXPECT_THAT(mappedServers(CERT_TYPE_CLUSTER), IsEmpty());
    EXPECT_THAT(mappedServers(CERT_TYPE_NONE), IsEmpty());
}

TEST_F(IdentityCalls, CaUsageHasTheWordsOfTheStore)
{
    EXPECT_STREQ(CaUsageToString(1), "internal");
    EXPECT_STREQ(CaUsageToString(2), "external");
    EXPECT_STREQ(CaUsageToString(3), "none");
    for (const int unknown : {0, 4, -1, 1000})
        EXPECT_STREQ(CaUsageToString(unknown), "unknown");
}

TEST_F(IdentityStoreSafety, MissingStoreOrDirectoryIs7610WithoutAnEntry)
{
    EXPECT_EQ(statusesOfStore(), MISSING);
    std::filesystem::remove_all(directory);
    EXPECT_EQ(statusesOfStore(), MISSING);
    std::filesystem::remove_all(TQ_VAR_DIR);
    EXPECT_EQ(statusesOfStore(), MISSING);
    EXPECT_THAT(recordedLog(), IsEmpty());
}

TEST_F(IdentityStoreSafety, UnsafeDirectoryIs7611WithItsCause)
{
    store(identity("m1"), "a");
    for (const mode_t mode : {0777U, 0755U, 0750U, 0701U, 0720U}) {
        recordedLog().clear();
        chmod(directory.c_str(), mode);
        EXPECT_EQ(statusesOfStore(), DAMAGED) << std::oct << mode;
        EXPECT_EQ(countRecorded(16, "/usr/torqv/var/identity: other users have rights on it (mode 0"), 4U);
    }
    chmod(directory.c_str(), 0700);
    EXPECT_EQ(chown(directory.c_str(), 12345, 12345), 0);
    EXPECT_EQ(statusesOfStore(), DAMAGED);
    EXPECT_EQ(countRecorded(16, "/usr/torqv/var/identity: it belongs to another user (12345)"), 4U);
}

TEST_F(IdentityStoreSafety, DirectoryMustBeARealOne)
{
    store(identity("m1"), "a");
    std::filesystem::rename(directory, "/usr/torqv/var/elsewhere");
    std::filesystem::create_directory_symlink("/usr/torqv/var/elsewhere", directory);
    EXPECT_EQ(statusesOfStore(), DAMAGED);
    EXPECT_EQ(countRecorded(16, "/usr/torqv/var/identity: it is a symbolic link"), 4U);
    std::filesystem::remove(directory);
    writeText(directory, "a file");
    EXPECT_EQ(statusesOfStore(), DAMAGED);
    EXPECT_EQ(countRecorded(16, "/usr/torqv/var/identity: it is not a directory"), 4U);
}

TEST_F(IdentityStoreSafety, DirectoryThatCannotBeLookedAtIs7611)
{
    std::filesystem::remove_all(TQ_VAR_DIR);
    writeText(TQ_VAR_DIR, "a file");
    EXPECT_EQ(statusesOfStore(), DAMAGED);
    EXPECT_EQ(countRecorded(16, "/usr/torqv/var/identity: Not a directory"), 4U);
    std::filesystem::remove(TQ_VAR_DIR);
}

TEST_F(IdentityStoreSafety, UnsafeFileIs7611WithItsCause)
{
    store(identity("m1"), "a");
    chmod(storeFile.c_str(), 0640);
    EXPECT_EQ(statusesOfStore(), DAMAGED);
    EXPECT_EQ(countRecorded(16, "identity.json: other users have rights on it (mode 0640)"), 4U);
    chmod(storeFile.c_str(), 0600);
    EXPECT_EQ(chown(storeFile.c_str(), 12345, 0), 0);
    EXPECT_EQ(statusesOfStore(), DAMAGED);
    EXPECT_EQ(countRecorded(16, "identity.json: it belongs to another user (12345)"), 4U);
}

TEST_F(IdentityStoreSafety, FileMustBeARegularOne)
{
    writeText("/tmp/elsewhere.json", R"({"version": 1, "identities": []})", 0600);
    std::filesystem::create_symlink("/tmp/elsewhere.json", storeFile);
    EXPECT_EQ(statusesOfStore(), DAMAGED);
    EXPECT_EQ(countRecorded(16, "/usr/torqv/var/identity/identity.json: it is a symbolic link"), 4U);
    std::filesystem::remove(storeFile);
    ASSERT_EQ(mkfifo(storeFile.c_str(), 0600), 0);
    EXPECT_EQ(statusesOfStore(), DAMAGED);
    std::filesystem::remove(storeFile);
    std::filesystem::create_directory(storeFile);
    EXPECT_EQ(statusesOfStore(), DAMAGED);
    EXPECT_EQ(countRecorded(16, "identity.json: it is not a regular file"), 8U);
    EXPECT_EQ(recordedLog().size(), 12U) << "one entry a call";
}

TEST_F(IdentityStoreSafety, DamagedStoreIs7611WithItsCause)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", "identity.json: it is not JSON: line 1"},
        {"{\"version\": 1, \"identities\": [", "identity.json: it is not JSON: line 1"},
        {R"({"version": 2, "identities": []})",
         "identity.json: it is of version 2, made by a newer release, and this one knows version 1; "
         "install that release again"},
        {R"({"version": 1, "identities": [{}]})", "identity.json: identity 1 has no text for \"server\""},
    };
    for (const auto& [text, cause] : cases) {
        recordedLog().clear();
        writeText(storeFile, text, 0600);
        EXPECT_EQ(statusesOfStore(), DAMAGED) << text;
        EXPECT_EQ(countRecorded(16, cause), 4U) << text;
        EXPECT_EQ(recordedLog().size(), 4U) << text;
    }
}

TEST_F(IdentityStoreSafety, StoreOfAGigabyteIs7611AndNotRead)
{
    writeText(storeFile, "{", 0600);
    ASSERT_EQ(truncate(storeFile.c_str(), off_t{1} << 30), 0);
    EXPECT_EQ(statusesOfStore(), DAMAGED);
    EXPECT_EQ(countRecorded(16, "identity.json: it is too large"), 4U);
}

TEST_F(IdentityStoreSafety, CauseIsHandedToWhoAsks)
{
    writeText(storeFile, "", 0600);
    std::vector<tq::Identity> identities(1);
    std::string cause;
    EXPECT_EQ(tq::loadIdentityStore(identities, &cause), 7611);
    EXPECT_EQ(cause, recordedLog().at(0).text);
    EXPECT_EQ(identities.size(), 1U);
}

TEST_F(IdentityStoreSafety, RefusedServerIsLeftOutWithAnEntry)
{
    store(identity("m1"), "a");
    store(identity("m2"), "b");
    std::string text = tests::readText(storeFile);
    text.replace(text.find("\"m1\""), 4, "\"daemon\"");
    writeText(storeFile, text, 0600);
    EXPECT_THAT(mappedServers(CERT_TYPE_HOST), ElementsAre("m2"));
    EXPECT_EQ(countRecorded(16, "identity 1 is left out: server name [daemon] is refused"), 1U);
}
