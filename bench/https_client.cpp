#include "bench/https_client.h"

#include "bench/failure.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {

namespace {

constexpr int BACKLOG = 1024;
/// A server that says nothing for so long has failed the request.
constexpr time_t SILENCE_SECONDS = 60;

sockaddr_in addressOf(const std::string& address)
{
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(PORT);
    if (inet_pton(AF_INET, address.c_str(), &place.sin_addr) != 1)
        throw Failure("not an IPv4 address: " + address);
    return place;
}

Socket openSocket()
{
    return Socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

Socket connectTo(const std::string& address)
{
    const sockaddr_in place = addressOf(address);
    Socket socket = openSocket();
    const int on = 1;
    setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const timeval silence{SILENCE_SECONDS, 0};
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &silence, sizeof silence);
    // The end of a connection is a reset: thousands of them would fill the table of those that fade.
    const linger reset{1, 0};
    setsockopt(socket.get(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    if (connect(socket.get(), reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0)
        throw systemFailure("cannot connect to " + address);
    return socket;
}

void trust(SSL_CTX& context, const std::string& authorityFile)
{
    if (SSL_CTX_load_verify_locations(&context, authorityFile.c_str(), nullptr) != 1)
        throw tlsFailure(authorityFile);
    SSL_CTX_set_verify(&context, SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_session_cache_mode(&context, SSL_SESS_CACHE_OFF);
}

/// Bytes of the body that a head promises.
std::size_t lengthIn(std::string_view head)
{
    constexpr std::string_view NAME = "content-length:";
    for (std::size_t at = 0; at + NAME.size() < head.size(); ++at) {
        if (strncasecmp(head.data() + at, NAME.data(), NAME.size()) == 0)
            return std::strtoull(head.data() + at + NAME.size(), nullptr, 10);
    }
    return 0;
}

} // namespace

TlsContext makeClientContext(const std::string& authorityFile)
{
    TlsContext context(SSL_CTX_new(TLS_client_method()));
    if (!context)
        throw tlsFailure("no TLS");
    trust(*context, authorityFile);
    return context;
}

TlsContext makeServerContext(const std::string& pemFile, const std::string& authorityFile)
{
    TlsContext context(SSL_CTX_new(TLS_server_method()));
    if (!context || SSL_CTX_use_certificate_chain_file(context.get(), pemFile.c_str()) != 1 ||
        SSL_CTX_use_PrivateKey_file(context.get(), pemFile.c_str(), SSL_FILETYPE_PEM) != 1)
        throw tlsFailure(pemFile);
    trust(*context, authorityFile);
    SSL_CTX_set_num_tickets(context.get(), 0);
    return context;
}

Socket::~Socket()
{
    if (handle_ >= 0)
        close(handle_);
}

Socket listenOn(const std::string& address)
{
    const sockaddr_in place = addressOf(address);
    Socket socket = openSocket();
    const int on = 1;
    setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0 ||
        listen(socket.get(), BACKLOG) != 0)
        throw systemFailure("cannot listen on " + address);
    return socket;
}

HttpsConnection::HttpsConnection(SSL_CTX& context, const std::string& address, const Agent* agent)
    : socket_(connectTo(address)), stream_(SSL_new(&context)), token_(agent != nullptr ? agent->token : "")
{
    const bool isReady =
        SSL_set_fd(stream_.get(), socket_.get()) == 1 &&
        (agent == nullptr || (SSL_use_certificate(stream_.get(), agent->certificate.get()) == 1 &&
                              SSL_use_PrivateKey(stream_.get(), agent->key.get()) == 1));
    if (!isReady || SSL_connect(stream_.get()) != 1)
        throw tlsFailure("no handshake with " + address);
}

void HttpsConnection::send(const Request& request)
{
    std::string text =
        std::string(request.method) + ' ' + request.path + " HTTP/1.1\r\nHost: master1.example\r\n";
    text += "Accept: application/json\r\n";
    if (!token_.empty())
        text += "Authorization: Bearer " + token_ + "\r\n";
    if (request.isLast)
        text += "Connection: close\r\n";
    if (!request.body.empty())
        text += "Content-Type: application/json\r\nContent-Length: " + std::to_string(request.body.size()) +
                "\r\n";
    text += "\r\n";
    text += request.body;
    if (SSL_write(stream_.get(), text.data(), static_cast<int>(text.size())) != static_cast<int>(text.size()))
        throw tlsFailure("a request could not be sent");
}

std::size_t HttpsConnection::read(char* data, std::size_t size)
{
    std::size_t got = 0;
    if (SSL_read_ex(stream_.get(), data, size, &got) == 1)
        return got;
    if (SSL_get_error(stream_.get(), 0) == SSL_ERROR_ZERO_RETURN)
        return 0;
    throw tlsFailure("a reply was cut off");
}

HttpReply HttpsConnection::ask(const Request& request)
{
    send(request);
    std::string text;
    std::size_t head = std::string::npos;
    std::size_t wanted = 1;
    while (head == std::string::npos || text.size() < wanted) {
        std::array<char, 16384> part{};
        const std::size_t got = read(part.data(), part.size());
        if (got == 0)
            throw Failure("a reply ended early");
        text.append(part.data(), got);
        if (head == std::string::npos && (head = text.find("\r\n\r\n")) != std::string::npos)
            wanted = head + 4 + lengthIn(std::string_view(text).substr(0, head));
    }
    const std::size_t blank = std::min(text.size(), text.find(' '));
    return {static_cast<int>(std::strtol(text.c_str() + blank, nullptr, 10)), text.substr(head + 4)};
}

} // namespace bench
