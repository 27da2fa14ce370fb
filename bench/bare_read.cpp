// SQLite's own read of all hosts of a master server's database in the order of their names.
//
// usage: bare-read DATABASE
// Prints {"ms": <from the start of the query to its last row>, "bytes": <of all records>}.

#include "bench/failure.h"
#include "bench/sqlite_store.h"
#include "bench/statistics.h"

#include <cstdio>
#include <numeric>
#include <string_view>

int main(int argc, char* argv[])
{
    return bench::runProgram("bare-read", [&] {
        if (argc != 2)
            throw bench::Failure("usage: bare-read DATABASE");
        const bench::SqliteDatabase database = bench::openSqlite(argv[1], "PRAGMA query_only = ON");
        const double begin = bench::now();
        const bench::SqliteStatement query =
            bench::prepareSqlite(*database, "SELECT record FROM host ORDER BY host_name, host_id");
        long long bytes = 0;
        int status = SQLITE_ROW;
        while ((status = sqlite3_step(query.get())) == SQLITE_ROW) {
            // The text itself is fetched: pages beyond a row's first are read only then.
            bytes += static_cast<long long>(
                std::string_view(reinterpret_cast<const char*>(sqlite3_column_text(query.get(), 0))).size());
        }
        if (status != SQLITE_DONE)
            throw bench::Failure(sqlite3_errmsg(database.get()));
        std::printf("{\"ms\": %.3f, \"bytes\": %lld}\n", (bench::now() - begin) * 1e3, bytes);
    });
}
