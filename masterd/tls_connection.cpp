#include "masterd/tls_connection.h"

#include "platform/crypto.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>
#include <utility>

namespace masterd {

namespace {

constexpr std::chrono::milliseconds LAST_READING{1000};
/// Four records of TLS. A short reply touches no more of it than its own length.
constexpr long WRITE_BUFFER_BYTES = 64L * 1024;

using NameCall = int (*)(int, sockaddr*, socklen_t*);

void readAddress(int socket, NameCall nameOf, std::string& ip, int& port)
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> service{};
    if (nameOf(socket, generic, &length) != 0 ||
        getnameinfo(generic, length, host.data(), host.size(), service.data(), service.size(),
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return;
    ip = host.data();
    port = static_cast<int>(std::strtol(service.data(), nullptr, 10));
}

/// Lets `ssl` read from a socket, and write to it through a buffer. False without memory.
bool attachSocket(SSL& ssl, int socket)
{
    BIO* const direct = BIO_new_socket(socket, BIO_NOCLOSE);
    BIO* const buffer = BIO_new(BIO_f_buffer());
    if (direct == nullptr || buffer == nullptr ||
        BIO_set_write_buffer_size(buffer, WRITE_BUFFER_BYTES) != 1) {
        BIO_free(direct);
        BIO_free(buffer);
        return false;
    }
    BIO_up_ref(direct); // once for reading, once below the buffer
    SSL_set_bio(&ssl, direct, BIO_push(buffer, direct));
    return true;
}

std::string describeHandshakeFault(SSL& ssl)
{
    const unsigned long code = ERR_peek_error();
    if (code == 0 || ERR_GET_REASON(code) == SSL_R_UNEXPECTED_EOF_WHILE_READING)
        return "";
    const long verification = SSL_get_verify_result(&ssl);
    return verification == X509_V_OK
               ? tq::takeOpenSslError()
               : std::string("client certificate: ") + X509_verify_cert_error_string(verification);
}

} // namespace

TlsConnection::TlsConnection(SSL_CTX& context, int socket, int stopEvent, const ConnectionLimits& limits)
    : socket_(socket), stopEvent_(stopEvent), limits_(limits), ssl_(SSL_new(&context))
{
    // The end of a reply shall not wait for the receipt of what went before it.
    const int on = 1;
    setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    readAddress(socket_.get(), getpeername, peerAddress_, peerPort_); // once it has gone there is no answer
    if (ssl_ && !attachSocket(*ssl_, socket_.get()))
        ssl_.reset();
}

TlsConnection::~TlsConnection()
{
    sayGoodbye();
}

void TlsConnection::sayGoodbye()
{
    if (!std::exchange(established_, false))
        return;
    ERR_clear_error();
    SSL_shutdown(ssl_.get());
}

bool TlsConnection::waitFor(short events, Clock::time_point deadline, bool stoppable) const
{
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0)
            return false;
        std::array<pollfd, 2> waited{{{socket_.get(), events, 0}, {stoppable ? stopEvent_ : -1, POLLIN, 0}}};
        const int ready = poll(waited.data(), waited.size(), static_cast<int>(std::min<long>(left, INT_MAX)));
        if (ready < 0 && errno != EINTR)
            return false;
        if (ready > 0)
            return waited[1].revents == 0;
    }
}

/// Runs an operation of OpenSSL until it has done something. 0 when the client has closed, negative when the
/// connection failed, the time is up or (where that ends it) the service stops.
template <typename Operation>
int TlsConnection::perform(Operation operation, Clock::time_point deadline, bool stoppable)
{
    for (;;) {
        ERR_clear_error();
        const int result = operation(ssl_.get());
        if (result > 0)
            return result;
        switch (SSL_get_error(ssl_.get(), result)) {
        case SSL_ERROR_WANT_READ:
            if (!waitFor(POLLIN, deadline, stoppable))
                return -1;
            break;
        case SSL_ERROR_WANT_WRITE:
            if (!waitFor(POLLOUT, deadline, stoppable))
                return -1;
            break;
        case SSL_ERROR_ZERO_RETURN:
            return 0;
        default:
            established_ = false; // after a fatal failure no goodbye is allowed
            return -1;
        }
    }
}

