#include "enroll/server_authority.h"

#include "platform/status.h"
#include "platform/url.h"

#include <array>
#include <string_view>

namespace enroll {

namespace {

/// The PEM text of the last certificate of a chain as libcurl lists it; empty when there is none.
std::string lastCertificate(const curl_certinfo& chain)
{
    constexpr std::string_view KEY = "Cert:";
    if (chain.num_of_certs < 1)
        return "";
    for (const curl_slist* fact = chain.certinfo[chain.num_of_certs - 1]; fact != nullptr;
         fact = fact->next) {
        const std::string_view text = fact->data;
        if (text.substr(0, KEY.size()) == KEY)
            return std::string(text.substr(KEY.size()));
    }
    return "";
}

bool setUpConnection(CURL* handle, const std::string& url, char* words)
{
    tq::CurlOptions options(handle);
    // Whom to trust is what this connection finds out: it carries not a byte of ours beyond the handshake.
    options.set(CURLOPT_URL, url.c_str())
        .set(CURLOPT_CONNECT_ONLY, 1L)
        .set(CURLOPT_SSL_VERIFYPEER, 0L)
        .set(CURLOPT_SSL_VERIFYHOST, 0L)
        .set(CURLOPT_CERTINFO, 1L)
        .set(CURLOPT_ERRORBUFFER, words);
    return options.taken();
}

} // namespace

tq::TransferResult takeServerAuthority(const std::string& server, int port, const tq::WebLimits& limits,
                                       tq::Certificate& authority)
{
    std::array<char, CURL_ERROR_SIZE> words{};
    const std::string url = tq::serverUrl(server, port);
    const tq::CurlHandle handle = tq::makeCurlHandle(limits);
    if (!handle || !setUpConnection(handle.get(), url, words.data()))
        return {EC_web_request_failed, "the HTTP library could not be set up"};
    const CURLcode code = curl_easy_perform(handle.get());
    if (const tq::TransferFault fault = tq::faultOfTransfer({.curlCode = code}); fault.status != EC_success)
        return tq::transferResult(fault, words.front() != '\0' ? words.data() : curl_easy_strerror(code));

    curl_certinfo* chain = nullptr;
    if (curl_easy_getinfo(handle.get(), CURLINFO_CERTINFO, &chain) != CURLE_OK || chain == nullptr)
        return {EC_web_not_trusted, "the server showed no certificate"};
    tq::Certificate last = tq::parseCertificate(lastCertificate(*chain));
    if (!last || X509_self_signed(last.get(), 1) != 1)
        return {EC_web_not_trusted, "the server does not show the certificate of its authority"};
    authority = std::move(last);
    return {};
}

} // namespace enroll
