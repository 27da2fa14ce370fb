#include "platform/httpclient.h"

#include "platform/config.h"
#include "platform/debuglog.h"
#include "platform/http_answer.h"
#include "platform/http_transport.h"
#include "platform/identity_store.h"
#include "platform/status.h"
#include "platform/token_store.h"

#include <ctime>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr const char* TOKEN_PATH = "torquenix/security/tokens";
constexpr std::int64_t HTTP_OK = 200;
constexpr std::int64_t HTTP_CREATED = 201;
constexpr std::int64_t HTTP_NO_CONTENT = 204;
constexpr std::int64_t HTTP_UNAUTHORIZED = 401;

/// By which the web service says that it has done what a method asks for.
std::int64_t statusOfSuccess(std::string_view method)
{
    if (method == "POST")
        return HTTP_CREATED;
    return method == "DELETE" ? HTTP_NO_CONTENT : HTTP_OK;
}

} // namespace

/// The session of one client, opened by its first request, and the token in use.
struct TQClientCURL::Connection {
    Connection(std::string serverName, int serverPort, cert_type type)
        : server(std::move(serverName)), port(serverPort), certType(type)
    {
    }

    /// Opens the session with the identity's files and reads its token file, once.
    int open(const char* context);

    /// Sends a request with the token, which is asked for or renewed as needed.
    int exchange(tq::HttpRequest request, tq::HttpReply& reply, const char* context);

    /// Asks for a token and stores it; on failure the one in use stays and `result` says why.
    tq::TransferResult askForToken();

    /// Writes the entry of a failure and returns its status.
    int failed(const std::string& what, const tq::TransferResult& result, const char* context) const;

    std::string server;
    int port;
    cert_type certType;
    std::unique_ptr<tq::HttpTransport> session;
    std::string tokenFile;
    std::optional<tq::AccessToken> token;
};

int TQClientCURL::Connection::failed(const std::string& what, const tq::TransferResult& result,
                                     const char* context) const
{
    LogLine(LogLevel::error, context) << what << " failed, server " << server << ", port " << port << ": "
                                      << result.cause << ", status " << result.status << '\n';
    return result.status;
}

int TQClientCURL::Connection::open(const char* context)
{
    if (session)
        return EC_success;
    std::vector<tq::Identity> identities;
    int status = tq::loadIdentityStore(identities);
    const tq::Identity* identity = tq::findIdentity(identities, server, certType);
    if (status == EC_success && identity == nullptr)
        status = EC_identity_not_found;
    if (status == EC_identity_store_damaged)
        return status; // the store has written what is wrong with it
    if (status != EC_success)
        return failed("Reading this host's identity", {status, getECmsg(status)}, context);

    const tq::IdentityFiles files = tq::identityFiles(*identity);
    tokenFile = files.token;
    token = tq::readToken(tokenFile);
    tq::TlsTrust trust;
    trust.authoritiesFile = files.caCertificates;
    trust.certificateFile = files.certificate;
    trust.privateKeyFile = files.privateKey;
    const tq::TransferResult opened =
        tq::openHttpTransport(server, port, trust, tq::webLimits(tq::readPlatformSettings()), session);
    return opened.status == EC_success ? EC_success : failed("Connecting", opened, context);
}

tq::TransferResult TQClientCURL::Connection::askForToken()
{
    const std::string body = "{}";
    tq::HttpRequest request;
    request.method = "POST";
    request.path = TOKEN_PATH;
    request.body = &body;
    tq::HttpReply reply;
    tq::TransferResult result = session->send(request, reply);
    if (result.status != EC_success)
        return result;
    if (reply.status != HTTP_CREATED)
        return {EC_web_no_token,
                "no access token, the server answered " + tq::describeAnswer(reply.status, reply.body)};
    std::optional<tq::AccessToken> fresh = tq::parseTokenReply(reply.body, std::time(nullptr));
    if (!fresh)
        return {EC_web_no_token, "no access token, the server's reply holds none that can be used"};
    token = std::move(fresh);
    // A token that cannot be stored, which the store logs, still serves this process.
    static_cast<void>(tq::storeToken(tokenFile, *token));
    return {};
}

int TQClientCURL::Connection::exchange(tq::HttpRequest request, tq::HttpReply& reply, const char* context)
{
    const std::string what = std::string(request.method) + ' ' + request.path;
    if (const int status = open(context); status != EC_success)
        return status;
    if (!token || token->expiresAt <= std::time(nullptr)) {
        const tq::TransferResult asked = askForToken();
        if (asked.status != EC_success)
            return failed("Asking for an access token", asked, context);
    }
    request.token = token->text;
    tq::TransferResult result = session->send(request, reply);
    if (result.status == EC_success && reply.status == HTTP_UNAUTHORIZED) {
        const tq::TransferResult renewed = askForToken();
        if (renewed.status != EC_success)
            return failed("Renewing the access token", {EC_web_no_token, renewed.cause}, context);
        request.token = token->text;
        result = session->send(request, reply);
    }
    if (result.status != EC_success)
        return failed(what, result, context);
    // The caller's to judge, whose entries name neither the server nor, without a body, the HTTP status.
    if (reply.status != statusOfSuccess(request.method))
        LogLine(LogLevel::warning, context)
            << what << ", server " << server << ", port " << port << ": answered "
            << tq::describeAnswer(reply.status, reply.body) << '\n';
    return EC_success;
}

TQClientCURL::TQClientCURL(const std::string& server, int port, cert_type certType,
                           TQCurlSessionType /*sessionType*/, TokenManager_Base* /*tokenManager*/,
                           const std::string& /*text6*/, bool /*flag7*/, bool /*flag8*/, bool /*flag9*/,
                           const std::string& /*text10*/, const std::string& /*text11*/,
                           const std::string& /*text12*/, const std::string& /*text13*/,
                           const std::string& /*text14*/, const std::string& /*text15*/, bool /*flag16*/,
                           bool& /*flag17*/, const std::string& /*text18*/, int /*number19*/)
    : connection_(std::make_unique<Connection>(server, port, certType))
{
}

TQClientCURL::~TQClientCURL() = default;

int TQClientCURL::Get(const std::string& path)
{
    return exchange("GET", path, nullptr, "TQClientCURL::Get");
}

int TQClientCURL::Put(const std::string& path, const std::string& body)
{
    return exchange("PUT", path, &body, "TQClientCURL::Put");
}

int TQClientCURL::Post(const std::string& path, const std::string& body)
{
    return exchange("POST", path, &body, "TQClientCURL::Post");
}

int TQClientCURL::Delete(const std::string& path)
{
    return exchange("DELETE", path, nullptr, "TQClientCURL::Delete");
}

int TQClientCURL::refreshToken()
{
    constexpr const char* CONTEXT = "TQClientCURL::refreshToken";
    if (const int status = connection_->open(CONTEXT); status != EC_success)
        return status;
    const tq::TransferResult result = connection_->askForToken();
    return result.status == EC_success ? EC_success
                                       : connection_->failed("Renewing the access token", result, CONTEXT);
}

int TQClientCURL::exchange(const char* method, const std::string& path, const std::string* body,
                           const char* context)
{
    tq::HttpRequest request{method, path, body, {}};
    tq::HttpReply reply;
    const int status = connection_->exchange(std::move(request), reply, context);
    httpStatus = status == EC_success ? reply.status : 0;
    responseBody = status == EC_success ? std::move(reply.body) : std::string();
    return status;
}
