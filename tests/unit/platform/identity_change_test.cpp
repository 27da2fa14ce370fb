#include "platform/identity_store.h"
#include "platform/lockfile.h"
#include "tests/unit/platform/identity_fixture.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <functional>
#include <gmock/gmock.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

using fakes::countRecorded;
using fakes::recordedLog;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::UnorderedElementsAre;
using tests::IdentityFixture;
using tests::namesIn;
using tests::readText;
using tests::writeText;

namespace {

constexpr int WAIT = -1;

/// How many waits were skipped since it was set to 0; WAIT while none is to be.
int waitsSkipped = WAIT;

} // namespace

/// In place of the C library's own.
int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* left)
{
    if (waitsSkipped == WAIT)
        return syscall(SYS_clock_nanosleep, clock, flags, time, left) == 0 ? 0 : errno;
    ++waitsSkipped;
    return 0;
}

namespace {

using SaveIdentity = IdentityFixture;
using RemoveIdentity = IdentityFixture;
using RenewIdentity = IdentityFixture;
using TryIdentityStore = IdentityFixture;

std::vector<tq::Identity> loaded()
{
    std::vector<tq::Identity> identities;
    EXPECT_EQ(tq::loadIdentityStore(identities), 0);
    return identities;
}

/// "server type host-id" of each identity.
std::vector<std::string> summaries()
{
    std::vector<std::string> texts;
    for (const tq::Identity& one : loaded())
        texts.push_back(one.server + " " + tq::certTypeName(one.certType) + " " + one.hostId);
    return texts;
}

/// The mark that an identity's certificate, key and authority share; "(mixed)" when they do not belong
/// together.
std::string markOf(const tq::Identity& identity)
{
    const tq::IdentityFiles files = tq::identityFiles(identity);
    const std::string certificate = readText(files.certificate);
    const std::string mark =
        certificate.substr(std::min(certificate.size(), std::string("certificate ").size()));
    const bool together = certificate == "certificate " + mark &&
                          readText(files.privateKey) == "key " + mark &&
                          readText(files.caCertificates) == "authority " + mark;
    return together ? mark : "(mixed)";
}

/// A minute passes for what a killed process left.
void letTimePass()
{
    for (const std::string& name : namesIn(TQ_IDENTITY_DIR))
        tests::makeOlder(std::string(TQ_IDENTITY_DIR) + "/" + name, 120);
}

/// Runs an action in a child process that is killed as it is about to make its n-th system call.
/// False once the action ends before that.
bool killAtSystemCall(int n, const std::function<void()>& action)
{
    const pid_t child = fork();
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        action();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    for (int stops = 0; WIFSTOPPED(status); ++stops) {
        if (stops == 2 * n - 1) { // each call stops twice, on its way in and out
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return true;
        }
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        waitpid(child, &status, 0);
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    return false;
}

} // namespace

TEST_F(SaveIdentity, MakesTheDirectoryTheStoreAndTheFiles)
{
    std::filesystem::remove_all(TQ_VAR_DIR);
    const tq::Identity stored = store(identity("m1"), "a");
    EXPECT_EQ(tests::modeOf(TQ_VAR_DIR), 0755U);
    EXPECT_EQ(tests::modeOf(directory), 0700U);
    EXPECT_THAT(stored.certificate, MatchesRegex("host\\.m1\\.[0-9a-f]+\\.crt"));
    EXPECT_THAT(namesIn(directory), UnorderedElementsAre("identity.json", "identity.lock", stored.certificate,
                                                         stored.privateKey, stored.caCertificates));
    for (const std::string& name : namesIn(directory))
        EXPECT_EQ(tests::modeOf(directory + "/" + name), 0600U) << name;
    EXPECT_EQ(markOf(stored), "a");
    EXPECT_THAT(recordedLog(), IsEmpty());
}

TEST_F(SaveIdentity, PathsAreAbsolute)
{
    const tq::Identity stored = store(identity("m1", CERT_TYPE_CLUSTER), "a");
    const tq::IdentityFiles files = tq::identityFiles(loaded().at(0));
    EXPECT_EQ(files.certificate, directory + "/" + stored.certificate);
    EXPECT_EQ(files.privateKey, directory + "/" + stored.privateKey);
    EXPECT_EQ(files.caCertificates, directory + "/" + stored.caCertificates);
    EXPECT_EQ(files.token, directory + "/token.cluster.m1");
}

TEST_F(SaveIdentity, EachServerAndTypeHasItsOwn)
{
    store(identity("m1"), "a");
    store(identity("m2"), "b");
    store(identity("m1", CERT_TYPE_CLUSTER), "c");
    EXPECT_THAT(summaries(), ElementsAre("m1 host id-of-m1", "m2 host id-of-m2", "m1 cluster id-of-m1"));
    EXPECT_EQ(markOf(loaded()[0]), "a");
    EXPECT_EQ(markOf(loaded()[1]), "b");
    EXPECT_EQ(markOf(loaded()[2]), "c");
}

TEST_F(SaveIdentity, ReplacesInPlaceAndRemovesTheOldFilesAndToken)
{
    const tq::Identity old = store(identity("m1"), "a");
    const tq::Identity other = store(identity("m2"), "b");
    writeText(tq::identityFiles(old).token, "{}", 0600);
    writeText(tq::identityFiles(other).token, "{}", 0600);
    tq::Identity again = identity("M1");
    again.hostId = "new-id";
    const tq::Identity stored = store(again, "c");
    EXPECT_THAT(summaries(), ElementsAre("M1 host new-id", "m2 host id-of-m2"));
    EXPECT_EQ(markOf(loaded()[0]), "c");
    EXPECT_THAT(namesIn(directory),
                UnorderedElementsAre("identity.json", "identity.lock", stored.certificate, stored.privateKey,
                                     stored.caCertificates, other.certificate, other.privateKey,
                                     other.caCertificates, "token.host.m2"));
}

TEST_F(SaveIdentity, RenewedIdentityOfTheSameNameLosesItsToken)
{
    const tq::Identity old = store(identity("m1"), "a");
    writeText(tq::identityFiles(old).token, "{}", 0600);
    store(identity("m1"), "b");
    EXPECT_EQ(namesIn(directory).count("token.host.m1"), 0U);
}

TEST_F(SaveIdentity, FilesWithNamesOfTheAdministratorsChoiceAreReplacedToo)
{
    writeText(storeFile, R"({"version": 1, "identities": [
        {"server": "m1", "certType": "host", "hostId": "old", "hostName": "h", "caMode": "internal",
         "certificate": "host.m1.crt", "privateKey": "host.m1.key", "caCertificates": "shared.pem"},
        {"server": "m2", "certType": "host", "hostId": "two", "hostName": "h", "caMode": "internal",
         "certificate": "m2.crt", "privateKey": "m2.key", "caCertificates": "shared.pem"}]})",
              0600);
    for (const char* name : {"host.m1.crt", "host.m1.key", "shared.pem", "m2.crt", "m2.key", "note.txt"})
        writeText(directory + "/" + name, "PEM", 0600);
    const tq::Identity stored = store(identity("m1"), "new");
    EXPECT_THAT(namesIn(directory),
                UnorderedElementsAre("identity.json", "identity.lock", stored.certificate, stored.privateKey,
                                     stored.caCertificates, "shared.pem", "m2.crt", "m2.key", "note.txt"));
}

