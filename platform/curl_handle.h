/// libcurl handles as every connection of this system wants them.
#pragma once

#include "platform/web_limits.h"

#include <curl/curl.h>
#include <memory>

namespace tq {

struct CurlRelease {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using CurlHandle = std::unique_ptr<CURL, CurlRelease>;
using CurlList = std::unique_ptr<curl_slist, CurlRelease>;

/// Sets options of a handle and remembers whether libcurl took all of them: a limit or a check that it
/// refused must not be missing unseen.
class CurlOptions {
public:
    explicit CurlOptions(CURL* handle) : handle_(handle) {}

    template <typename Value>
    CurlOptions& set(CURLoption option, Value value)
    {
        taken_ = curl_easy_setopt(handle_, option, value) == CURLE_OK && taken_;
        return *this;
    }

    [[nodiscard]] bool taken() const { return taken_; }

private:
    CURL* handle_;
    bool taken_ = true;
};

/// A new handle: HTTPS (TLS 1.2 or newer) with HTTP/1.1 only, no redirect, proxy, signal or user name, no
/// authority trusted yet, peer checked, and the limits. Nothing is connected. The first call of a process
/// sets libcurl up. Null when libcurl cannot give one or refuses an option.
CurlHandle makeCurlHandle(const WebLimits& limits);

} // namespace tq
