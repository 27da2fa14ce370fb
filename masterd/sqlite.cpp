#include "masterd/sqlite.h"

#include "platform/file_io.h"
#include "platform/portable.h"

#include <cerrno>
#include <cstdlib>
#include <sqlite3.h>

namespace masterd {

namespace {

constexpr int BUSY_WAIT_MS = 10000;

/// The same path with no link in the folder's part, so that only one at the file itself is refused.
std::string withoutLinksBefore(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const tq::MallocText resolved(realpath(folder.c_str(), nullptr));
    if (!resolved)
        throw SqliteError("cannot look at its folder: " + tq::errorText(errno));
    return std::string(resolved.get()) + '/' + path.substr(slash == std::string::npos ? 0 : slash + 1);
}

/// The library's words for the last failure, which alone say too little of a file that cannot be opened, read
/// or written.
std::string lastFault(sqlite3* handle)
{
    std::string fault = sqlite3_errmsg(handle);
    const int code = sqlite3_extended_errcode(handle);
    const int primary = code & 0xff;
    if (primary != SQLITE_CANTOPEN && primary != SQLITE_IOERR)
        return fault;
    if (code == SQLITE_CANTOPEN_SYMLINK)
        return fault + ": it is a symbolic link";
    if (const int cause = sqlite3_system_errno(handle); cause != 0)
        fault += ": " + tq::errorText(cause);
    return fault + " (SQLite " + std::to_string(code) + ')';
}

} // namespace

void Database::Close::operator()(sqlite3* handle) const
{
    sqlite3_close_v2(handle);
}

Database::Database(const std::string& path)
{
    sqlite3* handle = nullptr;
    const int result =
        sqlite3_open_v2(withoutLinksBefore(path).c_str(), &handle,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW, nullptr);
    handle_.reset(handle); // a handle comes along with most failures too
    if (result != SQLITE_OK)
        throw SqliteError(handle != nullptr ? lastFault(handle) : sqlite3_errstr(result));
    sqlite3_busy_timeout(handle, BUSY_WAIT_MS);
}

void Database::execute(const char* sql)
{
    if (sqlite3_exec(handle_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        throw SqliteError(lastFault(handle_.get()));
}

int Database::changes() const
{
    return sqlite3_changes(handle_.get());
}

bool Database::isInTransaction() const
{
    return sqlite3_get_autocommit(handle_.get()) == 0;
}

void Statement::Finalize::operator()(sqlite3_stmt* handle) const
{
    sqlite3_finalize(handle);
}

Statement::Statement(const Database& database, const char* sql)
{
    sqlite3_stmt* handle = nullptr;
    if (sqlite3_prepare_v3(database.handle(), sql, -1, SQLITE_PREPARE_PERSISTENT, &handle, nullptr) !=
        SQLITE_OK)
        throw SqliteError(lastFault(database.handle()));
    handle_.reset(handle);
}

Query::~Query()
{
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
}

Query& Query::with(std::string_view text)
{
    check(sqlite3_bind_text64(statement_, ++bound_, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8));
    return *this;
}

Query& Query::with(std::int64_t number)
{
    check(sqlite3_bind_int64(statement_, ++bound_, number));
    return *this;
}

bool Query::next()
{
    const int result = sqlite3_step(statement_);
    if (result == SQLITE_ROW)
        return true;
    check(result == SQLITE_DONE ? SQLITE_OK : result);
    return false;
}

void Query::run()
{
    next();
}

std::string Query::text(int column) const
{
    return std::string(view(column));
}

std::string_view Query::view(int column) const
{
    // As bytes: a text would be copied to stand before a NUL.
    const auto* data = static_cast<const char*>(sqlite3_column_blob(statement_, column));
    if (data == nullptr)
        return "";
    return {data, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))};
}

std::int64_t Query::number(int column) const
{
    return sqlite3_column_int64(statement_, column);
}

void Query::check(int result) const
{
    if (result != SQLITE_OK)
        throw SqliteError(lastFault(sqlite3_db_handle(statement_)));
}

Transaction::Transaction(Database& database) : database_(database)
{
    // A writer from the first statement on: a reader that became one could be refused half-way.
    database_.execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction()
{
    if (open_)
        sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit()
{
    database_.execute("COMMIT");
    open_ = false;
}

Savepoint::Savepoint(Database& database) : database_(database)
{
    database_.execute("SAVEPOINT part");
}

void Savepoint::undo()
{
    database_.execute("ROLLBACK TO part");
}

void Savepoint::release()
{
    database_.execute("RELEASE part");
}

} // namespace masterd
