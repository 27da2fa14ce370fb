/// A TLS server for tests on 127.0.0.1, in a thread of its own, that answers with whatever bytes the test
/// wants and keeps what it was asked.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace fakes {

/// A request as it arrived.
struct SeenRequest {
    int connection = 0; ///< 1 for the server's first connection that brought a request, and so on
    std::string method;
    std::string path;
    std::string head; ///< request line and header lines as they came
    std::string body;
    std::string clientCertificate; ///< PEM; empty when the client showed none
};

/// What the server does with a request.
struct ServerAnswer {
    std::string bytes;      ///< sent as they are
    std::string endless;    ///< then sent again and again until the client goes away
    int endlessDelayMs = 0; ///< wait between two of them
    bool silent = false;    ///< then says nothing and keeps the connection
    bool close = false;     ///< then closes it without a farewell
    bool reset = false;     ///< then resets it
};

/// A complete answer of a status, with a JSON body and its length.
ServerAnswer answer(int status, const std::string& body);

struct ServerOptions {
    std::string chainPem; ///< server certificate and those above it
    std::string keyPem;
    std::string clientAuthoritiesPem; ///< when set, a client certificate is asked for
    bool clientCertificateRequired = false;
    int minVersion = 0; ///< TLS1_2_VERSION and so on; 0 for the library's own choice
    int maxVersion = 0;
    std::string insecureCiphers; ///< cipher list that replaces the default and its security level
    bool plain = false;          ///< speaks without TLS
    bool silent = false;         ///< accepts and never says a word
    std::string greeting;        ///< sent in place of a TLS handshake, then the connection is closed
};

class TlsTestServer {
public:
    using Responder = std::function<ServerAnswer(const SeenRequest&)>;

    /// Listens on a free port at once. Throws std::runtime_error when it cannot.
    TlsTestServer(const ServerOptions& options, Responder responder);
    TlsTestServer(const TlsTestServer&) = delete;
    TlsTestServer& operator=(const TlsTestServer&) = delete;
    ~TlsTestServer();

    [[nodiscard]] int port() const;

    /// Requests so far, in order.
    [[nodiscard]] std::vector<SeenRequest> requests() const;

    /// TCP connections so far.
    [[nodiscard]] int connections() const;

private:
    class Worker;
    std::unique_ptr<Worker> worker_;
};

/// A port of 127.0.0.1 where nobody listens.
int closedPort();

} // namespace fakes
