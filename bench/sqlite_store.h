/// As much of SQLite as the yardsticks need.
#pragma once

#include <memory>
#include <sqlite3.h>
#include <string>

namespace bench {

struct SqliteRelease {
    void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using SqliteDatabase = std::unique_ptr<sqlite3, SqliteRelease>;
using SqliteStatement = std::unique_ptr<sqlite3_stmt, SqliteRelease>;

/// Opens or makes a database and runs a text of SQL on it. Throws Failure.
SqliteDatabase openSqlite(const std::string& path, const char* sql);

/// Throws Failure.
SqliteStatement prepareSqlite(sqlite3& database, const char* sql);

} // namespace bench
