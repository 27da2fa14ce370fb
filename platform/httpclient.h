/// The product's HTTP client: requests to one server under one identity, over mutual TLS and with a token.
#pragma once

#include "platform/types.h"

#include <cstdint>
#include <memory>
#include <string>

/// Hook for callers that bring tokens of their own; this system has none and passes null.
class TokenManager_Base {
public:
    virtual ~TokenManager_Base() = default;
};

/// Kind of session. This system uses one: certificate and token of the given identity.
enum TQCurlSessionType : int {
    TQ_CURL_SESSION_IDENTITY = 1,
};

/// One client is one server, one identity and one connection. Constructing it loads and connects nothing.
///
/// Every request goes to https://<server>:<port>/<path>, checks the server's name and chain against the
/// identity's own authorities only, shows the identity's certificate, and carries its token, which is asked
/// for when there is none or it has expired and renewed once, with one repeat of the request, after a 401.
/// Each call waits for its reply within the limits of kx.conf (WEB_CONNECT_SECONDS, WEB_TRANSFER_SECONDS,
/// 60 s without a byte, WEB_MAX_REPLY_MB).
///
/// Results of all requests: 0 when the server answered, whatever its HTTP status (then `httpStatus` and
/// `responseBody` hold the answer); 7610 to 7612 when the identity cannot be had; 25 name not resolved or
/// connection refused; 7620 timed out or stalled; 7621 no trusted connection; 7622 own certificate missing or
/// refused; 7623 reply over the limit; 7624 reply cut off or not HTTP; 7625 no token; 7626 anything else.
/// Each failure writes one level-16 entry with server and cause, and each answer with another HTTP status
/// than the method's own (200, 201 to a POST, 204 to a DELETE) one of level 8; tokens are never logged.
class TQClientCURL {
public:
    /// The arguments after the token manager belong to the product's other uses of the client (proxies, own
    /// certificate files, retries and the like). They are accepted as they are and change nothing here.
    TQClientCURL(const std::string& server, int port, cert_type certType, TQCurlSessionType sessionType,
                 TokenManager_Base* tokenManager, const std::string& text6, bool flag7, bool flag8,
                 bool flag9, const std::string& text10, const std::string& text11, const std::string& text12,
                 const std::string& text13, const std::string& text14, const std::string& text15, bool flag16,
                 bool& flag17, const std::string& text18, int number19);
    TQClientCURL(const TQClientCURL&) = delete;
    TQClientCURL& operator=(const TQClientCURL&) = delete;
    ~TQClientCURL();

    /// Paths are relative to the service's root. Bytes that may not stand in a URL, "#" and "+" are
    /// percent-encoded; "%" and ".." stay as they are. Bodies are JSON texts.
    int Get(const std::string& path);
    int Put(const std::string& path, const std::string& body);
    int Post(const std::string& path, const std::string& body);
    int Delete(const std::string& path);

    /// Asks for a new token, always, and stores it; a failure (7625, or why the server could not be reached)
    /// keeps the old one.
    int refreshToken();

    /// Of the last answer; 0 and empty after a request that failed.
    std::int64_t httpStatus = 0;
    std::string responseBody; ///< as received, decoded when it came compressed

private:
    struct Connection;

    int exchange(const char* method, const std::string& path, const std::string* body, const char* context);

    std::unique_ptr<Connection> connection_;
};
