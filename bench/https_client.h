/// A blocking HTTPS client for load: client certificates, a full handshake for each connection, no name
/// checks.
#pragma once

#include "bench/agent.h"

#include <memory>
#include <openssl/ssl.h>
#include <string>
#include <string_view>
#include <utility>

namespace bench {

inline constexpr int PORT = 1556;

struct ContextRelease {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
struct ConnectionRelease {
    void operator()(SSL* connection) const { SSL_free(connection); }
};
using TlsContext = std::unique_ptr<SSL_CTX, ContextRelease>;
using TlsStream = std::unique_ptr<SSL, ConnectionRelease>;

/// For clients: trusts the authorities of a file in PEM and nobody else. Throws Failure.
TlsContext makeClientContext(const std::string& authorityFile);

/// For servers: shows the certificate of a file that holds key and certificate, and asks clients for one of
/// the authorities of the other file. Throws Failure.
TlsContext makeServerContext(const std::string& pemFile, const std::string& authorityFile);

/// Owns a socket.
class Socket {
public:
    explicit Socket(int handle) : handle_(handle) {}
    Socket(Socket&& other) noexcept : handle_(std::exchange(other.handle_, -1)) {}
    Socket& operator=(Socket&&) = delete;
    ~Socket();

    [[nodiscard]] int get() const { return handle_; }

private:
    int handle_;
};

/// Waits for connections on an IPv4 address and PORT. Throws Failure.
Socket listenOn(const std::string& address);

struct HttpReply {
    int status = 0;
    std::string body;
};

/// One connection of one host.
class HttpsConnection {
public:
    /// Connects to an IPv4 address on PORT and shakes hands; without an agent no certificate is shown. Throws
    /// Failure, also later when a stream breaks.
    HttpsConnection(SSL_CTX& context, const std::string& address, const Agent* agent);

    struct Request {
        const char* method;
        std::string path; ///< from the first "/" on
        std::string_view body;
        bool isLast = true; ///< the server is to close after it
    };

    /// Sends a request, with the agent's token when it has one, and reads the reply, which must tell its
    /// length.
    HttpReply ask(const Request& request);

    /// Requests from now on carry this token in place of the agent's.
    void setToken(std::string token) { token_ = std::move(token); }

    /// Sends a request without reading anything.
    void send(const Request& request);

    /// Some bytes of what the server sends; 0 when it has closed.
    std::size_t read(char* data, std::size_t size);

private:
    Socket socket_; ///< before the stream, so that it is closed after it
    TlsStream stream_;
    std::string token_;
};

} // namespace bench
