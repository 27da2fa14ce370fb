#include "masterd/store.h"

#include "platform/file_io.h"

#include <cerrno>
#include <fcntl.h>
#include <stdexcept>

namespace masterd {

namespace {

constexpr std::int64_t SCHEMA_VERSION = 1;
constexpr const char* OTHER_VERSION = "it is not a host database of this release";

/// Rows of identity stay for ever: a host id is never given to another, and a revoked one stays known as
/// such.
constexpr const char* SCHEMA = R"(
CREATE TABLE IF NOT EXISTS identity (
    host_id TEXT PRIMARY KEY, host_name TEXT NOT NULL, type TEXT NOT NULL CHECK (type IN ('host', 'cluster')),
    revoked_at INTEGER) STRICT;
CREATE INDEX IF NOT EXISTS identity_by_name ON identity (host_name);
CREATE TABLE IF NOT EXISTS invitation (
    id TEXT PRIMARY KEY, hash TEXT NOT NULL, host_name TEXT NOT NULL,
    type TEXT NOT NULL CHECK (type IN ('host', 'cluster')), expires_at INTEGER NOT NULL,
    host_id TEXT REFERENCES identity (host_id), withdrawn_at INTEGER) STRICT;
CREATE TABLE IF NOT EXISTS token (
    id TEXT PRIMARY KEY, hash TEXT NOT NULL, host_id TEXT NOT NULL REFERENCES identity (host_id),
    expires_at INTEGER NOT NULL) STRICT;
CREATE INDEX IF NOT EXISTS token_by_host ON token (host_id);
CREATE INDEX IF NOT EXISTS token_by_end ON token (expires_at);
CREATE TABLE IF NOT EXISTS host (
    host_id TEXT PRIMARY KEY REFERENCES identity (host_id), host_name TEXT NOT NULL,
    record TEXT NOT NULL) STRICT;
CREATE INDEX IF NOT EXISTS host_by_name ON host (host_name, host_id);
)";

const char* toText(IdentityType type)
{
    return type == IdentityType::cluster ? "cluster" : "host";
}

IdentityType toIdentityType(const std::string& text)
{
    return text == "cluster" ? IdentityType::cluster : IdentityType::host;
}

/// More than most records have: room for the one that ends a part of the list.
constexpr std::size_t TYPICAL_RECORD_BYTES = 4096;

/// Durable from the first statement on: a commit returns when the log of changes is on the disk.
void setDurable(Database& database)
{
    database.execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; PRAGMA foreign_keys = ON;"
                     "PRAGMA trusted_schema = OFF");
}

std::int64_t readSchemaVersion(const Database& database)
{
    const Statement statement(database, "PRAGMA user_version");
    Query query(statement);
    return query.next() ? query.number(0) : 0;
}

Database openDatabase(const std::string& path)
{
    Database database(path);
    setDurable(database);
    if (readSchemaVersion(database) != SCHEMA_VERSION)
        throw SqliteError(OTHER_VERSION);
    return database;
}

Database openForReading(const std::string& path)
{
    Database database = openDatabase(path);
    database.execute("PRAGMA query_only = ON");
    return database;
}

/// A host that enrols again keeps its host id, and so its one record. The nodes of a cluster, which share the
/// virtual host's name, have one each.
constexpr const char* READ_INVITATION =
    "SELECT hash, host_name, type,"
    " (SELECT host_id FROM identity WHERE identity.host_name = invitation.host_name AND identity.type = "
    "'host'"
    "  AND invitation.type = 'host' AND revoked_at IS NULL ORDER BY rowid DESC LIMIT 1)"
    " FROM invitation WHERE id = ? AND expires_at > ? AND host_id IS NULL AND withdrawn_at IS NULL";
constexpr const char* READ_HOST = "SELECT record FROM host WHERE host_id = ?";

std::optional<Identity> readInvited(const Statement& read, const Secret& invitation, std::int64_t now)
{
    Query query(read);
    query.with(invitation.id).with(now);
    if (!query.next() || !invitation.matches(query.text(0)))
        return std::nullopt;
    return Identity{query.text(3), query.text(1), toIdentityType(query.text(2))};
}

