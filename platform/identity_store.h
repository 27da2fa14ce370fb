/// The identity store on disk: /usr/torqv/var/identity/identity.json and the files that it names.
///
/// Statuses here: 7610 there is no store; 7611 the store is damaged, of a newer version, unreadable, or it or
/// its directory is unsafe; 7612 it holds no such identity; 14 it could not be written; 20 an argument could
/// not be read back. Every 7611, 14 and 20 writes a level-16 entry that names file and cause; `cause` (may be
/// null) receives the same words then, for a program that shows them to its user.
#pragma once

#include "platform/identity.h"
#include "platform/types.h"

#include <optional>
#include <string>
#include <vector>

namespace tq {

/// One identity. File names are relative to the store's directory; use identityFiles() to open them.
struct Identity {
    std::string server;
    cert_type certType = CERT_TYPE_HOST; ///< CERT_TYPE_HOST or CERT_TYPE_CLUSTER
    std::string hostId;
    std::string hostName;
    std::optional<std::string> trustVersion;
    ca_usage caMode = CA_USAGE_INTERNAL;
    std::string certificate;
    std::string privateKey;
    std::string caCertificates;
};

/// Absolute paths of an identity's files.
struct IdentityFiles {
    std::string certificate;
    std::string privateKey;
    std::string caCertificates;
    std::string token; ///< "token.<certType>.<server>"; absent until a token was stored
};

/// What a new identity brings with it, each in PEM.
struct IdentityPem {
    std::string certificate; ///< own certificate, with its intermediates when there are some
    std::string privateKey;
    std::string caCertificates;
};

/// Reads all identities in file order. The directory must be a real one (no link) that belongs to this
/// process's user and gives nobody else rights, and the file a regular one of the same kind. An entry whose
/// server name is refused is left out with a level-16 entry, and so is a second one of a server and type.
/// Returns 0, 7610 or 7611. What a process that was killed while it wrote here left is removed once it is a
/// minute old.
[[nodiscard]] int loadIdentityStore(std::vector<Identity>& identities, std::string* cause = nullptr);

/// The identity for a server (ASCII letters without regard to case) and type, null when there is none.
const Identity* findIdentity(const std::vector<Identity>& identities, const std::string& server,
                             cert_type certType);

/// Whether a change has come over an identity since it was loaded: its entry is gone or names other files,
/// and the files of before may be gone. False too when the store cannot be read.
[[nodiscard]] bool isReplaced(const Identity& identity);

IdentityFiles identityFiles(const Identity& identity);

/// "host" or "cluster" as the store and its file names write a type; an empty text for another type.
const char* certTypeName(cert_type certType);

/// Makes /usr/torqv/var (0755) and the store's directory (0700) where they are absent, and checks the latter.
/// For the enrolment tool alone: the command makes no directories. Returns 0, 7611 or 14.
[[nodiscard]] int makeIdentityDirectory(std::string* cause = nullptr);

/// Whether saveIdentity can store an identity of this server and type: makes the directories, takes the lock
/// for a moment, reads the store when there is one, and writes and removes a file of such an identity.
/// Returns 0, 20 for a server name or type that is refused, 7611 or 14.
[[nodiscard]] int tryIdentityStore(const std::string& server, cert_type certType,
                                   std::string* cause = nullptr);

/// Adds an identity, or replaces the one of the same server and type, whose files and token are then removed.
/// The file names of `identity` are not read: the texts are stored under fresh names, and the store is
/// replaced last, so that certificate and key that belong together take effect together and a killed process
/// leaves the old identity whole. What a killed enrolment left, a key among it, stays until a later change
/// removes it (half-written files once they are a minute old): loading removes nothing. `stored` (may be
/// null) receives the identity with its file names. Other entries stay as they are, with keys that this
/// release does not know. A damaged store is not overwritten. One change at a time: waits up to 10 s for
/// another one. Returns 0, 20 for an identity that could not be read back (bad server name, type or an empty
/// text), 7611 or 14.
[[nodiscard]] int saveIdentity(const Identity& identity, const IdentityPem& pem, Identity* stored = nullptr,
                               std::string* cause = nullptr);

/// Gives an identity of the store, as it was loaded with its file names, a new key with its certificate and
/// authorities: as saveIdentity, with the same promises, but its token stays, and so does every key of its
/// entry (an absent `trustVersion` leaves the recorded one). `stored` (may be null) receives it with its new
/// file names. Returns 0, 20 for an empty text, 14, 7610, 7611, or 7612 when the entry is gone or has other
/// files by now: a change that came in between is not undone.
[[nodiscard]] int renewIdentity(const Identity& identity, const IdentityPem& pem, Identity* stored = nullptr,
                                std::string* cause = nullptr);

/// Removes the identity of a server and type with its files and token; removing the last one deletes the
/// store. Returns 0, 7610, 7611, 7612 or 14.
[[nodiscard]] int removeIdentity(const std::string& server, cert_type certType, std::string* cause = nullptr);

} // namespace tq
