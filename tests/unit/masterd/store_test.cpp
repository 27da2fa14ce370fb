#include "masterd/store.h"
#include "tests/unit/masterd/failing_calls.h"
#include "tests/unit/masterd/until.h"
#include "tests/unit/scratch_directory.h"

#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <thread>

namespace {

using masterd::Database;
using masterd::HostPlace;
using masterd::Identity;
using masterd::IdentityType;
using masterd::Query;
using masterd::Secret;
using masterd::SqliteError;
using masterd::Statement;
using Stored = masterd::Store::Stored;

constexpr std::int64_t NOW = 1000;
constexpr std::int64_t LATER = 2000;

class Store : public testing::Test {
protected:
    Store() { masterd::Store::create(path_); }

    /// An identity entered by an invitation.
    Identity enrolled(const std::string& hostId, const std::string& hostName)
    {
        Identity identity{hostId, hostName};
        EXPECT_TRUE(
            store().redeemInvitation(store().invite(hostName, IdentityType::host, LATER), identity, NOW));
        return identity;
    }
    masterd::Store& store()
    {
        if (!store_)
            store_.emplace(path_);
        return *store_;
    }
    /// The list of all hosts where it is short.
    std::string listed()
    {
        HostPlace place;
        return '[' + store().listHosts(place) + ']';
    }
    std::string setting(const std::string& name)
    {
        const Database database(path_);
        const Statement statement(database, ("PRAGMA " + name).c_str());
        Query query(statement);
        return query.next() ? query.text(0) : "";
    }

