/// What the failure of a transfer means: libcurl's code and words as a status and a cause.
#pragma once

#include <string_view>

namespace tq {

/// Why a transfer failed.
struct TransferFault {
    int status = 0;         ///< 25 or 7620 to 7626; 0 for a transfer that did not fail
    const char* cause = ""; ///< plain English, no full stop; never null
};

/// What the transfer itself knows about its end, beside libcurl's code.
struct TransferEnd {
    int curlCode = 0;           ///< CURLcode
    bool overLimit = false;     ///< our own count cut the reply off
    bool repeatRefused = false; ///< libcurl wanted to send the request again on a new connection
    std::string_view words;     ///< libcurl's error buffer
};

/// Maps the end of a transfer:
///   25    name not resolved, connection refused (6, 7)
///   7620  timed out or stalled (28)
///   7621  no trusted connection (51, 60, 83, and 35 without a certificate alert)
///   7622  own certificate or key missing or refused (58, 98, and 35 or 56 with a certificate alert)
///   7623  reply over the limit (23 by our own count)
///   7624  reply cut off or not HTTP (1, 8, 16, 18, 52, 55, 56, 61, 92, and a repeat that we refused)
///   7626  everything else
TransferFault faultOfTransfer(const TransferEnd& end);

/// Whether OpenSSL's words ("error:0A000412:SSL routines::...") tell of an alert by which the other side
/// refused our certificate. In TLS 1.3 it arrives after the handshake, as the answer to the request.
bool isCertificateAlert(std::string_view words);

} // namespace tq
