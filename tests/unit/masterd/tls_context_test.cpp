// What a client may bring along from an earlier connection.
#include "masterd/tls_context.h"

#include "masterd/identity.h"

#include <gtest/gtest.h>
#include <memory>

namespace {

struct Release {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(SSL* ssl) const { SSL_free(ssl); }
    void operator()(SSL_SESSION* session) const { SSL_SESSION_free(session); }
};
using Ssl = std::unique_ptr<SSL, Release>;
using Session = std::unique_ptr<SSL_SESSION, Release>;

/// A client's and a server's end that talk to each other in memory.
struct Pair {
    Pair(SSL_CTX& clientContext, SSL_CTX& serverContext)
        : client(SSL_new(&clientContext)), server(SSL_new(&serverContext))
    {
        BIO* clientEnd = nullptr;
        BIO* serverEnd = nullptr;
        BIO_new_bio_pair(&clientEnd, 0, &serverEnd, 0);
        SSL_set_bio(client.get(), clientEnd, clientEnd);
        SSL_set_bio(server.get(), serverEnd, serverEnd);
        SSL_set_connect_state(client.get());
        SSL_set_accept_state(server.get());
    }

    bool shakeHands()
    {
        for (int i = 0; i < 20; ++i) {
            const bool clientDone = SSL_do_handshake(client.get()) == 1;
            const bool serverDone = SSL_do_handshake(server.get()) == 1;
            if (clientDone && serverDone)
                return true;
        }
        return false;
    }

    Ssl client;
    Ssl server;
};

class TlsContext : public testing::TestWithParam<int> {
protected:
    TlsContext()
    {
        SSL_CTX_set_max_proto_version(client_.get(), GetParam());
        one_ = enrolled("11111111-1111-4111-8111-111111111111");
        two_ = enrolled("22222222-2222-4222-8222-222222222222");
    }

    masterd::TlsContext serverContext()
    {
        return masterd::makeServerContext(authority_.issueServerCertificate({"localhost"}),
                                          *authority_.own().certificate);
    }
    masterd::KeyAndCertificate enrolled(const std::string& hostId)
    {
        tq::Key key = tq::generateKey();
        const tq::CertificateRequest request =
            tq::parseCertificateRequest(tq::makeCertificateRequest(*key, "x"));
        return {std::move(key),
                tq::parseCertificate(authority_.issueHostCertificate(*request, {hostId, "h"}, 1))};
    }
    /// The client from now on is this host.
    void become(const masterd::KeyAndCertificate& host)
    {
        ASSERT_EQ(SSL_CTX_use_certificate(client_.get(), host.certificate.get()), 1);
        ASSERT_EQ(SSL_CTX_use_PrivateKey(client_.get(), host.key.get()), 1);
    }
    static bool isShownBy(SSL& server, const masterd::KeyAndCertificate& host)
    {
        const X509* shown = SSL_get0_peer_certificate(&server);
        return shown != nullptr && X509_cmp(shown, host.certificate.get()) == 0;
    }
    /// The session of a connection of the client's, as the client would keep it.
    Session sessionWith(SSL_CTX& server)
    {
        Pair first(*client_, server);
        EXPECT_TRUE(first.shakeHands());
        char byte = 0;
        EXPECT_EQ(SSL_write(first.server.get(), "x", 1), 1); // TLS 1.3 sends a session after the handshake
        EXPECT_EQ(SSL_read(first.client.get(), &byte, 1), 1);
        SSL_shutdown(first.client.get());
        return Session(SSL_get1_session(first.client.get()));
    }

    masterd::Authority authority_ = masterd::Authority::create();
    std::unique_ptr<SSL_CTX, Release> client_{SSL_CTX_new(TLS_client_method())};
    masterd::KeyAndCertificate one_;
    masterd::KeyAndCertificate two_;
};

TEST_P(TlsContext, SessionOfAnotherIdentityIsNotResumed)
{
    const masterd::TlsContext server = serverContext();
    become(one_);
    const Session session = sessionWith(*server);
    become(two_);
    Pair second(*client_, *server);
    SSL_set_session(second.client.get(), session.get());
    EXPECT_TRUE(second.shakeHands());
    EXPECT_EQ(SSL_session_reused(second.server.get()), 0);
    EXPECT_TRUE(isShownBy(*second.server, two_));
}

TEST_P(TlsContext, SessionOfAnotherServerIsNotResumedAndDoesNoHarm)
{
    const masterd::TlsContext elsewhere = serverContext();
    SSL_CTX_clear_options(elsewhere.get(), SSL_OP_NO_TICKET);
    SSL_CTX_set_num_tickets(elsewhere.get(), 1);
    become(one_);
    const Session session = sessionWith(*elsewhere);
    EXPECT_EQ(SSL_SESSION_is_resumable(session.get()), 1);
    const masterd::TlsContext server = serverContext();
    Pair second(*client_, *server);
    SSL_set_session(second.client.get(), session.get());
    EXPECT_TRUE(second.shakeHands());
    EXPECT_EQ(SSL_session_reused(second.server.get()), 0);
    EXPECT_TRUE(isShownBy(*second.server, one_));
}

/// OpenSSL ends a handshake in which it could resume a session of a client that it has to verify, unless the
/// session names where it is good: so the context has that name, should its sessions ever be kept.
TEST_P(TlsContext, SessionsNameTheServiceThatTheyAreGoodFor)
{
    const masterd::TlsContext server = serverContext();
    SSL_CTX_clear_options(server.get(), SSL_OP_NO_TICKET);
    SSL_CTX_set_num_tickets(server.get(), 1);
    become(one_);
    const Session session = sessionWith(*server);
    Pair second(*client_, *server);
    SSL_set_session(second.client.get(), session.get());
    EXPECT_TRUE(second.shakeHands());
    EXPECT_EQ(SSL_session_reused(second.server.get()), 1);
}

INSTANTIATE_TEST_SUITE_P(Versions, TlsContext, testing::Values(TLS1_2_VERSION, TLS1_3_VERSION));

TEST(TlsContextRenegotiation, IsRefusedAndTheConnectionGoesOn)
{
    const masterd::Authority authority = masterd::Authority::create();
    const masterd::TlsContext server = masterd::makeServerContext(
        authority.issueServerCertificate({"localhost"}), *authority.own().certificate);
    const std::unique_ptr<SSL_CTX, Release> client(SSL_CTX_new(TLS_client_method()));
    SSL_CTX_set_max_proto_version(client.get(), TLS1_2_VERSION);
    Pair pair(*client, *server);
    ASSERT_TRUE(pair.shakeHands());
    EXPECT_EQ(SSL_renegotiate(pair.client.get()), 1);
    EXPECT_FALSE(pair.shakeHands());
    EXPECT_EQ(SSL_num_renegotiations(pair.server.get()), 0);
}

} // namespace
