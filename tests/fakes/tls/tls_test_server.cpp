#include "tests/fakes/tls/tls_test_server.h"

#include "platform/crypto.h"

#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <csignal>
#include <mutex>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace fakes {

namespace {

struct SslRelease {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(SSL* connection) const { SSL_free(connection); }
};
using Context = std::unique_ptr<SSL_CTX, SslRelease>;
using Connection = std::unique_ptr<SSL, SslRelease>;

sockaddr_in loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/// A listening socket on a free port.
int listenOnLoopback()
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(0);
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(fd, 16) != 0)
        throw std::runtime_error("the test server cannot listen");
    return fd;
}

int portOf(int fd)
{
    sockaddr_in address{};
    socklen_t length = sizeof(address);
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

Context makeContext(const ServerOptions& options)
{
    Context context(SSL_CTX_new(TLS_server_method()));
    SSL_CTX_set_security_level(context.get(), 0);
    if (!options.insecureCiphers.empty())
        SSL_CTX_set_cipher_list(context.get(), options.insecureCiphers.c_str());
    SSL_CTX_set_min_proto_version(context.get(), options.minVersion);
    SSL_CTX_set_max_proto_version(context.get(), options.maxVersion);
    const std::vector<tq::Certificate> chain = tq::parseCertificateChain(options.chainPem);
    const tq::Key key = tq::parseKey(options.keyPem);
    if (chain.empty() || !key)
        throw std::runtime_error("the test server has no certificate");
    SSL_CTX_use_certificate(context.get(), chain.front().get());
    for (std::size_t i = 1; i < chain.size(); ++i)
        SSL_CTX_add1_chain_cert(context.get(), chain[i].get());
    SSL_CTX_set_mode(context.get(), SSL_MODE_NO_AUTO_CHAIN);
    SSL_CTX_use_PrivateKey(context.get(), key.get());
    if (!options.clientAuthoritiesPem.empty()) {
        for (const tq::Certificate& authority : tq::parseCertificateChain(options.clientAuthoritiesPem)) {
            X509_STORE_add_cert(SSL_CTX_get_cert_store(context.get()), authority.get());
            SSL_CTX_add_client_CA(context.get(), authority.get());
        }
        const int required = options.clientCertificateRequired ? SSL_VERIFY_FAIL_IF_NO_PEER_CERT : 0;
        SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER | required, nullptr);
    }
    return context;
}

std::size_t contentLength(const std::string& head)
{
    constexpr std::string_view NAME = "\r\nContent-Length: ";
    const std::size_t at = head.find(NAME);
    return at == std::string::npos ? 0 : std::stoul(head.substr(at + NAME.size()));
}

} // namespace

class TlsTestServer::Worker {
public:
    Worker(const ServerOptions& options, Responder responder)
        : options_(options), responder_(std::move(responder)),
          context_(options.plain || options.silent || !options.greeting.empty() ? nullptr
                                                                                : makeContext(options)),
          listener_(listenOnLoopback()), stop_(eventfd(0, EFD_CLOEXEC)), port_(portOf(listener_))
    {
        std::signal(SIGPIPE, SIG_IGN);
        thread_ = std::thread([this] { serve(); });
    }

    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    ~Worker()
    {
        eventfd_write(stop_, 1);
        thread_.join();
        close(listener_);
        close(stop_);
    }

    [[nodiscard]] int port() const { return port_; }
    [[nodiscard]] int connections() const { return connections_; }