TEST_F(SaveIdentity, WhatItDoesNotKnowStays)
{
    writeText(storeFile, R"({"version": 1, "comment": "kept", "identities": [
        {"server": "m2", "certType": "host", "hostId": "two", "hostName": "h", "caMode": "internal", "later": 7,
         "certificate": "m2.crt", "privateKey": "m2.key", "caCertificates": "m2.ca"},
        {"server": "a/b", "certType": "host", "hostId": "refused", "hostName": "h", "caMode": "internal",
         "certificate": "ab.crt", "privateKey": "ab.key", "caCertificates": "ab.ca"}]})",
              0600);
    store(identity("m1"), "a");
    const std::string text = readText(storeFile);
    EXPECT_THAT(text, HasSubstr("\"comment\": \"kept\""));
    EXPECT_THAT(text, HasSubstr("\"later\": 7"));
    EXPECT_THAT(text, HasSubstr("\"refused\""));
    EXPECT_THAT(summaries(), ElementsAre("m2 host two", "m1 host id-of-m1"));
}

TEST_F(SaveIdentity, DamagedOrNewerStoreIsNotOverwritten)
{
    for (const char* text : {"", "{", R"({"version": 2, "identities": []})"}) {
        writeText(storeFile, text, 0600);
        std::string cause;
        EXPECT_EQ(tq::saveIdentity(identity("m1"), pem("a"), nullptr, &cause), 7611);
        EXPECT_THAT(cause, HasSubstr("identity.json: it is"));
        EXPECT_EQ(readText(storeFile), text);
        EXPECT_THAT(namesIn(directory), UnorderedElementsAre("identity.json", "identity.lock"));
    }
}