std::string asArray(Query& query)
{
    std::string array = "[";
    while (query.next()) {
        if (array.size() > 1)
            array += ',';
        array += query.view(0);
    }
    return array += ']';
}

} // namespace

void Store::create(const std::string& path)
{
    const tq::FileDescriptor file = tq::openOwnFile(path, O_RDWR | O_CREAT, 0600, "Store::create");
    if (!file)
        throw std::runtime_error(tq::fileFault(errno));
    Database database(path);
    setDurable(database);
    Transaction transaction(database);
    const std::int64_t version = readSchemaVersion(database);
    if (version != 0 && version != SCHEMA_VERSION)
        throw SqliteError(OTHER_VERSION);
    database.execute(SCHEMA);
    database.execute(("PRAGMA user_version = " + std::to_string(SCHEMA_VERSION)).c_str());
    transaction.commit();
}

Store::Store(const std::string& path)
    : database_(openDatabase(path)), commits_(database_),
      addInvitation_(database_, "INSERT INTO invitation (id, hash, host_name, type, expires_at)"
                                " VALUES (?, ?, ?, ?, ?)"),
      checkInvitation_(database_, READ_INVITATION),
      useInvitation_(database_, "UPDATE invitation SET host_id = ? WHERE id = ?"),
      withdrawInvitations_(database_, "UPDATE invitation SET withdrawn_at = ? WHERE host_name = ?"
                                      " AND host_id IS NULL AND withdrawn_at IS NULL"),
      addIdentity_(database_, "INSERT INTO identity (host_id, host_name, type) VALUES (?, ?, ?)"),
      revokeIdentities_(database_, "UPDATE identity SET revoked_at = ? WHERE host_name = ?"
                                   " AND revoked_at IS NULL"),
      forgetTokens_(database_, "DELETE FROM token WHERE expires_at <= ?"),
      forgetRevokedTokens_(database_, "DELETE FROM token WHERE host_id IN"
                                      " (SELECT host_id FROM identity WHERE host_name = ?)"),
      addToken_(database_, "INSERT INTO token (id, hash, host_id, expires_at) VALUES (?, ?, ?, ?)"),
      // Entered only while the identity stands: a revocation may come between its check and this.
      putHost_(database_, "INSERT INTO host (host_id, host_name, record) SELECT host_id, host_name, ?"
                          " FROM identity WHERE host_id = ? AND revoked_at IS NULL"
                          " ON CONFLICT (host_id) DO UPDATE SET record = excluded.record"),
      checkHost_(database_, READ_HOST),
      addHost_(database_, "INSERT INTO host (host_id, host_name, record) SELECT host_id, host_name, ?"
                          " FROM identity WHERE host_id = ? AND revoked_at IS NULL"),
      deleteHost_(database_, "DELETE FROM host WHERE host_id = ?"),
      deleteRevokedHosts_(database_, "DELETE FROM host WHERE host_name = ?"),
      readDatabase_(openForReading(path)), readInvitation_(readDatabase_, READ_INVITATION),
      readIdentity_(readDatabase_, "SELECT host_name, type FROM identity WHERE host_id = ?"
                                   " AND revoked_at IS NULL"),
      readToken_(readDatabase_, "SELECT hash FROM token WHERE id = ? AND host_id = ? AND expires_at > ?"),
      readHost_(readDatabase_, READ_HOST),
      listPart_(readDatabase_, "SELECT record, host_name, host_id FROM host"
                               " WHERE (host_name, host_id) > (?, ?) ORDER BY host_name, host_id"),
      listNamed_(readDatabase_, "SELECT record FROM host WHERE host_name = ? ORDER BY host_id")
{
}

Secret Store::invite(const std::string& hostName, IdentityType type, std::int64_t expiresAt)
{
    Secret invitation = makeSecret();
    const std::string hash = invitation.hash();
    commits_.run([&] {
        Query(addInvitation_)
            .with(invitation.id)
            .with(hash)
            .with(hostName)
            .with(toText(type))
            .with(expiresAt)
            .run();
    });
    return invitation;
}

std::optional<Identity> Store::findInvitation(const Secret& invitation, std::int64_t now)
{
    const std::lock_guard lock(readMutex_);
    return readInvited(readInvitation_, invitation, now);
}

