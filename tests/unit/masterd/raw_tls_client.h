/// A client that speaks TLS properly and otherwise sends whatever a test likes.
#pragma once

#include "platform/crypto.h"
#include "platform/file_io.h"

#include <memory>
#include <openssl/ssl.h>
#include <string>
#include <string_view>

namespace tests {

/// A plain connection to a port of 127.0.0.1; the test fails when there is none.
tq::FileDescriptor connectTo(int port);

class RawTlsClient {
public:
    /// Connects and shakes hands; without a certificate when it is null. Verifies nothing. `maxVersion` as
    /// TLS1_2_VERSION, 0 for the highest.
    explicit RawTlsClient(int port, X509* certificate = nullptr, EVP_PKEY* key = nullptr, int maxVersion = 0);

    /// Whether the handshake was done; in TLS 1.3 a refused client certificate shows only later.
    [[nodiscard]] bool connected() const { return connected_; }
    bool send(std::string_view text);
    /// All that comes until the server closes, or 30 seconds have passed.
    std::string receiveAll();
    /// Goes away at once: what the service writes from now on is refused.
    void reset();
    /// The certificates that the server showed, its own first.
    [[nodiscard]] std::vector<tq::Certificate> shownChain() const;
    [[nodiscard]] SSL* ssl() const { return ssl_.get(); }

private:
    struct Release {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
        void operator()(SSL* ssl) const { SSL_free(ssl); }
    };

    tq::FileDescriptor socket_;
    std::unique_ptr<SSL_CTX, Release> context_;
    std::unique_ptr<SSL, Release> ssl_;
    bool connected_ = false;
};

} // namespace tests