TEST_F(SaveIdentity, UnsafeDirectoryIsNotUsed)
{
    chmod(directory.c_str(), 0755);
    std::string cause;
    EXPECT_EQ(tq::saveIdentity(identity("m1"), pem("a"), nullptr, &cause), 7611);
    EXPECT_EQ(cause, "/usr/torqv/var/identity: other users have rights on it (mode 0755)");
    EXPECT_THAT(namesIn(directory), IsEmpty());
}

TEST_F(SaveIdentity, DirectoryThatCannotBeMadeIs14)
{
    std::filesystem::remove_all(TQ_VAR_DIR);
    writeText(TQ_VAR_DIR, "a file");
    std::string cause;
    EXPECT_EQ(tq::makeIdentityDirectory(&cause), 14);
    EXPECT_EQ(cause, "Unable to make /usr/torqv/var/identity: Not a directory");
    EXPECT_EQ(countRecorded(16, cause), 1U);
    std::filesystem::remove(TQ_VAR_DIR);
}

TEST_F(SaveIdentity, WhatCouldNotBeReadBackIsRefused)
{
    const auto refused = [](const std::function<void(tq::Identity&, tq::IdentityPem&)>& spoil) {
        tq::Identity spoiled = identity("m1");
        tq::IdentityPem texts = pem("a");
        spoil(spoiled, texts);
        std::string cause;
        EXPECT_EQ(tq::saveIdentity(spoiled, texts, nullptr, &cause), 20);
        EXPECT_EQ(countRecorded(16, cause), 1U);
        recordedLog().clear();
        return cause;
    };
    using tq::Identity;
    using tq::IdentityPem;
    EXPECT_THAT(refused([](Identity& one, IdentityPem&) { one.server = "../m1"; }),
                HasSubstr("begins with a dot"));
    EXPECT_THAT(refused([](Identity& one, IdentityPem&) { one.server = ""; }), HasSubstr("it is empty"));
    EXPECT_THAT(refused([](Identity& one, IdentityPem&) { one.certType = CERT_TYPE_NONE; }),
                HasSubstr("neither"));
    EXPECT_THAT(refused([](Identity& one, IdentityPem&) { one.hostId = ""; }),
                HasSubstr("no host identifier"));
    EXPECT_THAT(refused([](Identity& one, IdentityPem&) { one.hostName = ""; }), HasSubstr("no host name"));
    EXPECT_THAT(refused([](Identity& one, IdentityPem&) { one.hostName = "\xFF"; }), HasSubstr("not UTF-8"));
    EXPECT_THAT(refused([](Identity& one, IdentityPem&) { one.hostId += '\0'; }), HasSubstr("a NUL"));
    EXPECT_THAT(refused([](Identity& one, IdentityPem&) { one.caMode = static_cast<ca_usage>(4); }),
                HasSubstr("mode is unknown"));
    EXPECT_THAT(refused([](Identity&, IdentityPem& texts) { texts.privateKey = ""; }), HasSubstr("is empty"));
    EXPECT_THAT(refused([](Identity&, IdentityPem& texts) { texts.certificate = ""; }),
                HasSubstr("is empty"));
    EXPECT_THAT(refused([](Identity&, IdentityPem& texts) { texts.caCertificates = ""; }),
                HasSubstr("is empty"));
    EXPECT_THAT(namesIn(directory), IsEmpty());
}

TEST_F(SaveIdentity, FailedWriteKeepsTheOldIdentityAndItsTokenAndLeavesNothing)
{
    const tq::Identity old = store(identity("m1"), "a");
    writeText(tq::identityFiles(old).token, "{}", 0600);
    const std::set<std::string> before = namesIn(directory);
    rlimit unlimited{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &unlimited), 0);
    std::signal(SIGXFSZ, SIG_IGN);
    for (const rlim_t bytes :
         {rlim_t{5}, rlim_t{100}}) { // too small for a key; large enough, but not for the store
        SCOPED_TRACE(bytes);
        const rlimit small{bytes, unlimited.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
        std::string cause;
        const int status = tq::saveIdentity(identity("m1"), pem("b"), nullptr, &cause);
        setrlimit(RLIMIT_FSIZE, &unlimited);
        EXPECT_EQ(status, 14);
        EXPECT_THAT(cause, MatchesRegex("Unable to write /usr/torqv/var/identity/.*: File too large"));
        EXPECT_EQ(namesIn(directory), before);
        EXPECT_EQ(markOf(loaded().at(0)), "a");
    }
}

