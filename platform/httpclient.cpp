#include "platform/httpclient.h"

#include "platform/authorized_session.h"
#include "platform/config.h"
#include "platform/debuglog.h"
#include "platform/http_answer.h"
#include "platform/http_transport.h"
#include "platform/identity_store.h"
#include "platform/status.h"

#include <functional>
#include <string_view>
#include <utility>
#include <vector>

namespace {

/// By which the web service says that it has done what a method asks for.
std::int64_t statusOfSuccess(std::string_view method)
{
    if (method == "POST")
        return tq::HTTP_CREATED;
    return method == "DELETE" ? tq::HTTP_NO_CONTENT : tq::HTTP_OK;
}

} // namespace

/// The session of one client, opened by its first request and by the one after a failure.
struct TQClientCURL::Connection {
    Connection(std::string serverName, int serverPort, cert_type type)
        : server(std::move(serverName)), port(serverPort), certType(type)
    {
    }

    /// Opens the session with the identity's files, once.
    int open(const char* context);

    /// Sends a request with the token.
    int exchange(const tq::HttpRequest& request, tq::HttpReply& reply, const char* context);

    using Act = std::function<tq::AuthorizedResult(tq::AuthorizedSession&)>;
    /// Does something with the session, and returns its status, with the entry of a failure.
    int perform(const Act& act, const char* context);

    /// Writes the entry of a failure and returns its status.
    int failed(const std::string& what, const tq::TransferResult& result, const char* context) const;

    std::string server;
    int port;
    cert_type certType;
    tq::Identity identity; ///< with which the session was opened
    std::unique_ptr<tq::AuthorizedSession> session;
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
    const tq::Identity* found = tq::findIdentity(identities, server, certType);
    if (status == EC_success && found == nullptr)
        status = EC_identity_not_found;
    if (status == EC_identity_store_damaged)
        return status; // the store has written what is wrong with it
    if (status != EC_success)
        return failed("Reading this host's identity", {status, getECmsg(status)}, context);

    identity = *found;
    const tq::IdentityFiles files = tq::identityFiles(identity);
    std::unique_ptr<tq::HttpTransport> transport;
    const tq::TransferResult opened = tq::openHttpTransport(
        server, port, tq::identityTrust(files), tq::webLimits(tq::readPlatformSettings()), transport);
    if (opened.status != EC_success)
        return failed("Connecting", opened, context);
    session = std::make_unique<tq::AuthorizedSession>(std::move(transport), files.token);
    return EC_success;
}

int TQClientCURL::Connection::perform(const Act& act, const char* context)
{
    if (const int status = open(context); status != EC_success)
        return status;
    tq::AuthorizedResult result = act(*session);
    if (result.transfer.status != EC_success && !result.transfer.sent && tq::isReplaced(identity)) {
        // A renewal beside this process took the files away between the look into the store and theirs.
        session.reset();
        if (const int status = open(context); status != EC_success)
            return status;
        result = act(*session);
    }
    if (result.transfer.status == EC_success)
        return EC_success;
    session.reset(); // the next request looks for the identity anew
    return failed(result.what, result.transfer, context);
}

int TQClientCURL::Connection::exchange(const tq::HttpRequest& request, tq::HttpReply& reply,
                                       const char* context)
{
    const auto send = [&](tq::AuthorizedSession& opened) { return opened.send(request, reply); };
    if (const int status = perform(send, context); status != EC_success)
        return status;
    // The caller's to judge, whose entries name neither the server nor, without a body, the HTTP status.
    if (reply.status != statusOfSuccess(request.method))
        LogLine(LogLevel::warning, context)
            << request.method << ' ' << request.path << ", server " << server << ", port " << port
            << ": answered " << tq::describeAnswer(reply.status, reply.body) << '\n';
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
    return connection_->perform([](tq::AuthorizedSession& session) { return session.renewToken(); },
                                "TQClientCURL::refreshToken");
}

int TQClientCURL::exchange(const char* method, const std::string& path, const std::string* body,
                           const char* context)
{
    const tq::HttpRequest request{method, path, body, {}};
    tq::HttpReply reply;
    const int status = connection_->exchange(request, reply, context);
    httpStatus = status == EC_success ? reply.status : 0;
    responseBody = status == EC_success ? std::move(reply.body) : std::string();
    return status;
}
