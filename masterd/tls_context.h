/// How the web service speaks TLS.
#pragma once

#include "masterd/authority.h"

#include <memory>
#include <openssl/ssl.h>

namespace masterd {

struct TlsContextRelease {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using TlsContext = std::unique_ptr<SSL_CTX, TlsContextRelease>;

/// A server's context: TLS 1.2 at least; shows the server's certificate and, behind it, its authority's;
/// asks for a client certificate of that authority for client authentication. A client without one gets in
/// (an enrolment has none yet), one with a certificate that does not verify is refused in the handshake.
/// Nothing is resumed: each connection verifies anew. Throws std::runtime_error when OpenSSL refuses a part.
TlsContext makeServerContext(const KeyAndCertificate& server, const X509& authority);

} // namespace masterd