TEST_F(SaveIdentity, ServerNameTooLongForAFileNameIsAFailureWithItsCause)
{
    std::string cause;
    EXPECT_EQ(tq::saveIdentity(identity(std::string(253, 'a')), pem("a"), nullptr, &cause), 14);
    EXPECT_THAT(cause, HasSubstr("File name too long"));
    EXPECT_THAT(namesIn(directory), ElementsAre("identity.lock"));
}

TEST_F(SaveIdentity, ChangesAtTheSameTimeLoseNone)
{
    constexpr int WRITERS = 8;
    std::vector<pid_t> writers;
    for (int i = 0; i < WRITERS; ++i) {
        writers.push_back(fork());
        if (writers.back() == 0)
            _exit(tq::saveIdentity(identity("m" + std::to_string(i)), pem("a")));
    }
    for (const pid_t writer : writers) {
        int status = -1;
        waitpid(writer, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(loaded().size(), std::size_t{WRITERS});
    EXPECT_EQ(namesIn(directory).size(), std::size_t{3 * WRITERS + 2});
}

TEST_F(SaveIdentity, LockThatCannotBeMadeIsAFailure)
{
    std::filesystem::create_directory(directory + "/identity.lock");
    std::string cause;
    EXPECT_EQ(tq::saveIdentity(identity("m1"), pem("a"), nullptr, &cause), 14);
    EXPECT_EQ(cause, "Unable to lock /usr/torqv/var/identity/identity.lock: it is not a regular file");
    EXPECT_EQ(tq::removeIdentity("m1", CERT_TYPE_HOST, nullptr), 14);
}

TEST_F(SaveIdentity, LockThatStaysBusyIsAFailureThatSaysSo)
{
    const TQLockFile other(TQ_IDENTITY_LOCK_FILE, 1, 0);
    std::string cause;
    waitsSkipped = 0;
    EXPECT_EQ(tq::saveIdentity(identity("m1"), pem("a"), nullptr, &cause), 14);
    EXPECT_EQ(std::exchange(waitsSkipped, WAIT), 999) << "of ten milliseconds each";
    EXPECT_EQ(cause, "Unable to lock /usr/torqv/var/identity/identity.lock: another change is still running");
}

TEST_F(SaveIdentity, LoadingRemovesNothingThatAKilledOneLeft)
{
    store(identity("m1"), "a");
    const std::string left = directory + "/host.m2.0123456789abcdef.key";
    writeText(left, "key", 0600);
    tests::makeOlder(left, 120);
    EXPECT_THAT(summaries(), ElementsAre("m1 host id-of-m1"));
    EXPECT_TRUE(std::filesystem::exists(left));
    store(identity("m1"), "b");
    EXPECT_FALSE(std::filesystem::exists(left));
}

TEST_F(TryIdentityStore, LeavesNothingButTheLock)
{
    std::filesystem::remove_all(TQ_VAR_DIR);
    EXPECT_EQ(tq::tryIdentityStore("m1", CERT_TYPE_HOST), 0);
    EXPECT_THAT(namesIn(directory), ElementsAre("identity.lock"));
    const tq::Identity stored = store(identity("m1"), "a");
    const std::set<std::string> before = namesIn(directory);
    EXPECT_EQ(tq::tryIdentityStore("m1", CERT_TYPE_HOST), 0);
    EXPECT_EQ(namesIn(directory), before);
    EXPECT_EQ(markOf(stored), "a");
    EXPECT_THAT(recordedLog(), IsEmpty());
}

TEST_F(TryIdentityStore, TakesTheSameServerNamesAsSaving)
{
    std::size_t longest = 0;
    for (const cert_type type : {CERT_TYPE_HOST, CERT_TYPE_CLUSTER}) {
        for (std::size_t length = 220; length <= 235; ++length) {
            const std::string server(length, 'a');
            const int tried = tq::tryIdentityStore(server, type);
            EXPECT_EQ(tried, tq::saveIdentity(identity(server, type), pem("a"))) << length;
            longest = tried == 0 ? std::max(longest, length) : longest;
        }
    }
    EXPECT_EQ(longest, 229U) << "host names of files have room for it";
    for (const char* server : {"", "../m1", "a/b"})
        EXPECT_EQ(tq::tryIdentityStore(server, CERT_TYPE_HOST), 20) << server;
    EXPECT_EQ(tq::tryIdentityStore("m1", CERT_TYPE_NONE), 20);
}

TEST_F(TryIdentityStore, DamagedStoreUnsafeDirectoryAndFullDiskHaveTheirStatus)
{
    rlimit unlimited{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &unlimited), 0);
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{4096, unlimited.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    std::string cause;
    const int full = tq::tryIdentityStore("m1", CERT_TYPE_HOST, &cause);
    setrlimit(RLIMIT_FSIZE, &unlimited);
    EXPECT_EQ(full, 14);
    EXPECT_THAT(cause, MatchesRegex("Unable to write /usr/torqv/var/identity/host.m1.*: File too large"));
    EXPECT_THAT(namesIn(directory), ElementsAre("identity.lock"));

    writeText(storeFile, "{", 0600);
    EXPECT_EQ(tq::tryIdentityStore("m1", CERT_TYPE_HOST), 7611);
    chmod(directory.c_str(), 0755);
    EXPECT_EQ(tq::tryIdentityStore("m1", CERT_TYPE_HOST), 7611);
}

TEST_F(SaveIdentity, KilledAtAnySystemCallKeyAndCertificateMatchAndTheNextRunHeals)
{
    const auto change = [] { (void)tq::saveIdentity(identity("m1"), pem("new")); };
    int killed = 0;
    int sawOld = 0;
    for (int call = 1;; ++call) {
        SCOPED_TRACE("killed at system call " + std::to_string(call));
        tests::freshDirectory(directory, 0700);
        const tq::Identity old = store(identity("m1"), "old");
        writeText(tq::identityFiles(old).token, "{}", 0600);
        if (!killAtSystemCall(call, change))
            break;
        ++killed;
        ASSERT_THAT(summaries(), ElementsAre("m1 host id-of-m1"));
        const std::string mark = markOf(loaded().at(0));
        ASSERT_THAT(mark, testing::AnyOf("old", "new"));
        sawOld += mark == "old" ? 1 : 0;
        letTimePass();
        const tq::Identity healed = store(identity("m1"), "healed");
        ASSERT_THAT(namesIn(directory),
                    UnorderedElementsAre("identity.json", "identity.lock", healed.certificate,
                                         healed.privateKey, healed.caCertificates));
    }
    EXPECT_GT(killed, 30);
    EXPECT_GT(sawOld, 0);
    EXPECT_LT(sawOld, killed) << "some kills come after the change took effect";
}

TEST_F(RenewIdentity, ReplacesKeyAndCertificateInPlaceAndKeepsTheToken)
{
    const tq::Identity old = store(identity("m1"), "old");
    const tq::Identity other = store(identity("m2"), "other");
    writeText(tq::identityFiles(old).token, "{}", 0600);
    tq::Identity stored;
    ASSERT_EQ(tq::renewIdentity(old, pem("new"), &stored), 0);
    EXPECT_THAT(summaries(), ElementsAre("m1 host id-of-m1", "m2 host id-of-m2"));
    EXPECT_EQ(markOf(loaded().at(0)), "new");
    EXPECT_EQ(markOf(stored), "new");
    EXPECT_THAT(namesIn(directory),
                UnorderedElementsAre("identity.json", "identity.lock", stored.certificate, stored.privateKey,
                                     stored.caCertificates, other.certificate, other.privateKey,
                                     other.caCertificates, "token.host.m1"));
}

TEST_F(RenewIdentity, KeepsWhatItDoesNotKnowAndATrustVersionThatIsNotNew)
{
    store(identity("m1"), "old");
    std::string text = readText(storeFile);
    text.replace(text.find("\"server\""), 0, "\"note\": \"of the next release\", ");
    writeText(storeFile, text, 0600);
    tq::Identity old = loaded().at(0);
    old.trustVersion.reset();
    ASSERT_EQ(tq::renewIdentity(old, pem("new")), 0);
    EXPECT_THAT(readText(storeFile), HasSubstr("of the next release"));
    EXPECT_EQ(loaded().at(0).trustVersion, "1");
    old = loaded().at(0);
    old.trustVersion = "2";
    ASSERT_EQ(tq::renewIdentity(old, pem("newer")), 0);
    EXPECT_EQ(loaded().at(0).trustVersion, "2");
}

TEST_F(RenewIdentity, AChangeThatCameInBetweenIsNotUndone)
{
    const tq::Identity old = store(identity("m1"), "old");
    tq::Identity fresh = store(identity("m1"), "enrolled anew");
    writeText(tq::identityFiles(fresh).token, "{}", 0600);
    const auto before = namesIn(directory);
    EXPECT_EQ(tq::renewIdentity(old, pem("new")), 7612);
    EXPECT_EQ(markOf(loaded().at(0)), "enrolled anew");
    EXPECT_EQ(namesIn(directory), before);
    ASSERT_EQ(tq::removeIdentity("m1", CERT_TYPE_HOST), 0);
    EXPECT_EQ(tq::renewIdentity(fresh, pem("new")), 7610);
}

TEST_F(RenewIdentity, WhoLoadedBeforeCanTellThatItWasReplaced)
{
    const tq::Identity old = store(identity("m1"), "old");
    EXPECT_FALSE(tq::isReplaced(old));
    tq::Identity renewed;
    ASSERT_EQ(tq::renewIdentity(old, pem("new"), &renewed), 0);
    EXPECT_TRUE(tq::isReplaced(old));
    EXPECT_FALSE(tq::isReplaced(renewed));
    ASSERT_EQ(tq::removeIdentity("m1", CERT_TYPE_HOST), 0);
    EXPECT_TRUE(tq::isReplaced(renewed));
    writeText(storeFile, "{", 0600);
    EXPECT_FALSE(tq::isReplaced(renewed)) << "nobody knows";
}

TEST_F(RenewIdentity, FailuresHaveTheirStatusAndKeepTheOldIdentity)
{
    const tq::Identity old = store(identity("m1"), "old");
    const auto before = namesIn(directory);
    std::string cause;
    EXPECT_EQ(tq::renewIdentity(old, {"", "key", "authority"}, nullptr, &cause), 20);

    const rlimit none{0, RLIM_INFINITY};
    const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &none);
    const int full = tq::renewIdentity(old, pem("new"), nullptr, &cause);
    setrlimit(RLIMIT_FSIZE, &unlimited);
    EXPECT_EQ(full, 14);
    EXPECT_THAT(cause, MatchesRegex("Unable to write /usr/torqv/var/identity/host.m1.*: File too large"));
    EXPECT_EQ(markOf(loaded().at(0)), "old");
    EXPECT_EQ(namesIn(directory), before);

    writeText(storeFile, "{", 0600);
    EXPECT_EQ(tq::renewIdentity(old, pem("new")), 7611);
    chmod(directory.c_str(), 0755);
    EXPECT_EQ(tq::renewIdentity(old, pem("new")), 7611);
}

TEST_F(RenewIdentity, KilledAtAnySystemCallKeyAndCertificateMatchAndTheNextRunHeals)
{
    tq::Identity old;
    const auto change = [&] { (void)tq::renewIdentity(old, pem("new")); };
    int killed = 0;
    int sawOld = 0;
    for (int call = 1;; ++call) {
        SCOPED_TRACE("killed at system call " + std::to_string(call));
        tests::freshDirectory(directory, 0700);
        old = store(identity("m1"), "old");
        writeText(tq::identityFiles(old).token, "{}", 0600);
        if (!killAtSystemCall(call, change))
            break;
        ++killed;
        const std::string mark = markOf(loaded().at(0));
        ASSERT_THAT(mark, testing::AnyOf("old", "new"));
        ASSERT_EQ(readText(tq::identityFiles(old).token), "{}");
        sawOld += mark == "old" ? 1 : 0;
        letTimePass();
        tq::Identity healed;
        ASSERT_EQ(tq::renewIdentity(loaded().at(0), pem("healed"), &healed), 0);
        ASSERT_THAT(namesIn(directory),
                    UnorderedElementsAre("identity.json", "identity.lock", healed.certificate,
                                         healed.privateKey, healed.caCertificates, "token.host.m1"));
    }
    EXPECT_GT(killed, 30);
    EXPECT_GT(sawOld, 0);
    EXPECT_LT(sawOld, killed) << "some kills come after the change took effect";
}

TEST_F(RemoveIdentity, TakesTheEntryItsFilesAndItsToken)
{
    const tq::Identity first = store(identity("m1"), "a");
    const tq::Identity second = store(identity("m2"), "b");
    writeText(tq::identityFiles(first).token, "{}", 0600);
    EXPECT_EQ(tq::removeIdentity("M1", CERT_TYPE_HOST), 0);
    EXPECT_THAT(summaries(), ElementsAre("m2 host id-of-m2"));
    EXPECT_THAT(namesIn(directory), UnorderedElementsAre("identity.json", "identity.lock", second.certificate,
                                                         second.privateKey, second.caCertificates));
}

TEST_F(RemoveIdentity, RemovingTheLastDeletesTheStore)
{
    const tq::Identity only = store(identity("m1"), "a");
    writeText(tq::identityFiles(only).token, "{}", 0600);
    EXPECT_EQ(tq::removeIdentity("m1", CERT_TYPE_HOST), 0);
    EXPECT_THAT(namesIn(directory), ElementsAre("identity.lock"));
    std::vector<tq::Identity> identities;
    EXPECT_EQ(tq::loadIdentityStore(identities), 7610);
    EXPECT_EQ(tq::removeIdentity("m1", CERT_TYPE_HOST), 7610);
}

TEST_F(RemoveIdentity, UnknownIdentityIs7612AndChangesNothing)
{
    store(identity("m1"), "a");
    const std::string before = readText(storeFile);
    EXPECT_EQ(tq::removeIdentity("m2", CERT_TYPE_HOST), 7612);
    EXPECT_EQ(tq::removeIdentity("m1", CERT_TYPE_CLUSTER), 7612);
    EXPECT_EQ(tq::removeIdentity("", CERT_TYPE_NONE), 7612);
    EXPECT_EQ(readText(storeFile), before);
}

TEST_F(RemoveIdentity, MissingOrUnsafeDirectoryHasItsStatus)
{
    std::filesystem::remove_all(directory);
    EXPECT_EQ(tq::removeIdentity("m1", CERT_TYPE_HOST), 7610);
    EXPECT_FALSE(std::filesystem::exists(directory));
    tests::freshDirectory(directory, 0711);
    EXPECT_EQ(tq::removeIdentity("m1", CERT_TYPE_HOST), 7611);
}

TEST_F(RemoveIdentity, RefusedEntryCanBeRemovedAndReachesNoFileOutside)
{
    writeText("/usr/torqv/var/outside", "kept");
    writeText(storeFile, R"({"version": 1, "identities": [
        {"server": "x/../../outside", "certType": "host", "hostId": "one", "hostName": "h", "caMode": "internal",
         "certificate": "a.crt", "privateKey": "a.key", "caCertificates": "a.ca"}]})",
              0600);
    std::filesystem::create_directory(directory + "/token.host.x");
    EXPECT_EQ(tq::removeIdentity("x/../../outside", CERT_TYPE_HOST), 0);
    EXPECT_EQ(readText("/usr/torqv/var/outside"), "kept");
}

TEST_F(RemoveIdentity, KilledAtAnySystemCallTheRerunCompletes)
{
    const auto change = [] { (void)tq::removeIdentity("m1", CERT_TYPE_HOST); };
    int killed = 0;
    for (int call = 1;; ++call) {
        SCOPED_TRACE("killed at system call " + std::to_string(call));
        tests::freshDirectory(directory, 0700);
        store(identity("m1"), "a");
        const tq::Identity kept = store(identity("m2"), "b");
        if (!killAtSystemCall(call, change))
            break;
        ++killed;
        for (const tq::Identity& one : loaded())
            ASSERT_NE(markOf(one), "(mixed)");
        letTimePass();
        const int status = tq::removeIdentity("m1", CERT_TYPE_HOST);
        ASSERT_THAT(status, testing::AnyOf(0, 7612));
        ASSERT_THAT(summaries(), ElementsAre("m2 host id-of-m2"));
        const tq::Identity healed = store(identity("m2"), "c"); // sweeps up what an earlier kill left
        ASSERT_THAT(namesIn(directory),
                    UnorderedElementsAre("identity.json", "identity.lock", healed.certificate,
                                         healed.privateKey, healed.caCertificates));
    }
    EXPECT_GT(killed, 10);
}
