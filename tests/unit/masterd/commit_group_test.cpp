#include "masterd/commit_group.h"

#include "tests/unit/masterd/failing_calls.h"
#include "tests/unit/masterd/until.h"
#include "tests/unit/scratch_directory.h"

#include <future>
#include <gtest/gtest.h>

namespace {

using masterd::Query;
using masterd::SqliteError;
using masterd::Statement;
using std::chrono::milliseconds;

class CommitGroup : public testing::Test {
protected:
    CommitGroup() : database_(emptyFile())
    {
        database_.execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL;"
                          "CREATE TABLE t (a TEXT PRIMARY KEY, b TEXT)");
        put_.emplace(database_, "REPLACE INTO t VALUES (?, ?)");
    }

    std::string emptyFile()
    {
        tests::writeText(folder_.file("db"), "");
        return folder_.file("db");
    }

    void put(const std::string& a, const std::string& b) { Query(*put_).with(a).with(b).run(); }

    std::future<void> start(std::function<void()> change)
    {
        return std::async(std::launch::async, [this, change = std::move(change)] { commits_.run(change); });
    }
    std::future<void> startPut(const std::string& a, const std::string& b = "")
    {
        return start([this, a, b] { put(a, b); });
    }
    void awaitWaiting(std::size_t changes)
    {
        ASSERT_TRUE(tests::until([&] { return commits_.waiting() == changes; }));
    }

    /// "a=b" of every row that is on the disk, as another process would see it.
    std::string stored()
    {
        const masterd::Database other(folder_.file("db"));
        const Statement statement(
            other, "SELECT group_concat(a || '=' || b, ' ') FROM (SELECT * FROM t ORDER BY a)");
        Query query(statement);
        return query.next() ? query.text(0) : "";
    }

    tests::ScratchDirectory folder_;
    masterd::Database database_;
    std::optional<Statement> put_;
    masterd::CommitGroup commits_{database_};
};

bool isAnswered(const std::future<void>& answer)
{
    return answer.wait_for(milliseconds(0)) == std::future_status::ready;
}

TEST_F(CommitGroup, LoneChangeIsAnsweredOnceItIsSynced)
{
    const int before = tests::syncs;
    std::future<void> answer;
    {
        tests::HeldSyncs held;
        answer = startPut("a", "1");
        ASSERT_TRUE(held.await());
        EXPECT_FALSE(isAnswered(answer));
        EXPECT_EQ(stored(), "");
    }
    answer.get();
    EXPECT_EQ(stored(), "a=1");
    EXPECT_EQ(tests::syncs - before, 1);
}

TEST_F(CommitGroup, ChangesThatArriveDuringASyncShareTheNextOne)
{
    const int before = tests::syncs;
    std::vector<std::future<void>> answers;
    {
        tests::HeldSyncs held;
        answers.push_back(startPut("leader"));
        ASSERT_TRUE(held.await());
        for (int i = 1; i <= 5; ++i)
            answers.push_back(startPut(std::to_string(i)));
        awaitWaiting(5);
        held.letOneGo();
        ASSERT_TRUE(held.await()); // the group's
        answers.front().get();
        EXPECT_EQ(stored(), "leader=");
        for (std::size_t i = 1; i < answers.size(); ++i)
            EXPECT_FALSE(isAnswered(answers[i])) << i;
    }
    for (std::size_t i = 1; i < answers.size(); ++i)
        answers[i].get();
    EXPECT_EQ(stored(), "1= 2= 3= 4= 5= leader=");
    EXPECT_EQ(tests::syncs - before, 2);
}

TEST_F(CommitGroup, OfTwoChangesOfOneRowTheLaterStands)
{
    std::vector<std::future<void>> answers;
    {
        tests::HeldSyncs held;
        answers.push_back(startPut("a", "first"));
        ASSERT_TRUE(held.await());
        answers.push_back(startPut("a", "second"));
        awaitWaiting(1);
        answers.push_back(startPut("a", "third"));
        awaitWaiting(2);
    }
    for (std::future<void>& answer : answers)
        answer.get();
    EXPECT_EQ(stored(), "a=third");
}

TEST_F(CommitGroup, OneThatFailsIsUndoneAndFailsAlone)
{
    std::future<void> leader, good, bad, wrong, last;
    {
        tests::HeldSyncs held;
        leader = startPut("leader");
        ASSERT_TRUE(held.await());
        good = startPut("good");
        awaitWaiting(1); // or "good" is not there yet for the wrong one to run into
        bad = start([this] {
            put("bad", "half");
            throw std::runtime_error("its own affair");
        });
        wrong = start([this] {
            put("wrong", "half");
            database_.execute("INSERT INTO t VALUES ('good', '')");
        });
        awaitWaiting(3);
        last = startPut("last");
        awaitWaiting(4);
    }
    leader.get();
    good.get();
    last.get();
    EXPECT_THROW(bad.get(), std::runtime_error);
    EXPECT_THROW(wrong.get(), SqliteError);
    EXPECT_EQ(stored(), "good= last= leader=");
}

