/// The authority that a master server shows, before anything is known about that server.
#pragma once

#include "platform/crypto.h"
#include "platform/curl_handle.h"
#include "platform/http_session.h"

#include <string>

namespace enroll {

/// Connects to a server, sends nothing over the connection, and takes the last certificate of the chain that
/// the server shows. Nothing about it is checked but that it is its own issuer, as an authority's is: whoever
/// uses it has to compare its fingerprint first. `authority` is set on success (status 0) only; a chain
/// that ends otherwise is 7621. Other statuses as for a request.
tq::TransferResult takeServerAuthority(const std::string& server, int port, const tq::WebLimits& limits,
                                       tq::Certificate& authority);

} // namespace enroll
