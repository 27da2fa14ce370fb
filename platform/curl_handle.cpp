#include "platform/curl_handle.h"

namespace tq {

namespace {

bool setUpLibcurl()
{
    // Never torn down: the process ends soon, and a resolver thread that a time limit left behind may
    // still be using the library.
    static const bool done = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    return done;
}

void setProtocol(CurlOptions& options)
{
    options.set(CURLOPT_PROTOCOLS_STR, "https")
        .set(CURLOPT_REDIR_PROTOCOLS_STR, "https")
        .set(CURLOPT_FOLLOWLOCATION, 0L)
        .set(CURLOPT_PROXY, "")
        .set(CURLOPT_PRE_PROXY, "")
        .set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1))
        .set(CURLOPT_HTTP09_ALLOWED, 0L)
        .set(CURLOPT_DISALLOW_USERNAME_IN_URL, 1L)
        .set(CURLOPT_PATH_AS_IS, 1L)
        .set(CURLOPT_NOSIGNAL, 1L);
}

void setTrust(CurlOptions& options)
{
    // libcurl is built with the system's authorities as default file and folder; either would stay trusted
    // beside an identity's own unless it is taken out by name.
    options.set(CURLOPT_CAINFO, static_cast<const char*>(nullptr))
        .set(CURLOPT_CAPATH, static_cast<const char*>(nullptr))
        .set(CURLOPT_SSL_VERIFYPEER, 1L)
        .set(CURLOPT_SSL_VERIFYHOST, 2L)
        .set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
}

void setLimits(CurlOptions& options, const WebLimits& limits)
{
    // QUICK_EXIT: with dead name servers the resolver thread outlives the limit, and nobody waits for it.
    options.set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limits.connectMs))
        .set(CURLOPT_TIMEOUT_MS, static_cast<long>(limits.totalMs))
        .set(CURLOPT_LOW_SPEED_LIMIT, 1L)
        .set(CURLOPT_LOW_SPEED_TIME, static_cast<long>(limits.stallSeconds))
        .set(CURLOPT_QUICK_EXIT, 1L);
}

} // namespace

CurlHandle makeCurlHandle(const WebLimits& limits)
{
    if (!setUpLibcurl())
        return nullptr;
    CurlHandle handle(curl_easy_init());
    if (!handle)
        return nullptr;
    CurlOptions options(handle.get());
    setProtocol(options);
    setTrust(options);
    setLimits(options, limits);
    return options.taken() ? std::move(handle) : nullptr;
}

} // namespace tq
