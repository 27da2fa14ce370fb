/// SQLite with scopes: a database, its prepared statements, one run of a statement, a transaction.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace masterd {

/// What every operation here throws: SQLite's own words about a failure, with the system's where a file is
/// at fault.
class SqliteError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// An open database. It may be used by one thread at a time.
class Database {
public:
    /// Opens a file that exists, for reading and writing. A symbolic link is refused, one on the way to the
    /// file's folder is followed. Waits up to ten seconds for another process that is writing.
    explicit Database(const std::string& path);

    /// Runs statements that take no values and answer nothing of interest.
    void execute(const char* sql);

    [[nodiscard]] sqlite3* handle() const { return handle_.get(); }
    /// Rows that the last INSERT, UPDATE or DELETE touched.
    [[nodiscard]] int changes() const;
    /// False again once a transaction has ended, which some failures (a full disk, no memory) do by
    /// themselves.
    [[nodiscard]] bool isInTransaction() const;

private:
    struct Close {
        void operator()(sqlite3* handle) const;
    };
    std::unique_ptr<sqlite3, Close> handle_;
};

/// A statement that is prepared once and run often.
class Statement {
public:
    Statement(const Database& database, const char* sql);
    [[nodiscard]] sqlite3_stmt* handle() const { return handle_.get(); }

private:
    struct Finalize {
        void operator()(sqlite3_stmt* handle) const;
    };
    std::unique_ptr<sqlite3_stmt, Finalize> handle_;
};

/// One run of a statement, from its values to its last row; the statement is free again at the end of scope.
class Query {
public:
    explicit Query(const Statement& statement) : statement_(statement.handle()) {}
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;
    ~Query();

    /// Values of the statement's "?" marks, in their order. A text must outlive the run.
    Query& with(std::string_view text);
    Query& with(std::int64_t number);

    /// Takes the next row; false after the last.
    bool next();
    /// For a statement that answers no rows.
    void run();

    /// Columns of the row, counted from 0.
    [[nodiscard]] std::string text(int column) const;
    /// The same without a copy, for as long as the query stays at this row.
    [[nodiscard]] std::string_view view(int column) const;
    [[nodiscard]] std::int64_t number(int column) const;

private:
    void check(int result) const;

    sqlite3_stmt* statement_;
    int bound_ = 0;
};

/// A writing transaction; rolled back at the end of its scope unless it was committed.
class Transaction {
public:
    explicit Transaction(Database& database);
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction();

    /// Returns when the changes are on the disk.
    void commit();

private:
    Database& database_;
    bool open_ = true;
};

/// A part of a writing transaction that can be undone without the rest. There may be one at a time. It ends
/// with release(), or with the transaction, which is lost when it throws.
class Savepoint {
public:
    explicit Savepoint(Database& database);

    /// Undoes what was done since the beginning.
    void undo();
    void release();

private:
    Database& database_;
};

} // namespace masterd
