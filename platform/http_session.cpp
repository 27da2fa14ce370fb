#include "platform/http_session.h"

#include "platform/file_io.h"
#include "platform/release.h"
#include "platform/status.h"
#include "platform/url.h"

#include <cerrno>
#include <fcntl.h>
#include <new>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>
#include <optional>
#include <string_view>
#include <utility>

namespace tq {

namespace {

/// The lower byte of an alert as OpenSSL reports it; its level stands above.
constexpr int ALERT_NUMBER_MASK = 0xFF;

/// A list of all hosts is tens of megabytes; by libcurl's own 16 KiB it takes four times as many calls.
constexpr long RECEIVE_BUFFER_BYTES = 64L << 10U;

/// Largest file of certificates or a key; libcurl takes less than 8 MB of each.
constexpr std::size_t PEM_MAX_BYTES = std::size_t{4} << 20U;

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

/// The server's name as the only one that its certificate may carry; false when OpenSSL does not take it.
bool requireName(SSL_CTX& context, std::string name)
{
    X509_VERIFY_PARAM* rules = SSL_CTX_get0_param(&context);
    if (X509_VERIFY_PARAM_set1_ip_asc(rules, name.c_str()) == 1)
        return true;
    if (!name.empty() && name.back() == '.')
        name.pop_back();
    // libcurl's own check would also take a wildcard, or the common name of a certificate without names.
    X509_VERIFY_PARAM_set_hostflags(rules,
                                    X509_CHECK_FLAG_NEVER_CHECK_SUBJECT | X509_CHECK_FLAG_NO_WILDCARDS);
    return X509_VERIFY_PARAM_set1_host(rules, name.data(), name.size()) == 1;
}

TransferResult notMade(const std::string& cause)
{
    return {EC_web_request_failed, cause};
}

/// Reads one file of the trust; libcurl itself would follow links, and wait for ever at a fifo.
TransferResult readPem(const char* what, const std::string& path, int statusOfFailure, std::string& text)
{
    const FileDescriptor file = openOwnFile(path, O_RDONLY, 0, nullptr);
    std::optional<std::string> read = file ? readRest(file.get(), PEM_MAX_BYTES) : std::nullopt;
    if (!read)
        return {statusOfFailure, std::string(what) + " " + path + " cannot be read: " + fileFault(errno)};
    text = std::move(*read);
    return {};
}

curl_blob blobOf(const std::string& text)
{
    return {const_cast<char*>(text.data()), text.size(), CURL_BLOB_COPY};
}

} // namespace

TransferResult transferResult(const TransferFault& fault, const char* words)
{
    TransferResult result{fault.status, fault.cause};
    if (fault.status != EC_success && *words != '\0')
        result.cause.append(" (").append(words).append(")");
    if (*fault.advice != '\0')
        result.cause.append("; ").append(fault.advice);
    return result;
}

HttpSession::HttpSession(const std::string& server, int port, TlsTrust trust, const WebLimits& limits)
    : server_(server), baseUrl_(serverUrl(server, port) + "/"), trust_(std::move(trust)), limits_(limits)
{
}

/// Sets the handle up, with what the files hold by now.
TransferResult HttpSession::open()
{
    TlsTexts texts;
    if (TransferResult result = readTrust(texts); result.status != EC_success)
        return result;
    handle_ = makeCurlHandle(limits_);
    if (handle_ && !(setTrust(texts) && setCallbacks()))
        handle_.reset();
    return handle_ ? TransferResult() : notMade("the HTTP library could not be set up");
}

TransferResult HttpSession::readTrust(TlsTexts& texts) const
{
    TransferResult result;
    texts.authorities = trust_.authoritiesPem;
    if (!trust_.authoritiesFile.empty())
        result = readPem("the authorities' file", trust_.authoritiesFile, EC_web_request_failed,
                         texts.authorities);
    if (result.status != EC_success || trust_.certificateFile.empty())
        return result;
    result = readPem("this host's certificate", trust_.certificateFile, EC_web_certificate_refused,
                     texts.certificate);
    if (result.status == EC_success)
        result =
            readPem("this host's key", trust_.privateKeyFile, EC_web_certificate_refused, texts.privateKey);
    return result;
}

bool HttpSession::setTrust(const TlsTexts& texts)
{
    CurlOptions options(handle_.get());
    curl_blob authorities = blobOf(texts.authorities);
    options.set(CURLOPT_CAINFO_BLOB, &authorities);
    if (!trust_.certificateFile.empty()) {
        curl_blob certificate = blobOf(texts.certificate);
        curl_blob privateKey = blobOf(texts.privateKey);
        // The empty password keeps OpenSSL from asking for one on the terminal when the key is encrypted.
        options.set(CURLOPT_SSLCERT_BLOB, &certificate)
            .set(CURLOPT_SSLKEY_BLOB, &privateKey)
            .set(CURLOPT_KEYPASSWD, "");
    }
    options.set(CURLOPT_SSL_CTX_FUNCTION, &HttpSession::setUpTls).set(CURLOPT_SSL_CTX_DATA, this);
    return options.taken();
}

bool HttpSession::setCallbacks()
{
    CurlOptions options(handle_.get());
    options.set(CURLOPT_ERRORBUFFER, words_.data())
        .set(CURLOPT_BUFFERSIZE, RECEIVE_BUFFER_BYTES)
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
    if (!isUrlHost(server_))
        return notMade("the server's name is neither a host name nor an address");
    if (!isHeaderValue(request.token))
        return notMade("the access token cannot stand in a header");
    if (!handle_) {
        if (TransferResult opened = open(); opened.status != EC_success)
            return opened;
    }
    const CurlList headers = requestHeaders(request);
    if (!headers || !setRequest(request, headers.get()))
        return notMade("the HTTP library did not take the request");
    return perform(reply);
}

/// Carries the request that is set.
TransferResult HttpSession::perform(HttpReply& reply)
{
    transfer_ = Transfer();
    transfer_.maxBodyBytes = limits_.maxReplyBytes;
    words_.front() = '\0';
    const CURLcode code = curl_easy_perform(handle_.get());
    if (const TransferFault fault = faultAfter(code); fault.status != EC_success) {
        TransferResult result =
            transferResult(fault, words_.front() != '\0' ? words_.data() : curl_easy_strerror(code));
        result.sent = transfer_.requestsSent > 0;
        return result;
    }
    long httpStatus = 0;
    curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &httpStatus);
    reply.status = httpStatus;
    reply.body = std::move(transfer_.body);
    return {EC_success, {}, true};
}