    tests::ScratchDirectory folder_;
    std::string path_ = folder_.file("hosts.db");
    std::optional<masterd::Store> store_;
};

TEST_F(Store, FileIsTheOwnersAloneAndKeepsALogOfChanges)
{
    store();
    EXPECT_EQ(tests::modeOf(path_), 0600U);
    EXPECT_EQ(setting("journal_mode"), "wal");
    EXPECT_EQ(tests::modeOf(path_ + "-wal"), 0600U);
}

/// The connection that was opened last in this process.
sqlite3* lastOpened = nullptr;

int noteOpened(sqlite3* handle, const char** /*fault*/, const sqlite3_api_routines* /*library*/)
{
    lastOpened = handle;
    return SQLITE_OK;
}

std::string settingOf(sqlite3* handle, const std::string& name)
{
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(handle, ("PRAGMA " + name).c_str(), -1, &statement, nullptr);
    std::string value;
    if (sqlite3_step(statement) == SQLITE_ROW)
        value = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
    sqlite3_finalize(statement);
    return value;
}

TEST_F(Store, CommitsAreOnTheDiskBeforeTheyReturn)
{
    const auto note = reinterpret_cast<void (*)()>(noteOpened);
    sqlite3_auto_extension(note);
    store();
    sqlite3_cancel_auto_extension(note);
    ASSERT_NE(lastOpened, nullptr);
    EXPECT_EQ(settingOf(lastOpened, "synchronous"), "2"); // FULL
    EXPECT_EQ(settingOf(lastOpened, "foreign_keys"), "1");
    EXPECT_EQ(settingOf(lastOpened, "trusted_schema"), "0");
}

TEST_F(Store, MakingItAgainLosesNothing)
{
    store().putHost(enrolled("id-1", "h1"), "{\"n\":1}");
    masterd::Store::create(path_);
    EXPECT_EQ(masterd::Store(path_).findHost("id-1"), "{\"n\":1}");
}

TEST_F(Store, FileOfAnotherKindIsRefusedAndLeftAlone)
{
    tests::writeText(folder_.file("text"), std::string(5000, 'x'));
    EXPECT_THROW(masterd::Store::create(folder_.file("text")), SqliteError);
    EXPECT_THROW(masterd::Store{folder_.file("text")}, SqliteError);
    EXPECT_EQ(tests::readText(folder_.file("text")), std::string(5000, 'x'));
    EXPECT_THROW(masterd::Store::create(folder_.path()), std::runtime_error);
    EXPECT_THROW(masterd::Store{folder_.file("absent")}, SqliteError);
}

TEST_F(Store, DatabaseOfAnotherReleaseIsRefused)
{
    Database(path_).execute("PRAGMA user_version = 2");
    EXPECT_THROW(masterd::Store{path_}, SqliteError);
    EXPECT_THROW(masterd::Store::create(path_), SqliteError);
}

TEST_F(Store, InvitationTellsWhomItIsFor)
{
    const Secret host = store().invite("h1", IdentityType::host, LATER);
    const Secret cluster = store().invite("c1", IdentityType::cluster, LATER);
    EXPECT_EQ(store().findInvitation(host, NOW)->hostName, "h1");
    EXPECT_EQ(store().findInvitation(host, NOW)->type, IdentityType::host);
    EXPECT_EQ(store().findInvitation(cluster, NOW)->hostName, "c1");
    EXPECT_EQ(store().findInvitation(cluster, NOW)->type, IdentityType::cluster);
}

TEST_F(Store, InvitationOfAHostWithAnIdentityHasItsHostId)
{
    EXPECT_EQ(store().findInvitation(store().invite("h1", IdentityType::host, LATER), NOW)->hostId, "");
    enrolled("id-1", "h1");
    enrolled("id-2", "h2");
    const Secret again = store().invite("h1", IdentityType::host, LATER);
    const Identity invited = store().findInvitation(again, NOW).value();
    EXPECT_EQ(invited.hostId, "id-1");
    EXPECT_TRUE(store().redeemInvitation(again, invited, NOW));
    EXPECT_FALSE(store().findInvitation(again, NOW));
    EXPECT_EQ(store().revoke("h1", NOW).identities, 1);
}

TEST_F(Store, InvitationAfterARevocationHasNoHostId)
{
    enrolled("id-1", "h1");
    store().revoke("h1", NOW);
    EXPECT_EQ(store().findInvitation(store().invite("h1", IdentityType::host, LATER), NOW)->hostId, "");
}

TEST_F(Store, InvitationThatARevocationMeetsBringsNoIdentityBack)
{
    enrolled("id-1", "h1");
    const Secret again = store().invite("h1", IdentityType::host, LATER);
    const Identity invited = store().findInvitation(again, NOW).value();
    store().revoke("h1", NOW);
    EXPECT_FALSE(store().redeemInvitation(again, invited, NOW));
    EXPECT_FALSE(store().findIdentity("id-1"));
}

TEST_F(Store, EachNodeOfAClusterHasAHostIdOfItsOwn)
{
    const Secret first = store().invite("c1", IdentityType::cluster, LATER);
    EXPECT_TRUE(store().redeemInvitation(first, {"id-1", "c1", IdentityType::cluster}, NOW));
    EXPECT_EQ(store().findInvitation(store().invite("c1", IdentityType::cluster, LATER), NOW)->hostId, "");
    EXPECT_EQ(store().findInvitation(store().invite("c1", IdentityType::host, LATER), NOW)->hostId, "");
}

TEST_F(Store, InvitationIsGoodUntilItEnds)
{
    const Secret invitation = store().invite("h1", IdentityType::host, LATER);
    EXPECT_TRUE(store().findInvitation(invitation, LATER - 1));
    EXPECT_FALSE(store().findInvitation(invitation, LATER));
    EXPECT_FALSE(store().redeemInvitation(invitation, {"id-1", "h1"}, LATER));
    EXPECT_FALSE(store().findIdentity("id-1"));
}

TEST_F(Store, InvitationOpensOnce)
{
    const Secret invitation = store().invite("h1", IdentityType::host, LATER);
    EXPECT_TRUE(store().redeemInvitation(invitation, {"id-1", "h1"}, NOW));
    EXPECT_FALSE(store().findInvitation(invitation, NOW));
    EXPECT_FALSE(store().redeemInvitation(invitation, {"id-2", "h1"}, NOW));
    EXPECT_TRUE(store().findIdentity("id-1"));
    EXPECT_FALSE(store().findIdentity("id-2"));
}

TEST_F(Store, InvitationWithAnotherSecretOrIdIsUnknown)
{
    const Secret good = store().invite("h1", IdentityType::host, LATER);
    Secret wrong = good;
    wrong.secret = masterd::makeSecret().secret;
    EXPECT_FALSE(store().findInvitation(wrong, NOW));
    EXPECT_FALSE(store().redeemInvitation(wrong, {"id-1", "h1"}, NOW));
    wrong = good;
    wrong.id = masterd::makeSecret().id;
    EXPECT_FALSE(store().findInvitation(wrong, NOW));
    EXPECT_TRUE(store().findInvitation(good, NOW));
}

TEST_F(Store, InvitationStaysOpenWhenTheIdentityCannotBeEntered)
{
    enrolled("id-1", "h1");
    const Secret invitation = store().invite("h2", IdentityType::host, LATER);
    EXPECT_THROW((void)store().redeemInvitation(invitation, {"id-1", "h2"}, NOW), SqliteError);
    EXPECT_TRUE(store().findInvitation(invitation, NOW));
}

TEST_F(Store, OfTenAtOnceExactlyOneRedeemsAnInvitation)
{
    const Secret invitation = store().invite("h1", IdentityType::host, LATER);
    std::atomic<int> successes = 0;
    std::vector<std::thread> threads;
    threads.reserve(10);
    for (int i = 0; i < 10; ++i)
        threads.emplace_back([&, i] {
            masterd::Store own(path_); // as another process would
            successes += own.redeemInvitation(invitation, {"id-" + std::to_string(i), "h1"}, NOW) ? 1 : 0;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(successes, 1);
}

TEST_F(Store, SecretsAreKeptAsHashesOnly)
{
    const Secret invitation = store().invite("h1", IdentityType::host, LATER);
    ASSERT_TRUE(store().redeemInvitation(invitation, {"id-1", "h1"}, NOW));
    const Secret token = store().issueToken("id-1", NOW, LATER);
    store_.reset();
    const std::string database = tests::readText(path_);
    EXPECT_NE(database.find(invitation.hash()), std::string::npos);
    EXPECT_NE(database.find(token.hash()), std::string::npos);
    EXPECT_EQ(database.find(invitation.secret), std::string::npos);
    EXPECT_EQ(database.find(token.secret), std::string::npos);
}

TEST_F(Store, TokenIsGoodForItsIdentityUntilItEnds)
{
    enrolled("id-1", "h1");
    enrolled("id-2", "h2");
    const Secret token = store().issueToken("id-1", NOW, LATER);
    EXPECT_TRUE(store().isTokenValid(token, "id-1", LATER - 1));
    EXPECT_FALSE(store().isTokenValid(token, "id-1", LATER));
    EXPECT_FALSE(store().isTokenValid(token, "id-2", NOW));
    EXPECT_FALSE(store().isTokenValid(masterd::makeSecret(), "id-1", NOW));
    EXPECT_FALSE(store().isTokenValid({token.id, masterd::makeSecret().secret}, "id-1", NOW));
}

TEST_F(Store, OlderTokenStaysGoodBesideANewOne)
{
    enrolled("id-1", "h1");
    const Secret one = store().issueToken("id-1", NOW, LATER);
    const Secret two = store().issueToken("id-1", NOW, LATER);
    EXPECT_TRUE(store().isTokenValid(one, "id-1", NOW));
    EXPECT_TRUE(store().isTokenValid(two, "id-1", NOW));
}

TEST_F(Store, TokensThatHaveEndedAreForgotten)
{
    enrolled("id-1", "h1");
    store().issueToken("id-1", NOW, LATER);
    store().issueToken("id-1", LATER, LATER + 1000);
    const Database database(path_);
    const Statement statement(database, "SELECT count(*) FROM token");
    Query query(statement);
    ASSERT_TRUE(query.next());
    EXPECT_EQ(query.number(0), 1);
}

TEST_F(Store, TokenOfAnUnknownIdentityIsNotIssued)
{
    EXPECT_THROW(store().issueToken("nobody", NOW, LATER), SqliteError);
}

TEST_F(Store, PutEntersARecordAndReplacesItWhole)
{
    const Identity identity = enrolled("id-1", "h1");
    EXPECT_EQ(store().putHost(identity, "{\"a\":1}"), Stored::done);
    EXPECT_EQ(store().findHost("id-1"), "{\"a\":1}");
    EXPECT_EQ(store().putHost(identity, "{\"b\":2}"), Stored::done);
    EXPECT_EQ(store().findHost("id-1"), "{\"b\":2}");
    EXPECT_EQ(listed(), "[{\"b\":2}]");
}

TEST_F(Store, AddEntersARecordOnlyWhereThereIsNone)
{
    const Identity identity = enrolled("id-1", "h1");
    EXPECT_EQ(store().addHost(identity, "{\"a\":1}"), Stored::done);
    EXPECT_EQ(store().addHost(identity, "{\"b\":2}"), Stored::exists);
    EXPECT_EQ(store().findHost("id-1"), "{\"a\":1}");
}

TEST_F(Store, DeletedRecordIsGoneAndCanBeMadeAgain)
{
    const Identity identity = enrolled("id-1", "h1");
    EXPECT_EQ(store().putHost(identity, "{}"), Stored::done);
    EXPECT_TRUE(store().deleteHost("id-1"));
    EXPECT_FALSE(store().deleteHost("id-1"));
    EXPECT_FALSE(store().findHost("id-1"));
    EXPECT_EQ(store().putHost(identity, "{}"), Stored::done);
}

TEST_F(Store, ListIsInOrderOfHostName)
{
    EXPECT_EQ(listed(), "[]");
    for (const char* name : {"b", "C", "a", "a.b", "a-b"})
        store().putHost(enrolled(std::string("id-") + name, name), std::string("\"") + name + "\"");
    EXPECT_EQ(listed(), R"(["C","a","a-b","a.b","b"])");
}

TEST_F(Store, ListComesInPartsThatBeginAfterAPlace)
{
    const std::string record = '"' + std::string(masterd::HOST_LIST_PART_BYTES / 3, 'x') + '"';
    for (const char* id : {"id-1", "id-2", "id-3", "id-4", "id-5"})
        store().putHost(enrolled(id, "h1"), record);
    HostPlace place;
    EXPECT_EQ(store().listHosts(place), record + ',' + record + ',' + record);
    EXPECT_EQ(place.hostId, "id-3");
    store().putHost(enrolled("id-0", "h0"), "\"before the place\"");
    EXPECT_TRUE(store().deleteHost("id-4"));
    EXPECT_EQ(store().listHosts(place), ',' + record);
    EXPECT_EQ(store().listHosts(place), "");
    EXPECT_EQ(place.hostId, "id-5");
}

TEST_F(Store, ListByNameHoldsExactlyThatName)
{
    store().putHost(enrolled("id-2", "h1"), "2");
    store().putHost(enrolled("id-1", "h1"), "1");
    store().putHost(enrolled("id-3", "h10"), "3");
    EXPECT_EQ(store().listHosts("h1"), "[1,2]");
    EXPECT_EQ(store().listHosts("H1"), "[]");
    EXPECT_EQ(store().listHosts("h%"), "[]");
    EXPECT_EQ(store().listHosts("' OR 1=1 --"), "[]");
}

TEST_F(Store, RevocationEndsEveryIdentityOfTheNameAndNoOther)
{
    const Identity one = enrolled("id-1", "h1");
    const Identity two = enrolled("id-2", "h1");
    const Identity other = enrolled("id-3", "h2");
    store().putHost(one, "1");
    store().putHost(other, "3");
    const Secret token = store().issueToken("id-1", NOW, LATER);
    const Secret open = store().invite("h1", IdentityType::cluster, LATER);
    const masterd::Store::Revoked revoked = store().revoke("h1", NOW);
    EXPECT_EQ(revoked.identities, 2);
    EXPECT_EQ(revoked.invitations, 1);
    EXPECT_FALSE(store().findIdentity("id-1"));
    EXPECT_FALSE(store().findIdentity("id-2"));
    EXPECT_TRUE(store().findIdentity("id-3"));
    EXPECT_FALSE(store().isTokenValid(token, "id-1", NOW));
    EXPECT_FALSE(store().findInvitation(open, NOW));
    EXPECT_EQ(listed(), "[3]");
}

TEST_F(Store, RevokingTwiceOrAStrangerEndsNothing)
{
    enrolled("id-1", "h1");
    EXPECT_EQ(store().revoke("h1", NOW).identities, 1);
    EXPECT_EQ(store().revoke("h1", NOW).identities, 0);
    EXPECT_EQ(store().revoke("stranger", NOW).identities, 0);
}

TEST_F(Store, RecordThatComesAfterTheRevocationIsNotStored)
{
    const Identity identity = enrolled("id-1", "h1");
    store().revoke("h1", NOW);
    EXPECT_EQ(store().putHost(identity, "{}"), Stored::noIdentity);
    EXPECT_EQ(store().addHost(identity, "{}"), Stored::noIdentity);
    EXPECT_EQ(listed(), "[]");
}

TEST_F(Store, RecordOfARevokedIdentityAmongGoodOnesIsRefusedAlone)
{
    const Identity one = enrolled("id-1", "h1");
    const Identity two = enrolled("id-2", "h2");
    const Identity revoked = enrolled("id-3", "h3");
    const auto put = [this](const Identity& identity) {
        return std::async(std::launch::async, [this, &identity] { return store_->putHost(identity, "{}"); });
    };
    std::future<masterd::Store::Revoked> revocation;
    std::future<Stored> before, after, other;
    {
        tests::HeldSyncs held;
        revocation = std::async(std::launch::async, [this] { return store_->revoke("h3", NOW); });
        ASSERT_TRUE(held.await());
        before = put(one);
        after = put(revoked);
        other = put(two);
        ASSERT_TRUE(tests::until([this] { return store_->waitingChanges() == 3; }));
    }
    EXPECT_EQ(revocation.get().identities, 1);
    EXPECT_EQ(before.get(), Stored::done);
    EXPECT_EQ(after.get(), Stored::noIdentity);
    EXPECT_EQ(other.get(), Stored::done);
    EXPECT_EQ(listed(), "[{},{}]");
}

TEST_F(Store, NothingOfAnIdentityIsStoredAfterItsRevocationHasReturned)
{
    constexpr int HOSTS = 6;
    std::atomic<bool> isRevoked = false;
    std::atomic<int> refused = 0;
    std::vector<std::thread> writers;
    writers.reserve(HOSTS);
    for (int i = 0; i < HOSTS; ++i)
        writers.emplace_back([&, identity = enrolled("id-" + std::to_string(i), "h1")] {
            for (;;) {
                const bool wasRevoked = isRevoked;
                if (store_->putHost(identity, "{}") == Stored::noIdentity) {
                    ++refused;
                    return;
                }
                ASSERT_FALSE(wasRevoked);
            }
        });
    EXPECT_TRUE(tests::until([this] { return !store_->listHosts("h1").empty(); }));
    EXPECT_EQ(masterd::Store(path_).revoke("h1", NOW).identities, HOSTS); // as another process would
    isRevoked = true;
    for (std::thread& writer : writers)
        writer.join();
    EXPECT_EQ(refused, HOSTS);
    EXPECT_EQ(listed(), "[]");
}

TEST_F(Store, ReadingWaitsForNoSyncAndSeesOnlyWhatIsOnTheDisk)
{
    const Identity identity = enrolled("id-1", "h1");
    const Secret token = store().issueToken("id-1", NOW, LATER);
    store().putHost(identity, "1");
    std::future<Stored> put;
    {
        tests::HeldSyncs held;
        put = std::async(std::launch::async, [&] { return store_->putHost(identity, "2"); });
        ASSERT_TRUE(held.await());
        EXPECT_TRUE(store().findIdentity("id-1"));
        EXPECT_TRUE(store().isTokenValid(token, "id-1", NOW));
        EXPECT_EQ(store().findHost("id-1"), "1");
        EXPECT_EQ(listed(), "[1]");
    }
    EXPECT_EQ(put.get(), Stored::done);
    EXPECT_EQ(listed(), "[2]");
}

TEST_F(Store, SeesAtOnceWhatAnotherProcessDid)
{
    enrolled("id-1", "h1");
    masterd::Store(path_).revoke("h1", NOW);
    EXPECT_FALSE(store().findIdentity("id-1"));
}

} // namespace
