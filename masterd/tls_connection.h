/// One connection of a client: TLS with limits on time and size.
#pragma once

#include "masterd/request_framing.h"
#include "platform/file_io.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <httplib.h>
#include <memory>
#include <openssl/ssl.h>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace masterd {

/// What a client may take. A connection holds a worker while it lasts, so none of these is generous.
struct ConnectionLimits {
    std::chrono::milliseconds handshake{15000};  ///< from the connection to the end of the handshake
    std::chrono::milliseconds firstByte{15000};  ///< until something has arrived, and between two requests
    std::chrono::milliseconds request{30000};    ///< from a request's first byte to its last
    std::chrono::milliseconds writeStall{30000}; ///< without a byte of a reply taken by the client
    /// From a reply's first byte to its last: this long, and a second more for each `replyBytesPerSecond`
    /// that the client has taken. So a large reply has its time, but not for ever.
    std::chrono::milliseconds reply{30000};
    std::size_t replyBytesPerSecond = std::size_t{64} * 1024;
    std::size_t headBytes = std::size_t{64} * 1024;
    std::size_t bodyBytes = std::size_t{4} * 1024 * 1024; ///< as sent: chunk marks count too
    int requests = 1000;                                  ///< on one connection
};

/// A stream that the HTTP library reads requests from and writes replies to. What is written gathers until
/// there is much of it, or the reply ends: a short reply leaves in one packet, a long one in few calls.
class TlsConnection : public httplib::Stream {
public:
    /// Takes `socket` over, which must be non-blocking. `stopEvent` becomes readable when the service stops:
    /// handshakes and waits then end at once, a request in hand goes on. It must outlive the connection, as
    /// `context` must.
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
    /// Sends what there still is of a reply, and the goodbye with it when none follows on the connection.
    /// False when the client does not take it.
    [[nodiscard]] bool finishReply(bool isLast);
    /// After the last reply, while the client may still be sending: lets it finish for a second, since the
    /// kernel would throw an unread reply away with unread bytes.
    void finishReading();

    [[nodiscard]] SSL* ssl() const { return ssl_.get(); }
    /// The client's certificate, verified; null without one.
    [[nodiscard]] const X509* peerCertificate() const;
    /// The client's address; empty when it had gone before its connection was taken up.
    [[nodiscard]] const std::string& peerAddress() const { return peerAddress_; }

    // httplib::Stream
    [[nodiscard]] bool is_readable() const override;
    [[nodiscard]] bool is_writable() const override;
    ssize_t read(char* buffer, std::size_t size) override;
    ssize_t write(const char* data, std::size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    [[nodiscard]] int socket() const override { return socket_.get(); }

private:
    using Clock = std::chrono::steady_clock;

    struct SslRelease {
        void operator()(SSL* ssl) const { SSL_free(ssl); }
    };

    template <typename Operation>
    int perform(Operation operation, Clock::time_point deadline, bool stoppable);
    bool waitFor(short events, Clock::time_point deadline, bool stoppable) const;
    bool fill(Clock::time_point deadline, bool stoppable);
    bool flush();
    void sayGoodbye();
    bool check(std::string_view bytes);
    [[nodiscard]] Clock::time_point writeDeadline() const;

    tq::FileDescriptor socket_; ///< first of all: it is closed whatever fails after it
    int stopEvent_;
    const ConnectionLimits& limits_;
    std::unique_ptr<SSL, SslRelease> ssl_;
    std::string peerAddress_;
    int peerPort_ = 0;
    bool established_ = false;
    std::string handshakeFault_;

    std::array<char, 8192> buffer_{};
    std::size_t begin_ = 0;
    std::size_t end_ = 0;

    Clock::time_point requestDeadline_;
    RequestFraming framing_; ///< of the request in hand
    Clock::time_point replyStart_;
    std::size_t replyBytes_ = 0; ///< of the reply in hand; 0 before it has begun
};

} // namespace masterd
