/// The transport that libcurl carries: one connection, under the trust that the caller names.
#pragma once

#include "platform/curl_handle.h"
#include "platform/http_status.h"
#include "platform/http_transport.h"

#include <array>
#include <cstdint>
#include <string>

struct ssl_st;

namespace tq {

/// The result that a fault and libcurl's words make.
TransferResult transferResult(const TransferFault& fault, const char* words);

/// Bytes of headers that a reply may have, those of interim replies included.
inline constexpr std::size_t MAX_HEADER_BYTES = std::size_t{64} << 10U;

/// One libcurl handle. The server's name must stand in its certificate's subject alternative names, in full:
/// neither a common name nor a wildcard counts. Not copyable and not movable: libcurl holds pointers to it.
class HttpSession : public HttpTransport {
public:
    /// Connects nothing. `server` is a name or a numeric address.
    HttpSession(const std::string& server, int port, TlsTrust trust, const WebLimits& limits);

    TransferResult send(const HttpRequest& request, HttpReply& reply) override;

private:
    /// What the files of the trust hold.
    struct TlsTexts {
        std::string authorities;
        std::string certificate;
        std::string privateKey;
    };

    /// One transfer as libcurl's callbacks see it.
    struct Transfer {
        std::string body;
        std::uint64_t maxBodyBytes = 0;
        std::size_t headerBytes = 0;
        int requestsSent = 0;
        bool overLimit = false;
        bool repeatRefused = false;
        bool certificateRefused = false;
        bool headUnfinished = false;
    };

    static std::size_t takeBody(char* data, std::size_t size, std::size_t count, void* transfer);
    static std::size_t takeHeader(char* data, std::size_t size, std::size_t count, void* transfer);
    static int allowRequest(void* transfer, char*, char*, int, int);
    static CURLcode setUpTls(CURL* handle, void* sslContext, void* session);
    static void noteAlert(const ssl_st* connection, int where, int alert);

    TransferResult open();
    TransferResult readTrust(TlsTexts& texts) const;
    bool setTrust(const TlsTexts& texts);
    bool setCallbacks();
    bool setRequest(const HttpRequest& request, curl_slist* headers);
    TransferResult perform(HttpReply& reply);
    TransferFault faultAfter(CURLcode code);

    std::string server_;
    std::string baseUrl_;
    TlsTrust trust_;
    WebLimits limits_;
    std::string url_;
    Transfer transfer_;
    std::array<char, CURL_ERROR_SIZE> words_{};
    CurlHandle handle_; ///< made by the first request; goes first, since closing still calls back
};

} // namespace tq