/// What went wrong in a transfer that ended with this code. After a failure the handle is gone.
TransferFault HttpSession::faultAfter(CURLcode code)
{
    long verification = 0;
    if (code != CURLE_OK) {
        curl_easy_getinfo(handle_.get(), CURLINFO_SSL_VERIFYRESULT, &verification);
        handle_.reset(); // closing reads the last word of a server that broke off: it may be an alert
    }
    return faultOfTransfer({code, verification, transfer_.overLimit, transfer_.repeatRefused,
                            transfer_.certificateRefused, transfer_.headUnfinished});
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

std::size_t HttpSession::takeHeader(char* data, std::size_t size, std::size_t count, void* transfer)
{
    Transfer& current = *static_cast<Transfer*>(transfer);
    const std::size_t bytes = size * count;
    current.headerBytes += bytes;
    current.headUnfinished = std::string_view(data, bytes) != "\r\n" && std::string_view(data, bytes) != "\n";
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
    current.headUnfinished = true;
    current.repeatRefused = current.requestsSent > 1;
    return current.repeatRefused ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
}

CURLcode HttpSession::setUpTls(CURL* /*handle*/, void* sslContext, void* session)
{
    auto* context = static_cast<SSL_CTX*>(sslContext);
    SSL_CTX_set_app_data(context, session);
    SSL_CTX_set_info_callback(context, &HttpSession::noteAlert);
    return requireName(*context, static_cast<const HttpSession*>(session)->server_) ? CURLE_OK
                                                                                    : CURLE_SSL_CONNECT_ERROR;
}

void HttpSession::noteAlert(const SSL* connection, int where, int alert)
{
    // libcurl's own codes do not tell a refused certificate from other ends of a connection.
    if (where != SSL_CB_READ_ALERT || !isCertificateAlert(alert & ALERT_NUMBER_MASK))
        return;
    static_cast<HttpSession*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(connection)))
        ->transfer_.certificateRefused = true;
}

} // namespace tq
