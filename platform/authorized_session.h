/// Requests of one identity, each with its access token.
#pragma once

#include "platform/http_transport.h"
#include "platform/identity_store.h"
#include "platform/token_store.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tq {

/// The trust of an identity: its own authorities, and its certificate to show.
TlsTrust identityTrust(const IdentityFiles& files);

/// How an authorized request ended.
struct AuthorizedResult {
    TransferResult transfer;
    std::string what; ///< of a failure, the beginning of its sentence: "PUT torquenix/config/..."
    std::int64_t tokenRefusal = 0; ///< HTTP status by which the server refused a token; 0 when it did not
};

/// One server and one identity over one transport, whose token is read from its file when this is made,
/// asked for when there is none or it has expired, and stored when it is new.
class AuthorizedSession {
public:
    AuthorizedSession(std::unique_ptr<HttpTransport> transport, std::string tokenFile);

    /// Sends a request with the token; an answer 401 is followed by one renewal of the token and one repeat.
    /// Status 0 when the server answered, 7625 when no token is to be had, others as HttpTransport::send.
    /// `reply` is set on success only.
    AuthorizedResult send(HttpRequest request, HttpReply& reply);

    /// Asks for a token and stores it, always; on failure the one in use stays.
    AuthorizedResult renewToken();

private:
    AuthorizedResult askForToken(const char* what);

    std::unique_ptr<HttpTransport> transport_;
    std::string tokenFile_;
    std::optional<AccessToken> token_;
};

} // namespace tq