bool TlsConnection::handshake()
{
    const Clock::time_point start = Clock::now();
    if (!ssl_ || !waitFor(POLLIN, start + limits_.firstByte, true))
        return false;
    established_ = perform(SSL_accept, start + limits_.handshake, true) == 1;
    if (!established_)
        handshakeFault_ = describeHandshakeFault(*ssl_);
    return established_;
}

bool TlsConnection::awaitRequest()
{
    framing_ = {};
    replyBytes_ = 0;
    const bool arrived = begin_ < end_ || fill(Clock::now() + limits_.firstByte, true);
    requestDeadline_ = Clock::now() + limits_.request;
    return arrived;
}

bool TlsConnection::fill(Clock::time_point deadline, bool stoppable)
{
    const int got =
        perform([this](SSL* ssl) { return SSL_read(ssl, buffer_.data(), static_cast<int>(buffer_.size())); },
                deadline, stoppable);
    begin_ = 0;
    end_ = static_cast<std::size_t>(std::max(got, 0));
    return got > 0;
}

/// Holds what is handed out against the limits. The HTTP library has none for a whole head, nor for a body in
/// chunks.
bool TlsConnection::check(std::string_view bytes)
{
    return framing_.take(bytes) && framing_.headBytes() <= limits_.headBytes &&
           framing_.bodyBytes() <= limits_.bodyBytes;
}

ssize_t TlsConnection::read(char* buffer, std::size_t size)
{
    if (std::exchange(replyBytes_, 0) > 0 && !flush()) // what was written so far was an interim reply
        return -1;
    if (begin_ == end_ && !fill(requestDeadline_, false))
        return -1;
    const std::size_t taken = std::min(size, end_ - begin_);
    std::memcpy(buffer, buffer_.data() + begin_, taken);
    begin_ += taken;
    return check({buffer, taken}) ? static_cast<ssize_t>(taken) : -1;
}

TlsConnection::Clock::time_point TlsConnection::writeDeadline() const
{
    const Clock::time_point end =
        replyStart_ + limits_.reply + std::chrono::seconds(replyBytes_ / limits_.replyBytesPerSecond);
    return std::min(Clock::now() + limits_.writeStall, end);
}

ssize_t TlsConnection::write(const char* data, std::size_t size)
{
    if (replyBytes_ == 0)
        replyStart_ = Clock::now();
    std::size_t written = 0;
    while (written < size) {
        const int block = static_cast<int>(std::min<std::size_t>(size - written, INT_MAX));
        const int done =
            perform([&](SSL* ssl) { return SSL_write(ssl, data + written, block); }, writeDeadline(), false);
        if (done <= 0)
            return -1;
        written += static_cast<std::size_t>(done);
        replyBytes_ += static_cast<std::size_t>(done);
    }
    return static_cast<ssize_t>(written);
}

bool TlsConnection::flush()
{
    BIO* const buffer = SSL_get_wbio(ssl_.get());
    while (BIO_flush(buffer) <= 0) {
        if (!BIO_should_retry(buffer) || !waitFor(POLLOUT, writeDeadline(), false)) {
            established_ = false;
            return false;
        }
    }
    return true;
}

bool TlsConnection::finishReply(bool isLast)
{
    if (!established_)
        return false;
    if (isLast)
        sayGoodbye();
    return flush();
}

void TlsConnection::finishReading()
{
    shutdown(socket_.get(), SHUT_WR);
    const Clock::time_point deadline = Clock::now() + LAST_READING;
    while (waitFor(POLLIN, deadline, true)) {
        const ssize_t got = recv(socket_.get(), buffer_.data(), buffer_.size(), 0);
        if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR))
            return;
    }
}

const X509* TlsConnection::peerCertificate() const
{
    return SSL_get_verify_result(ssl_.get()) == X509_V_OK ? SSL_get0_peer_certificate(ssl_.get()) : nullptr;
}

bool TlsConnection::is_readable() const
{
    return begin_ < end_ || SSL_has_pending(ssl_.get()) == 1 || waitFor(POLLIN, requestDeadline_, false);
}

bool TlsConnection::is_writable() const
{
    return waitFor(POLLOUT, Clock::now() + limits_.writeStall, false);
}

void TlsConnection::get_remote_ip_and_port(std::string& ip, int& port) const
{
    ip = peerAddress_;
    port = peerPort_;
}

void TlsConnection::get_local_ip_and_port(std::string& ip, int& port) const
{
    readAddress(socket_.get(), getsockname, ip, port);
}

} // namespace masterd
