#include "platform/http_status.h"

#include "platform/status.h"

#include <algorithm>
#include <curl/curl.h>
#include <iterator>
#include <openssl/ssl.h>
#include <openssl/tls1.h>
#include <openssl/x509_vfy.h>

namespace tq {

namespace {

struct CodeRow {
    int curlCode;
    TransferFault fault;
};

constexpr TransferFault CERTIFICATE_REFUSED{EC_web_certificate_refused,
                                            "the server refused this host's certificate"};
constexpr TransferFault OVER_LIMIT{EC_web_reply_too_large, "the reply is larger than allowed"};
constexpr TransferFault REPLY_LOST{EC_web_reply_broken, "the connection was lost before the reply"};
constexpr TransferFault HEAD_TOO_LONG{EC_web_reply_broken, "the reply begins with an endless header"};
constexpr TransferFault NOT_MADE{EC_web_request_failed, "the request could not be made"};

constexpr int OBSOLETE_PEER_CERTIFICATE = 51; // libcurl once told a wrong name from an untrusted chain

constexpr CodeRow CODES[] = {
    {CURLE_COULDNT_RESOLVE_HOST, {EC_cannot_connect, "the server's name cannot be resolved"}},
    {CURLE_COULDNT_CONNECT, {EC_cannot_connect, "no connection could be made"}},
    {CURLE_OPERATION_TIMEDOUT, {EC_web_timeout, "the server did not answer in time"}},
    {OBSOLETE_PEER_CERTIFICATE, {EC_web_not_trusted, "the server's certificate is not trusted"}},
    {CURLE_PEER_FAILED_VERIFICATION, {EC_web_not_trusted, "the server's certificate is not trusted"}},
    {CURLE_SSL_ISSUER_ERROR, {EC_web_not_trusted, "the server's certificate has a wrong issuer"}},
    {CURLE_SSL_CONNECT_ERROR, {EC_web_not_trusted, "no trusted connection could be made"}},
    {CURLE_SSL_CERTPROBLEM, {EC_web_certificate_refused, "this host's certificate or key cannot be used"}},
    {CURLE_SSL_CLIENTCERT, CERTIFICATE_REFUSED},
    {CURLE_UNSUPPORTED_PROTOCOL, {EC_web_reply_broken, "the reply is not HTTP"}},
    {CURLE_WEIRD_SERVER_REPLY, {EC_web_reply_broken, "the reply is not HTTP"}},
    {CURLE_HTTP2, {EC_web_reply_broken, "the reply is not HTTP"}},
    {CURLE_HTTP2_STREAM, {EC_web_reply_broken, "the reply is not HTTP"}},
    {CURLE_PARTIAL_FILE, {EC_web_reply_broken, "the reply was cut off"}},
    {CURLE_GOT_NOTHING, {EC_web_reply_broken, "the server closed the connection without a reply"}},
    {CURLE_SEND_ERROR, {EC_web_reply_broken, "the connection was lost while sending"}},
    {CURLE_RECV_ERROR, {EC_web_reply_broken, "the connection was lost or the reply is damaged"}},
    {CURLE_BAD_CONTENT_ENCODING, {EC_web_reply_broken, "the reply cannot be decompressed"}},
};

/// Alerts by which a server refuses a client's certificate.
constexpr int CERTIFICATE_ALERTS[] = {SSL_AD_NO_CERTIFICATE,
                                      SSL_AD_BAD_CERTIFICATE,
                                      SSL_AD_UNSUPPORTED_CERTIFICATE,
                                      SSL_AD_CERTIFICATE_REVOKED,
                                      SSL_AD_CERTIFICATE_EXPIRED,
                                      SSL_AD_CERTIFICATE_UNKNOWN,
                                      SSL_AD_UNKNOWN_CA,
                                      SSL_AD_ACCESS_DENIED,
                                      SSL_AD_CERTIFICATE_UNOBTAINABLE,
                                      SSL_AD_BAD_CERTIFICATE_STATUS_RESPONSE,
                                      SSL_AD_BAD_CERTIFICATE_HASH_VALUE,
                                      SSL_AD_CERTIFICATE_REQUIRED};

/// A master server's certificate lasts for years: mostly it is a clock that is wrong.
constexpr const char* CHECK_CLOCKS = "check the clocks of this host and of the server";

bool isMatterOfTime(long verification)
{
    return verification == X509_V_ERR_CERT_NOT_YET_VALID || verification == X509_V_ERR_CERT_HAS_EXPIRED;
}

} // namespace

TransferFault faultOfTransfer(const TransferEnd& end)
{
    if (end.curlCode == CURLE_OK)
        return {};
    if (end.certificateRefused)
        return CERTIFICATE_REFUSED;
    if (end.overLimit && end.curlCode == CURLE_WRITE_ERROR)
        return OVER_LIMIT;
    if (end.repeatRefused)
        return REPLY_LOST;
    if (end.headUnfinished && end.curlCode == CURLE_OUT_OF_MEMORY)
        return HEAD_TOO_LONG;
    const auto* row = std::find_if(std::begin(CODES), std::end(CODES),
                                   [&](const CodeRow& each) { return each.curlCode == end.curlCode; });
    if (row == std::end(CODES))
        return NOT_MADE;
    TransferFault fault = row->fault;
    if (fault.status == EC_web_not_trusted && isMatterOfTime(end.verification))
        fault.advice = CHECK_CLOCKS;
    return fault;
}

bool isCertificateAlert(int alert)
{
    return std::find(std::begin(CERTIFICATE_ALERTS), std::end(CERTIFICATE_ALERTS), alert) !=
           std::end(CERTIFICATE_ALERTS);
}

} // namespace tq
