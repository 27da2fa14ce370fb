// The smallest server of the same parts (cpp-httplib, SQLite): a PUT of a record over mutual TLS is answered
// when the record is on the disk. No identities, no tokens, no checks of what arrives, no log.
//
// usage: bare-server ADDRESS SERVER_PEM AUTHORITY_PEM DATABASE

#include <httplib.h>

#include "bench/failure.h"
#include "bench/https_client.h"
#include "bench/sqlite_store.h"

#include <mutex>

namespace {

constexpr const char* SCHEMA =
    "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL;"
    "CREATE TABLE IF NOT EXISTS host (host_id TEXT PRIMARY KEY, record TEXT NOT NULL)";
constexpr const char* PUT = "INSERT INTO host (host_id, record) VALUES (?, ?)"
                            " ON CONFLICT (host_id) DO UPDATE SET record = excluded.record";

class Store {
public:
    explicit Store(const std::string& path)
        : database_(bench::openSqlite(path, SCHEMA)), put_(bench::prepareSqlite(*database_, PUT))
    {
    }

    bool put(const std::string& hostId, const std::string& record)
    {
        const std::lock_guard lock(mutex_);
        bind(1, hostId);
        bind(2, record);
        const int status = sqlite3_step(put_.get());
        sqlite3_reset(put_.get());
        return status == SQLITE_DONE;
    }

private:
    void bind(int place, const std::string& text)
    {
        sqlite3_bind_text(put_.get(), place, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    }

    std::mutex mutex_;
    bench::SqliteDatabase database_;
    bench::SqliteStatement put_;
};

} // namespace

int main(int argc, char* argv[])
{
    return bench::runProgram("bare-server", [&] {
        if (argc != 5)
            throw bench::Failure("usage: bare-server ADDRESS SERVER_PEM AUTHORITY_PEM DATABASE");
        Store store(argv[4]);
        httplib::SSLServer server(argv[2], argv[2], argv[3]);
        server.set_tcp_nodelay(true);
        server.Put(R"(/torquenix/config/hosts/([0-9a-f-]+))",
                   [&](const httplib::Request& request, httplib::Response& response) {
                       response.status = store.put(request.matches[1], request.body) ? 200 : 500;
                       response.set_content(request.body, "application/json");
                   });
        if (!server.listen(argv[1], bench::PORT))
            throw bench::Failure(std::string("cannot listen on ") + argv[1]);
    });
}