bool Store::redeemInvitation(const Secret& invitation, const Identity& identity, std::int64_t now)
{
    bool isRedeemed = false;
    commits_.run([&] {
        const std::optional<Identity> invited = readInvited(checkInvitation_, invitation, now);
        if (!invited)
            return;
        if (invited->hostId != identity.hostId)
            Query(addIdentity_)
                .with(identity.hostId)
                .with(identity.hostName)
                .with(toText(identity.type))
                .run();
        Query(useInvitation_).with(identity.hostId).with(invitation.id).run();
        isRedeemed = true;
    });
    return isRedeemed;
}

std::optional<Identity> Store::findIdentity(const std::string& hostId)
{
    const std::lock_guard lock(readMutex_);
    Query query(readIdentity_);
    query.with(hostId);
    if (!query.next())
        return std::nullopt;
    return Identity{hostId, query.text(0), toIdentityType(query.text(1))};
}

Store::Revoked Store::revoke(const std::string& hostName, std::int64_t now)
{
    Revoked revoked;
    commits_.run([&] {
        Query(revokeIdentities_).with(now).with(hostName).run();
        revoked.identities = database_.changes();
        Query(withdrawInvitations_).with(now).with(hostName).run();
        revoked.invitations = database_.changes();
        Query(forgetRevokedTokens_).with(hostName).run();
        Query(deleteRevokedHosts_).with(hostName).run();
    });
    return revoked;
}

Secret Store::issueToken(const std::string& hostId, std::int64_t now, std::int64_t expiresAt)
{
    Secret token = makeSecret();
    const std::string hash = token.hash();
    commits_.run([&] {
        Query(forgetTokens_).with(now).run();
        Query(addToken_).with(token.id).with(hash).with(hostId).with(expiresAt).run();
    });
    return token;
}

bool Store::isTokenValid(const Secret& token, const std::string& hostId, std::int64_t now)
{
    const std::lock_guard lock(readMutex_);
    Query query(readToken_);
    query.with(token.id).with(hostId).with(now);
    return query.next() && token.matches(query.text(0));
}

Store::Stored Store::putHost(const Identity& identity, std::string_view record)
{
    Stored stored = Stored::noIdentity;
    commits_.run([&] {
        Query(putHost_).with(record).with(identity.hostId).run();
        if (database_.changes() == 1)
            stored = Stored::done;
    });
    return stored;
}

Store::Stored Store::addHost(const Identity& identity, std::string_view record)
{
    Stored stored = Stored::noIdentity;
    commits_.run([&] {
        if (Query query(checkHost_); query.with(identity.hostId).next()) {
            stored = Stored::exists;
            return;
        }
        Query(addHost_).with(record).with(identity.hostId).run();
        if (database_.changes() == 1)
            stored = Stored::done;
    });
    return stored;
}

std::optional<std::string> Store::findHost(const std::string& hostId)
{
    const std::lock_guard lock(readMutex_);
    Query query(readHost_);
    query.with(hostId);
    if (!query.next())
        return std::nullopt;
    return query.text(0);
}

bool Store::deleteHost(const std::string& hostId)
{
    bool isDeleted = false;
    commits_.run([&] {
        Query(deleteHost_).with(hostId).run();
        isDeleted = database_.changes() == 1;
    });
    return isDeleted;
}

std::string Store::listHosts(HostPlace& place)
{
    std::string part;
    part.reserve(HOST_LIST_PART_BYTES + TYPICAL_RECORD_BYTES);
    const std::lock_guard lock(readMutex_);
    const HostPlace after = place;
    Query query(listPart_);
    query.with(after.hostName).with(after.hostId);
    while (part.size() < HOST_LIST_PART_BYTES && query.next()) {
        if (!place.hostName.empty())
            part += ',';
        part += query.view(0);
        place.hostName = query.view(1);
        place.hostId = query.view(2);
    }
    return part;
}

std::string Store::listHosts(const std::string& hostName)
{
    const std::lock_guard lock(readMutex_);
    Query query(listNamed_);
    query.with(hostName);
    return asArray(query);
}

} // namespace masterd
