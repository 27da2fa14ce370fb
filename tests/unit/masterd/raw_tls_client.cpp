#include "tests/unit/masterd/raw_tls_client.h"

#include <arpa/inet.h>
#include <array>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace tests {

tq::FileDescriptor connectTo(int port)
{
    tq::FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const timeval limit{30, 0};
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    return socket;
}

RawTlsClient::RawTlsClient(int port, X509* certificate, EVP_PKEY* key, int maxVersion)
    : socket_(connectTo(port)), context_(SSL_CTX_new(TLS_client_method()))
{
    SSL_CTX_set_security_level(context_.get(), 0);
    SSL_CTX_set_min_proto_version(context_.get(), TLS1_VERSION);
    SSL_CTX_set_max_proto_version(context_.get(), maxVersion);
    if (certificate != nullptr) {
        SSL_CTX_use_certificate(context_.get(), certificate);
        SSL_CTX_use_PrivateKey(context_.get(), key);
    }
    ssl_.reset(SSL_new(context_.get()));
    SSL_set_fd(ssl_.get(), socket_.get());
    connected_ = SSL_connect(ssl_.get()) == 1;
}

bool RawTlsClient::send(std::string_view text)
{
    return SSL_write(ssl_.get(), text.data(), static_cast<int>(text.size())) == static_cast<int>(text.size());
}

std::string RawTlsClient::receiveAll()
{
    std::string received;
    std::array<char, 4096> block{};
    for (;;) {
        const int got = SSL_read(ssl_.get(), block.data(), static_cast<int>(block.size()));
        if (got <= 0)
            return received;
        received.append(block.data(), static_cast<std::size_t>(got));
    }
}

void RawTlsClient::reset()
{
    const linger atOnce{1, 0};
    setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    socket_ = {};
}

std::vector<tq::Certificate> RawTlsClient::shownChain() const
{
    std::vector<tq::Certificate> chain;
    const STACK_OF(X509)* shown = SSL_get_peer_cert_chain(ssl_.get());
    chain.reserve(2);
    for (int i = 0; i < sk_X509_num(shown); ++i)
        chain.emplace_back(X509_dup(sk_X509_value(shown, i)));
    return chain;
}

} // namespace tests
