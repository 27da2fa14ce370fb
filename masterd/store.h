/// The host database: identities, invitations, tokens and host records, in one SQLite file.
#pragma once

#include "masterd/commit_group.h"
#include "masterd/identity.h"
#include "masterd/secret.h"
#include "masterd/sqlite.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace masterd {

/// How long the parts of the list of all hosts become.
inline constexpr std::size_t HOST_LIST_PART_BYTES = std::size_t{256} * 1024;

/// A host's place in the order of all: ascending bytes of host name, then of host id. Empty names stand for
/// the place before the first.
struct HostPlace {
    std::string hostName;
    std::string hostId;
};

/// Safe for use by several threads, and beside other processes that open the same file. Every operation
/// throws SqliteError when the database fails; what it did is then undone. One that returns after a change
/// has it on the disk; threads that change something at the same time share the disk's sync (CommitGroup).
/// Reading has a connection of its own: it waits for no sync, and sees only what is on the disk. Times are
/// Unix seconds.
class Store {
public:
    /// Makes the file (mode 0600) when it is absent, and in it what is missing of the database; what is
    /// there stays. Throws std::runtime_error when the file cannot be made.
    static void create(const std::string& path);

    /// Opens a database that create() made.
    explicit Store(const std::string& path);

    /// A new invitation for one host name and type, good until `expiresAt`. Its text goes to the
    /// administrator and cannot be had again.
    Secret invite(const std::string& hostName, IdentityType type, std::int64_t expiresAt);

    /// Whom an invitation is for: name and type, and for a host that has an identity its host id (else none).
    /// Absent when it is unknown, used, expired or withdrawn.
    std::optional<Identity> findInvitation(const Secret& invitation, std::int64_t now);

    /// Uses an invitation up and enters the identity that it led to, unless that stands already; both or
    /// neither. False when another was quicker, or the invitation has expired or was withdrawn since.
    [[nodiscard]] bool redeemInvitation(const Secret& invitation, const Identity& identity, std::int64_t now);

    /// The identity with this host id; absent when it is unknown or has been revoked.
    std::optional<Identity> findIdentity(const std::string& hostId);

    /// Number of things that a revocation ended.
    struct Revoked {
        int identities = 0;
        int invitations = 0;
    };
    /// Ends all identities of a host name, of either type, with their tokens and host records (nobody else
    /// could ever remove those), and withdraws open invitations for that name.
    Revoked revoke(const std::string& hostName, std::int64_t now);

    /// A new access token of an identity. Tokens of any identity that ended before `now` are forgotten.
    Secret issueToken(const std::string& hostId, std::int64_t now, std::int64_t expiresAt);
    /// Whether a token is this identity's and has not ended.
    [[nodiscard]] bool isTokenValid(const Secret& token, const std::string& hostId, std::int64_t now);

    /// What became of a record that was to be stored.
    enum class Stored { done, exists, noIdentity };
    /// Enters a host's record, or replaces it whole; noIdentity when the identity has just been revoked.
    Stored putHost(const Identity& identity, std::string_view record);
    /// Enters a host's record; `exists` when it has one already.
    Stored addHost(const Identity& identity, std::string_view record);
    /// A host's record as it was stored.
    std::optional<std::string> findHost(const std::string& hostId);
    /// False when there was none.
    [[nodiscard]] bool deleteHost(const std::string& hostId);
    /// The records of the hosts that follow `place`, in their order, each but the first of all after a comma.
    /// A part ends with the record that makes it HOST_LIST_PART_BYTES long; a shorter one is the last, and
    /// may be empty. `place` becomes the last host's. The list of a whole fleet is never in memory at once,
    /// however many ask for it and however slowly they take it. A host that comes or goes meanwhile is in the
    /// list or is not; the others are in it once.
    std::string listHosts(HostPlace& place);
    /// The records of the hosts with exactly this name as a JSON array, in the same order.
    std::string listHosts(const std::string& hostName);

    /// Changes that wait for the disk to be done with those before them.
    [[nodiscard]] std::size_t waitingChanges() const { return commits_.waiting(); }

private:
    Database database_; ///< the changing operations'
    CommitGroup commits_;
    Statement addInvitation_;
    Statement checkInvitation_;
    Statement useInvitation_;
    Statement withdrawInvitations_;
    Statement addIdentity_;
    Statement revokeIdentities_;
    Statement forgetTokens_;
    Statement forgetRevokedTokens_;
    Statement addToken_;
    Statement putHost_;
    Statement checkHost_;
    Statement addHost_;
    Statement deleteHost_;
    Statement deleteRevokedHosts_;

    std::mutex readMutex_;
    Database readDatabase_; ///< the reading operations'
    Statement readInvitation_;
    Statement readIdentity_;
    Statement readToken_;
    Statement readHost_;
    Statement listPart_;
    Statement listNamed_;
};

} // namespace masterd
