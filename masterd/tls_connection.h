/// One connection of a client: TLS with limits on time and size.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <httplib.h>
#include <memory>
#include <openssl/ssl.h>
#include <string>
#include <sys/types.h>

namespace masterd {

/// What a client may take. A connection holds a worker while it lasts, so none of these is generous.
struct ConnectionLimits {
    std::chrono::milliseconds handshake{15000};  ///< from the connection to the end of the handshake
    std::chrono::milliseconds firstByte{15000};  ///< until something has arrived, and between two requests
    std::chrono::milliseconds request{30000};    ///< from a request's first byte to its last
    std::chrono::milliseconds writeStall{30000}; ///< without a byte taken by the client
    std::size_t headBytes = std::size_t{64} * 1024;
    std::size_t bodyBytes = std::size_t{4} * 1024 * 1024; ///< as sent: chunk marks count too
    int requests = 1000;                                  ///< on one connection
};

/// A stream that the HTTP library reads requests from and writes replies to. Takes the socket over.
class TlsConnection : public httplib::Stream {
public:
    /// `stopEvent` becomes readable when the service stops: handshakes and waits then end at once, a request
    /// in hand goes on. It must outlive the connection, as `context` must.
    TlsConnection(SSL_CTX& context, int socket, int stopEvent, const ConnectionLimits& limits);
    TlsConnection(const TlsConnection&) = delete;
    TlsConnection& operator=(const TlsConnection&) = delete;
    /// Says goodbye and closes; see finishReading().
    ~TlsConnection() override;

    [[nodiscard]] bool handshake();
    /// Why the handshake failed; empty when the client only went away or said nothing.
    [[nodiscard]] const std::string& handshakeFault() const { return handshakeFault_; }
    /// Waits for a request's first byte, whose limits begin with it. False when the client has gone, the time
    /// is up or the service stops.
    [[nodiscard]] bool awaitRequest();
    /// For a connection that ends while the client may still be sending: lets it finish for a second, since
    /// the kernel would throw an unread reply away with unread bytes.
    void finishReading();

    [[nodiscard]] SSL* ssl() const { return ssl_.get(); }
    /// The client's certificate, verified; null without one.
    [[nodiscard]] const X509* peerCertificate() const;

    // httplib::Stream
    [[nodiscard]] bool is_readable() const override;
    [[nodiscard]] bool is_writable() const override;
    ssize_t read(char* buffer, std::size_t size) override;
    ssize_t write(const char* data, std::size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    [[nodiscard]] int socket() const override { return socket_; }

private:
    using Clock = std::chrono::steady_clock;

    struct SslRelease {
        void operator()(SSL* ssl) const { SSL_free(ssl); }
    };

    template <typename Operation>
    int perform(Operation operation, Clock::time_point deadline, bool stoppable);
    bool waitFor(short events, Clock::time_point deadline, bool stoppable) const;
    bool fill(Clock::time_point deadline, bool stoppable);
    bool count(const char* data, std::size_t size);

    int socket_;
    int stopEvent_;
    const ConnectionLimits& limits_;
    std::unique_ptr<SSL, SslRelease> ssl_;
    bool established_ = false;
    std::string handshakeFault_;

    std::array<char, 8192> buffer_{};
    std::size_t begin_ = 0;
    std::size_t end_ = 0;

    Clock::time_point requestDeadline_;
    std::size_t headBytes_ = 0;
    std::size_t bodyBytes_ = 0;
    int blankLineProgress_ = 0; ///< characters of "\r\n\r\n" seen in a row; 4: the head has ended
};

} // namespace masterd
