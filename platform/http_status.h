/// What the failure of a transfer means: libcurl's code as a status and a cause.
#pragma once

namespace tq {

/// Why a transfer failed.
struct TransferFault {
    int status = 0;          ///< 25 or 7620 to 7626; 0 for a transfer that did not fail
    const char* cause = "";  ///< plain English, no full stop; never null
    const char* advice = ""; ///< what to do about it, of the same kind; empty where the cause says enough
};

/// What is known about the end of a transfer.
struct TransferEnd {
    int curlCode = 0;                ///< CURLcode
    long verification = 0;           ///< OpenSSL's verdict on the server's chain, 0 when it found no fault
    bool overLimit = false;          ///< our own count cut the reply off
    bool repeatRefused = false;      ///< libcurl wanted to send the request again on a new connection
    bool certificateRefused = false; ///< an alert of isCertificateAlert() arrived
    bool headUnfinished = false;     ///< the request was sent, and no reply's head has come to its end
};

/// Maps the end of a transfer:
///   25    name not resolved, connection refused (6, 7)
///   7620  timed out or stalled (28)
///   7621  no trusted connection (35, 51, 60, 83)
///   7622  own certificate or key missing (58) or refused (98; any failure after a certificate alert: libcurl
///         shows it as 35, 55, 56 or 60, since in TLS 1.3 the refusal comes after the request)
///   7623  reply over the limit (23 by our own count)
///   7624  reply cut off or not HTTP (1, 8, 16, 18, 52, 55, 56, 61, 92; a repeat that we refused; 27 within
///         the head: libcurl's complaint about an endless header)
///   7626  everything else
TransferFault faultOfTransfer(const TransferEnd& end);

/// Whether a TLS alert that arrived says that the other side refuses our certificate.
bool isCertificateAlert(int alert);

} // namespace tq
