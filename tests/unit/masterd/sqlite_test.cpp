#include "masterd/sqlite.h"
#include "tests/unit/scratch_directory.h"

#include <gtest/gtest.h>

namespace {

using masterd::Database;
using masterd::Query;
using masterd::SqliteError;
using masterd::Statement;
using masterd::Transaction;

class Sqlite : public testing::Test {
protected:
    Sqlite() : database_(emptyFile()) { database_.execute("CREATE TABLE t (a TEXT PRIMARY KEY, b INTEGER)"); }

    std::string emptyFile()
    {
        tests::writeText(folder_.file("db"), "");
        return folder_.file("db");
    }
    std::int64_t countRows()
    {
        const Statement statement(database_, "SELECT count(*) FROM t");
        Query query(statement);
        return query.next() ? query.number(0) : -1;
    }

    tests::ScratchDirectory folder_;
    Database database_;
};

TEST_F(Sqlite, ValuesComeBackAsTheyWentIn)
{
    const Statement insert(database_, "INSERT INTO t VALUES (?, ?)");
    Query(insert).with("it's; DROP TABLE t").with(std::int64_t{1} << 40).run();
    const Statement select(database_, "SELECT a, b, NULL FROM t WHERE a = ?");
    Query query(select);
    query.with("it's; DROP TABLE t");
    ASSERT_TRUE(query.next());
    EXPECT_EQ(query.text(0), "it's; DROP TABLE t");
    EXPECT_EQ(query.number(1), std::int64_t{1} << 40);
    EXPECT_EQ(query.text(2), "");
    EXPECT_FALSE(query.next());
}

TEST_F(Sqlite, StatementIsFreeForTheNextRunEvenAfterAFailure)
{
    const Statement insert(database_, "INSERT INTO t VALUES (?, 1)");
    Query(insert).with("a").run();
    EXPECT_THROW(Query(insert).with("a").run(), SqliteError);
    Query(insert).with("b").run();
    EXPECT_EQ(countRows(), 2);
}

TEST_F(Sqlite, TransactionThatIsNotCommittedLeavesNothing)
{
    {
        const Transaction transaction(database_);
        database_.execute("INSERT INTO t VALUES ('a', 1)");
    }
    EXPECT_EQ(countRows(), 0);
    Transaction transaction(database_);
    database_.execute("INSERT INTO t VALUES ('a', 1)");
    transaction.commit();
    EXPECT_EQ(countRows(), 1);
}

TEST_F(Sqlite, MistakesAreToldInTheLibrarysWords)
{
    EXPECT_THROW(database_.execute("SELEKT"), SqliteError);
    EXPECT_THROW(Statement(database_, "SELECT x FROM nothing"), SqliteError);
    const Statement statement(database_, "SELECT 1");
    EXPECT_THROW(Query(statement).with("more values than marks"), SqliteError);
}

/// What opening a file fails with; empty when it does not.
std::string openingFault(const std::string& path)
{
    try {
        const Database database(path);
    } catch (const SqliteError& fault) {
        return fault.what();
    }
    return "";
}

TEST_F(Sqlite, FileThatIsAbsentOrALinkIsNotOpenedAndTheCauseIsTold)
{
    EXPECT_EQ(openingFault(folder_.file("absent")),
              "unable to open database file: No such file or directory (SQLite 14)");
    EXPECT_EQ(openingFault(folder_.file("absent/db")),
              "cannot look at its folder: No such file or directory");
    std::filesystem::create_symlink(folder_.file("db"), folder_.file("link"));
    EXPECT_EQ(openingFault(folder_.file("link")), "unable to open database file: it is a symbolic link");
}

TEST_F(Sqlite, LinkOnTheWayToTheFileIsFollowed)
{
    std::filesystem::create_directory_symlink(folder_.path(), folder_.file("folder"));
    EXPECT_EQ(openingFault(folder_.file("folder/db")), "");
}

} // namespace
