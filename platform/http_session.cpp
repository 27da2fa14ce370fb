#include "platform/http_session.h"

#include "platform/release.h"
#include "platform/status.h"
#include "platform/url.h"

#include <new>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>
#include <string_view>

namespace tq {

namespace {

/// Request headers; null when memory is short.
CurlList requestHeaders(const HttpRequest& request)
{
    // Without the empty Expect libcurl would hold a larger body back for a second, waiting for leave to send.
    std::string lines[] = {"Accept: application/json", "Expect:", "", ""};
    if (request.body != nullptr)
        lines[2] = "Content-Type: application/json";
    if (!request.token.empty())
        lines[3] = "Authorization: Bearer " + request.token;
    CurlList list;
    for (const std::string& line : lines) {
        if (line.empty())
            continue;
        curl_slist* longer = curl_slist_append(list.get(), line.c_str());
        if (longer == nullptr)
            return nullptr;
        static_cast<void>(list.release());
        list.reset(longer);
    }
    return list;
}

bool isHeaderValue(std::string_view text)
{
    return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

TransferResult notMade(const std::string& cause)
{
    return {EC_web_request_failed, cause};
}

} // namespace

TransferResult transferResult(const TransferFault& fault, const char* words)
{
    TransferResult result{fault.status, fault.cause};
    if (fault.status != EC_success && *words != '\0')
        result.cause.append(" (").append(words).append(")");
    return result;
}

HttpSession::HttpSession(const std::string& server, int port, const TlsTrust& trust, const WebLimits& limits)
    : server_(server), baseUrl_(serverUrl(server, port) + "/"), handle_(makeCurlHandle(limits)),
      maxReplyBytes_(limits.maxReplyBytes)
{
    if (!isUrlHost(server))
        setUpFault_ = "the server's name is neither a host name nor an address";
    else if (!handle_ || !setTrust(trust) || !setCallbacks())
        setUpFault_ = "the HTTP library could not be set up";
}

bool HttpSession::setTrust(const TlsTrust& trust)
{
    CurlOptions options(handle_.get());
    if (!trust.authoritiesFile.empty()) {
        options.set(CURLOPT_CAINFO, trust.authoritiesFile.c_str());
    } else {
        curl_blob authorities{const_cast<char*>(trust.authoritiesPem.data()), trust.authoritiesPem.size(),
                              CURL_BLOB_COPY};
        options.set(CURLOPT_CAINFO_BLOB, &authorities);
    }
    if (!trust.certificateFile.empty()) {
        // The empty password keeps OpenSSL from asking for one on the terminal when the key is encrypted.
        options.set(CURLOPT_SSLCERT, trust.certificateFile.c_str())
            .set(CURLOPT_SSLKEY, trust.privateKeyFile.c_str())
            .set(CURLOPT_KEYPASSWD, "");
    }
    options.set(CURLOPT_SSL_CTX_FUNCTION, &HttpSession::requireName).set(CURLOPT_SSL_CTX_DATA, &server_);
    return options.taken();
}

bool HttpSession::setCallbacks()
{
    CurlOptions options(handle_.get());
    options.set(CURLOPT_ERRORBUFFER, words_.data())
        .set(CURLOPT_WRITEFUNCTION, &HttpSession::takeBody)
        .set(CURLOPT_WRITEDATA, &transfer_)
        .set(CURLOPT_HEADERFUNCTION, &HttpSession::takeHeader)
        .set(CURLOPT_HEADERDATA, &transfer_)
        .set(CURLOPT_PREREQFUNCTION, &HttpSession::allowRequest)
        .set(CURLOPT_PREREQDATA, &transfer_)
        .set(CURLOPT_USERAGENT, TQ_USER_AGENT)
        .set(CURLOPT_ACCEPT_ENCODING, "gzip");
    return options.taken();
}

bool HttpSession::setRequest(const HttpRequest& request, curl_slist* headers)
{
    url_ = baseUrl_ + encodePath(request.path);
    CurlOptions options(handle_.get());
    options.set(CURLOPT_URL, url_.c_str()).set(CURLOPT_HTTPHEADER, headers);
    if (request.body != nullptr) {
        options.set(CURLOPT_POST, 1L)
            .set(CURLOPT_POSTFIELDS, request.body->data())
            .set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body->size()));
    } else {
        options.set(CURLOPT_HTTPGET, 1L);
    }
    return options.set(CURLOPT_CUSTOMREQUEST, request.method).taken();
}

