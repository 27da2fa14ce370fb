#include "masterd/tls_context.h"

#include <stdexcept>
#include <string_view>

namespace masterd {

namespace {

constexpr const char* TLS_1_2_CIPHERS = "ECDHE+AESGCM:ECDHE+CHACHA20";

void require(bool done, const char* what)
{
    if (!done)
        throw std::runtime_error(std::string("TLS cannot be set up (") + what +
                                 "): " + tq::takeOpenSslError());
}

void showCertificates(SSL_CTX& context, const KeyAndCertificate& server, X509& authority)
{
    require(SSL_CTX_use_certificate(&context, server.certificate.get()) == 1, "server certificate");
    require(SSL_CTX_use_PrivateKey(&context, server.key.get()) == 1, "server key");
    // A host that enrols takes the authority's certificate out of this chain and compares its fingerprint.
    require(SSL_CTX_add1_chain_cert(&context, &authority) == 1, "certificate chain");
}

void verifyClients(SSL_CTX& context, X509& authority)
{
    require(X509_STORE_add_cert(SSL_CTX_get_cert_store(&context), &authority) == 1, "authority");
    require(SSL_CTX_add_client_CA(&context, &authority) == 1, "authority's name");
    SSL_CTX_set_verify(&context, SSL_VERIFY_PEER, nullptr);
}

void neverResume(SSL_CTX& context)
{
    // Without a context of its own OpenSSL fails handshakes of clients that offer a session of elsewhere.
    constexpr std::string_view CONTEXT = "tqmasterd";
    require(SSL_CTX_set_session_id_context(&context, reinterpret_cast<const unsigned char*>(CONTEXT.data()),
                                           static_cast<unsigned int>(CONTEXT.size())) == 1,
            "session context");
    SSL_CTX_set_session_cache_mode(&context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_options(&context, SSL_OP_NO_TICKET);
    require(SSL_CTX_set_num_tickets(&context, 0) == 1, "tickets");
}

} // namespace

TlsContext makeServerContext(const KeyAndCertificate& server, const X509& authority)
{
    TlsContext context(SSL_CTX_new(TLS_server_method()));
    require(context != nullptr, "context");
    require(SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) == 1, "version");
    require(SSL_CTX_set_cipher_list(context.get(), TLS_1_2_CIPHERS) == 1, "ciphers");
    SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
    SSL_CTX_set_read_ahead(context.get(), 1); // not a call for a record's head and one for the rest
    SSL_CTX_set_mode(context.get(), SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);

    const tq::Certificate ownReference(X509_dup(&authority));
    require(ownReference != nullptr, "authority");
    showCertificates(*context, server, *ownReference);
    verifyClients(*context, *ownReference);
    neverResume(*context);
    return context;
}

} // namespace masterd