TEST_F(CommitGroup, LoneChangeThatFailsIsUndoneAndTheNextIsDone)
{
    EXPECT_THROW(commits_.run([this] {
        put("bad", "half");
        throw std::runtime_error("its own affair");
    }),
                 std::runtime_error);
    commits_.run([this] { put("good", ""); });
    EXPECT_EQ(stored(), "good=");
}

/// Runs a change, then three that share a transaction; the middle one is `odd`. What is given happens after
/// the first one's sync and before the others' transaction. Whether all three failed for want of the
/// database.
bool doAllThreeFail(masterd::CommitGroup& commits, const std::function<void()>& good,
                    const std::function<void()>& odd, const std::function<void()>& meanwhile)
{
    std::vector<std::future<void>> answers;
    const auto start = [&](const std::function<void()>& change) {
        answers.push_back(std::async(std::launch::async, [&] { commits.run(change); }));
        return tests::until([&] { return commits.waiting() + 1 == answers.size(); });
    };
    {
        tests::HeldSyncs held;
        answers.push_back(std::async(std::launch::async, [&] { commits.run(good); }));
        EXPECT_TRUE(held.await() && start(good) && start(odd) && start(good));
        meanwhile();
    }
    answers.front().get();
    int failures = 0;
    for (std::size_t i = 1; i < answers.size(); ++i) {
        try {
            answers[i].get();
        } catch (const SqliteError& /*expected*/) {
            ++failures;
        }
    }
    return failures == 3;
}

TEST_F(CommitGroup, FailureThatEndsTheTransactionFailsAllInIt)
{
    int number = 0;
    const auto good = [&] { put("row" + std::to_string(++number), ""); };
    EXPECT_TRUE(doAllThreeFail(
        commits_, good, [this] { database_.execute("INSERT OR ROLLBACK INTO t VALUES ('row1', 'twice')"); },
        [] {}));
    EXPECT_EQ(stored(), "row1=");
    commits_.run(good);
    EXPECT_EQ(stored(), "row1= row" + std::to_string(number) + "=");
}

TEST_F(CommitGroup, FailedSyncFailsAllInItsTransactionAndNoOther)
{
    int number = 0;
    const auto good = [&] { put(std::to_string(++number), ""); };
    std::vector<std::future<void>> answers;
    {
        tests::HeldSyncs held;
        answers.push_back(start(good));
        ASSERT_TRUE(held.await());
        for (int i = 0; i < 3; ++i)
            answers.push_back(start(good));
        awaitWaiting(3);
        held.letOneGo();
        ASSERT_TRUE(held.await());
        answers.front().get();
        tests::syncFault = EIO;
    }
    for (std::size_t i = 1; i < answers.size(); ++i)
        EXPECT_THROW(answers[i].get(), SqliteError) << i;
    tests::syncFault = 0;
    EXPECT_EQ(stored(), "1=");
    commits_.run([this] { put("after", ""); });
    EXPECT_EQ(stored(), "1= after=");
}

TEST_F(CommitGroup, FullDiskFailsAllThatWaitAndStoresNothingOfThem)
{
    int number = 0;
    const auto good = [&] { put(std::to_string(++number), std::string(10000, 'x')); };
    std::optional<tests::FullDisk> full;
    EXPECT_TRUE(doAllThreeFail(commits_, good, good, [&] { full.emplace(); }));
    full.reset();
    EXPECT_EQ(stored().size(), std::string("1=").size() + 10000);
    commits_.run([this] { put("after", ""); });
    EXPECT_NE(stored().find("after="), std::string::npos);
}

TEST_F(CommitGroup, ManyThreadsLoseNothing)
{
    constexpr int THREADS = 8;
    constexpr int CHANGES = 50;
    std::vector<std::future<void>> threads;
    for (int i = 0; i < THREADS; ++i)
        threads.push_back(std::async(std::launch::async, [this, i] {
            for (int j = 0; j < CHANGES; ++j)
                commits_.run([&] { put(std::to_string(i * CHANGES + j), ""); });
        }));
    for (std::future<void>& thread : threads)
        thread.get();
    const masterd::Database other(folder_.file("db"));
    const Statement count(other, "SELECT count(*) FROM t");
    Query query(count);
    ASSERT_TRUE(query.next());
    EXPECT_EQ(query.number(0), THREADS * CHANGES);
}

} // namespace
