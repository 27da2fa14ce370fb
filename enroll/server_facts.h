/// What this host's own files tell about each of its master servers.
#pragma once

#include "platform/identity_store.h"
#include "platform/token_store.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace enroll {

enum class TokenState { none, valid, expired };

/// One identity towards a server.
struct IdentityFacts {
    cert_type certType = CERT_TYPE_HOST;
    std::string hostId;
    std::string hostName;
    std::optional<std::int64_t> certificateEnd; ///< Unix seconds; absent when the certificate cannot be read
    TokenState token = TokenState::none;        ///< a damaged token counts as none, as it does for requests
};

/// One server, by its name as the store spells it: files of an update are named so. Times are Unix seconds,
/// absent for never.
struct ServerFacts {
    std::string server;
    std::vector<IdentityFacts> identities;
    bool behind = false;       ///< the last update of this server failed
    std::optional<int> status; ///< with which status; absent in step, and when its file cannot be read
    std::optional<std::int64_t> lastAttempt;
    std::optional<std::int64_t> lastRecordSent; ///< an update that finds nothing changed sends none
    std::vector<std::string> problems; ///< a sentence for each file that cannot be read or is damaged
};

/// The status that a failed update leaves in its file, "25\n"; absent for any other text.
std::optional<int> parseUpdateStatus(std::string_view text);

/// What a token, if there is one, is worth at a time (Unix seconds).
TokenState judgeToken(const std::optional<tq::AccessToken>& token, std::int64_t now);

/// Reads the facts of the servers of these identities, in the order in which the servers come first. Changes
/// no file and takes no lock. Sources, each below /usr/torqv/var: the certificate and token files of the
/// identities; the status file hostdbupdate.status.<server>; the modification times of
/// hostdbupdate.lock.<server> and hostdb.cache.<server>.
std::vector<ServerFacts> readServerFacts(const std::vector<tq::Identity>& identities, std::int64_t now);

/// The same for all identities of the store. Read again, up to three times, when the store was changed
/// meanwhile, since a change takes the old files away. Throws Failure (9) for a store that cannot be used;
/// no store is no servers.
std::vector<ServerFacts> readServerFacts(std::int64_t now);

} // namespace enroll
