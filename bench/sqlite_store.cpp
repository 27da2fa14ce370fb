#include "bench/sqlite_store.h"

#include "bench/failure.h"

namespace bench {

SqliteDatabase openSqlite(const std::string& path, const char* sql)
{
    sqlite3* opened = nullptr;
    const int status = sqlite3_open(path.c_str(), &opened);
    SqliteDatabase database(opened);
    if (status != SQLITE_OK || sqlite3_exec(opened, sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        throw Failure(path + ": " + sqlite3_errmsg(opened));
    return database;
}

SqliteStatement prepareSqlite(sqlite3& database, const char* sql)
{
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(&database, sql, -1, &statement, nullptr) != SQLITE_OK)
        throw Failure(sqlite3_errmsg(&database));
    return SqliteStatement(statement);
}

} // namespace bench