    [[nodiscard]] std::vector<SeenRequest> requests() const
    {
        const std::lock_guard guard(mutex_);
        return requests_;
    }

private:
    void serve()
    {
        while (waitFor(listener_, -1)) {
            const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0)
                continue;
            ++connections_;
            serveConnection(fd);
            close(fd);
        }
    }

    /// Whether a descriptor became readable, rather than the server being stopped or the time being over.
    bool waitFor(int fd, int timeoutMs) const
    {
        std::array<pollfd, 2> both{{{fd, POLLIN, 0}, {stop_, POLLIN, 0}}};
        return poll(both.data(), both.size(), timeoutMs) > 0 && both[1].revents == 0;
    }

    void serveConnection(int fd)
    {
        if (options_.silent) {
            while (waitFor(fd, -1) && recv(fd, scratch_.data(), scratch_.size(), 0) > 0) {
            }
            return;
        }
        if (!options_.greeting.empty()) {
            if (waitFor(fd, -1)) {
                static_cast<void>(recv(fd, scratch_.data(), scratch_.size(), 0));
                static_cast<void>(::send(fd, options_.greeting.data(), options_.greeting.size(), 0));
            }
            return;
        }
        Connection tls;
        if (context_) {
            tls.reset(SSL_new(context_.get()));
            SSL_set_fd(tls.get(), fd);
            if (!waitFor(fd, -1) || SSL_accept(tls.get()) != 1) {
                ERR_clear_error();
                return;
            }
        }
        bool counted = false;
        while (std::optional<SeenRequest> request = readRequest(fd, tls.get())) {
            connectionsWithRequests_ += counted ? 0 : 1;
            counted = true;
            request->connection = connectionsWithRequests_;
            {
                const std::lock_guard guard(mutex_);
                requests_.push_back(*request);
            }
            if (!sendAnswer(fd, tls.get(), responder_(*request)))
                return;
        }
        ERR_clear_error();
    }

    /// More bytes of the connection; false at its end or when the server is stopped.
    bool readMore(int fd, SSL* tls, std::string& text)
    {
        if ((tls == nullptr || SSL_pending(tls) == 0) && !waitFor(fd, -1))
            return false;
        const int size = static_cast<int>(scratch_.size());
        const ssize_t count = tls != nullptr ? SSL_read(tls, scratch_.data(), size)
                                             : recv(fd, scratch_.data(), scratch_.size(), 0);
        if (count <= 0)
            return false;
        text.append(scratch_.data(), static_cast<std::size_t>(count));
        return true;
    }

    std::optional<SeenRequest> readRequest(int fd, SSL* tls)
    {
        std::string text;
        std::size_t headEnd = std::string::npos;
        while ((headEnd = text.find("\r\n\r\n")) == std::string::npos) {
            if (!readMore(fd, tls, text))
                return std::nullopt;
        }
        SeenRequest request;
        request.head = text.substr(0, headEnd + 2);
        const std::size_t total = headEnd + 4 + contentLength(request.head);
        while (text.size() < total) {
            if (!readMore(fd, tls, text))
                return std::nullopt;
        }
        request.body = text.substr(headEnd + 4);
        const std::size_t blank = request.head.find(' ');
        request.method = request.head.substr(0, blank);
        request.path = request.head.substr(blank + 1, request.head.find(' ', blank + 1) - blank - 1);
        const tq::Certificate shown(tls != nullptr ? SSL_get1_peer_certificate(tls) : nullptr);
        if (shown)
            request.clientCertificate = tq::certificateToPem(*shown);
        return request;
    }

    static bool sendAll(int fd, SSL* tls, const std::string& text)
    {
        std::size_t sent = 0;
        while (sent < text.size()) {
            const std::size_t left = text.size() - sent;
            const ssize_t count = tls != nullptr ? SSL_write(tls, text.data() + sent, static_cast<int>(left))
                                                 : ::send(fd, text.data() + sent, left, 0);
            if (count <= 0)
                return false;
            sent += static_cast<std::size_t>(count);
        }
        return true;
    }

    /// Whether the connection stays for another request.
    bool sendAnswer(int fd, SSL* tls, const ServerAnswer& answer)
    {
        if (!sendAll(fd, tls, answer.bytes))
            return false;
        while (!answer.endless.empty()) {
            if (!sendAll(fd, tls, answer.endless))
                return false;
            std::array<pollfd, 2> both{{{fd, POLLRDHUP, 0}, {stop_, POLLIN, 0}}};
            if (poll(both.data(), both.size(), answer.endlessDelayMs) > 0)
                return false;
        }
        if (answer.silent) {
            std::string ignored;
            while (readMore(fd, tls, ignored)) {
            }
            return false;
        }
        if (answer.reset) {
            const linger hard{1, 0};
            setsockopt(fd, SOL_SOCKET, SO_LINGER, &hard, sizeof(hard));
            return false;
        }
        return !answer.close;
    }

    ServerOptions options_;
    Responder responder_;
    Context context_;
    int listener_;
    int stop_;
    int port_;
    std::atomic<int> connections_{0};
    int connectionsWithRequests_ = 0;
    mutable std::mutex mutex_;
    std::vector<SeenRequest> requests_;
    std::array<char, 16384> scratch_{};
    std::thread thread_;
};

ServerAnswer answer(int status, const std::string& body)
{
    ServerAnswer made;
    made.bytes = "HTTP/1.1 " + std::to_string(status) + " Text\r\nContent-Type: application/json\r\n" +
                 "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    return made;
}

TlsTestServer::TlsTestServer(const ServerOptions& options, Responder responder)
    : worker_(std::make_unique<Worker>(options, std::move(responder)))
{
}

TlsTestServer::~TlsTestServer() = default;

int TlsTestServer::port() const
{
    return worker_->port();
}

std::vector<SeenRequest> TlsTestServer::requests() const
{
    return worker_->requests();
}

int TlsTestServer::connections() const
{
    return worker_->connections();
}

int closedPort()
{
    const int fd = listenOnLoopback();
    const int port = portOf(fd);
    close(fd);
    return port;
}

} // namespace fakes
