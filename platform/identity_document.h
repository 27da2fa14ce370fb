/// The text of identity.json as values: what loading and changing the store share.
#pragma once

#include "platform/identity_store.h"
#include "platform/json.h"

#include <string>
#include <string_view>
#include <vector>

namespace tq {

/// Log context of all that concerns the store.
inline constexpr const char* IDENTITY_CONTEXT = "identityStore";

/// A parsed store. `json` is the whole document, so that a change keeps what it does not know.
struct IdentityDocument {
    JsonRef json;
    std::vector<Identity> identities; ///< the usable ones, in file order
    std::vector<std::string> leftOut; ///< one sentence for each entry that is left out
};

/// Reads a store's text. False with a reason when it is damaged or of another version; any bytes give a
/// result. Entries with a refused server name, and second ones of a server and type, are left out.
bool parseIdentityDocument(std::string_view text, IdentityDocument& document, std::string& fault);

/// An empty document of the version that this release writes.
IdentityDocument newIdentityDocument();

/// The `identities` array of a document, borrowed.
json_t* identityArray(const IdentityDocument& document);

/// One entry as JSON; null when a text is not UTF-8 or holds a NUL.
JsonRef identityToJson(const Identity& identity);

/// Whether an entry of the array is the one for a server and type, by the rule of findIdentity.
bool isIdentityEntry(const json_t* entry, const std::string& server, cert_type certType);

/// Why a name may not stand in the store as one of an identity's files; null for a good one.
const char* identityFileFault(std::string_view name);

/// What the file names of tokens begin with.
inline constexpr std::string_view TOKEN_PREFIX = "token.";

/// Name of the file with the token for a type, in the store's word, and a server.
std::string tokenFileName(const std::string& certType, const std::string& server);

/// Reads the store from disk, with all checks of loadIdentityStore. Returns 0, 7610 or 7611.
int readIdentityDocument(IdentityDocument& document, std::string* cause);

/// Checks the store's directory: a real one, this user's, and nobody else's. Returns 0, 7610 when it is
/// absent, 7611.
int checkIdentityDirectory(std::string* cause);

/// Writes the level-16 entry of a failure, gives its words to `cause`, and returns the status.
int identityFailure(int status, const std::string& words, std::string* cause);

} // namespace tq
