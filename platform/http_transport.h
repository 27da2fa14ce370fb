/// What carries a request to a server, and how a program comes by it.
///
/// libcurl, OpenSSL and what they load take longer to start than everything else of a run that sends nothing,
/// and most runs send nothing. So the command itself does not link them: they stand behind this interface in
/// a module that is loaded when the first connection is wanted. Programs that always connect link the
/// module's code (HttpSession) as it is.
#pragma once

#include "platform/web_limits.h"

#include <cstdint>
#include <memory>
#include <string>

namespace tq {

/// Whom a session trusts, and what it shows of itself. Files are read by the rules of openOwnFile, at the
/// first request and again after one that failed.
struct TlsTrust {
    std::string authoritiesFile; ///< PEM file of the authorities; empty when `authoritiesPem` holds them
    std::string authoritiesPem;
    std::string certificateFile; ///< own certificate (PEM); empty to show none
    std::string privateKeyFile;
};

struct HttpRequest {
    const char* method = "GET";        ///< GET, PUT, POST, DELETE
    std::string path;                  ///< relative to the service's root, see encodePath()
    const std::string* body = nullptr; ///< JSON text; null for none
    std::string token;                 ///< access token; empty to send none
};

struct HttpReply {
    std::int64_t status = 0;
    std::string body;
};

/// Outcome of a request or connection: 0 when the server answered, else 25 or 7620 to 7626 with the cause in
/// plain words, libcurl's own in brackets behind them.
struct TransferResult {
    int status = 0;
    std::string cause;
    bool sent = false; ///< whether the request may have reached the server
};

/// Requests to one server, one after the other over one connection while the server keeps that open.
class HttpTransport {
public:
    HttpTransport() = default;
    HttpTransport(const HttpTransport&) = delete;
    HttpTransport& operator=(const HttpTransport&) = delete;
    virtual ~HttpTransport() = default;

    /// Sends one request once and waits for the reply within the limits. `reply` is set on success only.
    /// Nothing is connected when a file of the trust cannot be read: 7622 for certificate and key, 7626 for
    /// the authorities, with path and cause.
    virtual TransferResult send(const HttpRequest& request, HttpReply& reply) = 0;
};

/// A transport to `server`, a name or a numeric address, that connects nothing yet. The first call of a
/// process loads the module TQ_HTTP_MODULE and keeps it. 7626, with the loader's words, when it cannot be
/// loaded or belongs to another release than the program; the next call tries again.
TransferResult openHttpTransport(const std::string& server, int port, const TlsTrust& trust,
                                 const WebLimits& limits, std::unique_ptr<HttpTransport>& transport);

} // namespace tq