TransferResult HttpSession::send(const HttpRequest& request, HttpReply& reply)
{
    if (!setUpFault_.empty())
        return notMade(setUpFault_);
    if (!isHeaderValue(request.token))
        return notMade("the access token cannot stand in a header");
    const CurlList headers = requestHeaders(request);
    if (!headers || !setRequest(request, headers.get()))
        return notMade("the HTTP library did not take the request");

    transfer_ = Transfer();
    transfer_.maxBodyBytes = maxReplyBytes_;
    words_.front() = '\0';
    const CURLcode code = curl_easy_perform(handle_.get());
    const TransferEnd end{code, transfer_.overLimit, transfer_.repeatRefused, words_.data()};
    const TransferFault fault = faultOfTransfer(end);
    if (fault.status != EC_success)
        return transferResult(fault, words_.front() != '\0' ? words_.data() : curl_easy_strerror(code));

    long httpStatus = 0;
    curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &httpStatus);
    reply.status = httpStatus;
    reply.body = std::move(transfer_.body);
    return {};
}

std::size_t HttpSession::takeBody(char* data, std::size_t size, std::size_t count, void* transfer)
{
    Transfer& current = *static_cast<Transfer*>(transfer);
    const std::size_t bytes = size * count;
    if (bytes > current.maxBodyBytes - current.body.size()) {
        current.overLimit = true;
        return CURL_WRITEFUNC_ERROR;
    }
    try {
        current.body.append(data, bytes);
    } catch (const std::bad_alloc&) {
        return CURL_WRITEFUNC_ERROR; // no exception may pass through libcurl
    }
    return bytes;
}

std::size_t HttpSession::takeHeader(char* /*data*/, std::size_t size, std::size_t count, void* transfer)
{
    Transfer& current = *static_cast<Transfer*>(transfer);
    const std::size_t bytes = size * count;
    current.headerBytes += bytes;
    if (current.headerBytes > MAX_HEADER_BYTES) {
        current.overLimit = true;
        return CURL_WRITEFUNC_ERROR;
    }
    return bytes;
}

int HttpSession::allowRequest(void* transfer, char* /*primaryIp*/, char* /*localIp*/, int /*primaryPort*/,
                              int /*localPort*/)
{
    // libcurl sends a request again by itself when a kept connection breaks before the reply. Whether the
    // server has done the work is not known then, so that is for the caller to decide.
    Transfer& current = *static_cast<Transfer*>(transfer);
    ++current.requestsSent;
    current.repeatRefused = current.requestsSent > 1;
    return current.repeatRefused ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
}

CURLcode HttpSession::requireName(CURL* /*handle*/, void* sslContext, void* server)
{
    // libcurl's own check would also take a wildcard, or the common name of a certificate without names.
    std::string name = *static_cast<const std::string*>(server);
    X509_VERIFY_PARAM* rules = SSL_CTX_get0_param(static_cast<SSL_CTX*>(sslContext));
    if (X509_VERIFY_PARAM_set1_ip_asc(rules, name.c_str()) == 1)
        return CURLE_OK;
    if (!name.empty() && name.back() == '.')
        name.pop_back();
    X509_VERIFY_PARAM_set_hostflags(rules,
                                    X509_CHECK_FLAG_NEVER_CHECK_SUBJECT | X509_CHECK_FLAG_NO_WILDCARDS);
    return X509_VERIFY_PARAM_set1_host(rules, name.data(), name.size()) == 1 ? CURLE_OK
                                                                             : CURLE_SSL_CONNECT_ERROR;
}

} // namespace tq
