#include "platform/authorized_session.h"

#include "platform/http_answer.h"
#include "platform/status.h"

#include <ctime>
#include <utility>

namespace tq {

namespace {

constexpr const char* TOKEN_PATH = "torquenix/security/tokens";
constexpr const char* RENEWING = "Renewing the access token";

} // namespace

TlsTrust identityTrust(const IdentityFiles& files)
{
    TlsTrust trust;
    trust.authoritiesFile = files.caCertificates;
    trust.certificateFile = files.certificate;
    trust.privateKeyFile = files.privateKey;
    return trust;
}

AuthorizedSession::AuthorizedSession(std::unique_ptr<HttpTransport> transport, std::string tokenFile)
    : transport_(std::move(transport)), tokenFile_(std::move(tokenFile)), token_(readToken(tokenFile_))
{
}

AuthorizedResult AuthorizedSession::renewToken()
{
    return askForToken(RENEWING);
}

AuthorizedResult AuthorizedSession::askForToken(const char* what)
{
    const std::string body = "{}";
    HttpRequest request;
    request.method = "POST";
    request.path = TOKEN_PATH;
    request.body = &body;
    HttpReply reply;
    TransferResult result = transport_->send(request, reply);
    if (result.status != EC_success)
        return {std::move(result), what};
    if (reply.status != HTTP_CREATED)
        return {{EC_web_no_token,
                 "no access token, the server answered " + describeAnswer(reply.status, reply.body)},
                what,
                reply.status};
    std::optional<AccessToken> fresh = parseTokenReply(reply.body, std::time(nullptr));
    if (!fresh)
        return {{EC_web_no_token, "no access token, the server's reply holds none that can be used"}, what};
    token_ = std::move(fresh);
    // A token that cannot be stored, which the store logs, still serves this process.
    static_cast<void>(storeToken(tokenFile_, *token_));
    return {};
}

AuthorizedResult AuthorizedSession::send(HttpRequest request, HttpReply& reply)
{
    const std::string what = std::string(request.method) + ' ' + request.path;
    if (!token_ || token_->expiresAt <= std::time(nullptr)) {
        AuthorizedResult asked = askForToken("Asking for an access token");
        if (asked.transfer.status != EC_success)
            return asked;
    }
    request.token = token_->text;
    TransferResult result = transport_->send(request, reply);
    if (result.status == EC_success && reply.status == HTTP_UNAUTHORIZED) {
        AuthorizedResult renewed = askForToken(RENEWING);
        if (renewed.transfer.status != EC_success) {
            renewed.transfer.status = EC_web_no_token;
            return renewed;
        }
        request.token = token_->text;
        result = transport_->send(request, reply);
    }
    return {std::move(result), what};
}

} // namespace tq
