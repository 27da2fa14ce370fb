#include "masterd/web_service.h"

#include "masterd/client_identity.h"
#include "masterd/clock.h"
#include "masterd/host_record.h"
#include "masterd/parts_ahead.h"
#include "masterd/request_target.h"
#include "platform/json.h"

#include <array>
#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>

namespace masterd {

namespace {

/// The trust version that this authority's certificates carry towards the hosts.
constexpr const char* TRUST_VERSION = "1";

constexpr int ERROR_CODE_BASE = 7000;

/// Ends a request with an error reply.
struct Refusal {
    int status;
    std::string message;
};

/// What a change comes to when the identity was revoked after it was looked up.
Refusal revoked()
{
    return {403, "the certificate's identity has been revoked"};
}

/// A JSON library's message may end inside a character, and a text that is not UTF-8 cannot be JSON.
std::string asciiOnly(std::string text)
{
    for (char& c : text) {
        if (static_cast<unsigned char>(c) >= 0x80)
            c = '?';
    }
    return text;
}

/// Takes `object` over.
std::string dumpObject(json_t* object)
{
    const tq::JsonRef owned(object);
    const tq::JsonText text(owned ? json_dumps(owned.get(), JSON_COMPACT) : nullptr);
    if (!text)
        throw std::runtime_error("no memory for a reply");
    return text.get();
}

tq::JsonRef requireObject(const std::string& body)
{
    std::string fault;
    tq::JsonRef object = parseBodyObject(body, fault);
    if (!object)
        throw Refusal{400, fault};
    return object;
}

std::string requireString(const json_t& object, const char* key)
{
    const char* text = json_string_value(json_object_get(&object, key));
    if (text == nullptr)
        throw Refusal{400, "\"" + std::string(key) + "\" is missing or is not a string"};
    return text;
}

tq::CertificateRequest requireCertificateRequest(const std::string& pem)
{
    tq::CertificateRequest request = tq::parseCertificateRequest(pem);
    if (!request)
        throw Refusal{400, "\"certificateRequest\" is not a certificate request in PEM"};
    if (const char* fault = certificateRequestFault(*request); fault != nullptr)
        throw Refusal{400, "the certificate request is refused: " + std::string(fault)};
    return request;
}

/// The record to store for an identity.
std::string requireHostRecord(const std::string& body, const Identity& identity)
{
    ComposedRecord record = composeHostRecord(body, identity);
    if (!record.fault.empty())
        throw Refusal{400, record.fault};
    return std::move(record.text);
}

/// Whether the segments are those of a route's path; "*" stands for one that is not empty.
bool matches(std::string_view path, const std::vector<std::string>& segments)
{
    for (std::size_t i = 0; i < segments.size(); ++i) {
        const std::size_t slash = path.find('/');
        const bool isLast = slash == std::string_view::npos;
        const std::string_view wanted = path.substr(0, slash);
        if (isLast != (i + 1 == segments.size()) ||
            (wanted == "*" ? segments[i].empty() : wanted != segments[i]))
            return false;
        if (!isLast)
            path.remove_prefix(slash + 1);
    }
    return true;
}

} // namespace

struct WebService::Call {
    const WebRequest& request;
    const RequestTarget& target;
    const Identity& identity; ///< empty in an enrolment
    bool isOwn = false;       ///< whether the target's last segment is the identity's host id

    [[nodiscard]] const std::string& hostId() const { return target.segments.back(); }
};

struct WebService::Route {
    enum class Access { invitation, certificate, token, tokenOfOwner };
    enum class TakesQuery { no, yes };

    const char* method;
    const char* path;
    Access access;
    WebReply (WebService::*handler)(const Call&);
    TakesQuery takesQuery = TakesQuery::no;
};

const WebService::Route* WebService::findRoute(const std::string& method, const RequestTarget& target,
                                               bool& pathKnown)
{
    using Access = Route::Access;
    using TakesQuery = Route::TakesQuery;
    // A fixed last word stands before "*", which would take it for a host id.
    static constexpr std::array<Route, 12> ROUTES{{
        {"POST", "torquenix/security/enrollments", Access::invitation, &WebService::enroll},
        {"POST", "torquenix/security/tokens", Access::certificate, &WebService::issueToken},
        {"POST", "torquenix/security/renewals", Access::token, &WebService::renew},
        {"GET", "torquenix/security/settings/reloadconfig", Access::token, &WebService::reload},
        {"GET", "torquenix/config/hosts/reloadconfig", Access::token, &WebService::reload},
        {"GET", "torquenix/config/hosts", Access::token, &WebService::listHosts, TakesQuery::yes},
        {"GET", "torquenix/config/hosts/", Access::token, &WebService::listHosts, TakesQuery::yes},
        {"POST", "torquenix/config/hosts", Access::token, &WebService::addHost},
        {"POST", "torquenix/config/hosts/", Access::token, &WebService::addHost},
        {"GET", "torquenix/config/hosts/*", Access::token, &WebService::readHost},
        {"PUT", "torquenix/config/hosts/*", Access::tokenOfOwner, &WebService::putHost},
        {"DELETE", "torquenix/config/hosts/*", Access::tokenOfOwner, &WebService::deleteHost},
    }};
    pathKnown = false;
    for (const Route& route : ROUTES) {
        if (!matches(route.path, target.segments))
            continue;
        pathKnown = true;
        if (method == route.method)
            return &route;
    }
    return nullptr;
}

WebReply errorReply(int status, const std::string& message)
{
    const std::string text = asciiOnly(message);
    return {status,
            dumpObject(
                json_pack("{s:i, s:s}", "errorCode", ERROR_CODE_BASE + status, "errMessage", text.c_str())),
            ""};
}

WebReply WebService::handle(const WebRequest& request)
{
    std::string identityText;
    WebReply reply;
    try {
        reply = answer(request, identityText);
    } catch (const Refusal& refusal) {
        reply = errorReply(refusal.status, refusal.message);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "tqmasterd: a request failed: %s\n", failure.what());
        reply = errorReply(500, "internal failure; its cause stands in the service's own output");
    }
    reply.identity = identityText;
    return reply;
}

bool WebService::isEnrolment(const Route* route)
{
    return route != nullptr && route->access == Route::Access::invitation;
}

bool WebService::isEnrolment(const std::string& method, const std::string& target)
{
    const std::optional<RequestTarget> parsed = parseRequestTarget(target);
    bool pathKnown = false;
    return parsed && isEnrolment(findRoute(method, *parsed, pathKnown));
}

WebReply WebService::answer(const WebRequest& request, std::string& identityText)
{
    const std::optional<RequestTarget> target = parseRequestTarget(request.target);
    bool pathKnown = false;
    const Route* route =
        target ? findRoute(request.method == "HEAD" ? "GET" : request.method, *target, pathKnown) : nullptr;
    if (isEnrolment(route))
        return (this->*route->handler)(Call{request, *target, Identity{}});

    if (request.certificate == nullptr)
        throw Refusal{403, "a client certificate of this master server's authority is needed"};
    const std::optional<Identity> named = readNamedIdentity(*request.certificate);
    const std::optional<Identity> identity = named ? store_.findIdentity(named->hostId) : std::nullopt;
    if (named)
        identityText = named->hostName + '/' + named->hostId;
    if (!identity || identity->hostName != named->hostName)
        throw Refusal{403, "the certificate's identity is unknown here or has been revoked"};
    if (route == nullptr || route->access != Route::Access::certificate)
        checkToken(request, *identity);

    if (!target)
        throw Refusal{400, "the request's target is malformed"};
    if (route == nullptr)
        throw pathKnown ? Refusal{405, "this resource does not know the method " + request.method}
                        : Refusal{404, "there is no such resource"};
    if (route->takesQuery == Route::TakesQuery::no && !target->query.empty())
        throw Refusal{400, "this resource takes no query"};
    const Call call{request, *target, *identity, target->segments.back() == identity->hostId};
    if (route->access == Route::Access::tokenOfOwner && !call.isOwn)
        throw Refusal{403, "a host may write and delete its own record only"};
    return (this->*route->handler)(call);
}

void WebService::checkToken(const WebRequest& request, const Identity& identity)
{
    if (request.authorization.empty())
        throw Refusal{401, "an access token is needed"};
    const std::optional<Secret> token = parseBearer(request.authorization);
    if (!token || !store_.isTokenValid(*token, identity.hostId, unixNow()))
        throw Refusal{401, "the access token is unknown or has expired"};
}

WebReply WebService::enroll(const Call& call)
{
    static const Refusal NO_INVITATION{403, "the invitation is unknown, used or expired"};
    const tq::JsonRef body = requireObject(call.request.body);
    const std::optional<Secret> invitation = parseSecret(requireString(*body, "invitation"));
    const std::string requestPem = requireString(*body, "certificateRequest");
    std::optional<Identity> identity =
        invitation ? store_.findInvitation(*invitation, unixNow()) : std::nullopt;
    if (!identity)
        throw NO_INVITATION;
    const tq::CertificateRequest request = requireCertificateRequest(requestPem);
    if (identity->hostId.empty())
        identity->hostId = tq::randomUuid();
    WebReply reply = issued(201, *request, *identity);
    if (!store_.redeemInvitation(*invitation, *identity, unixNow()))
        throw NO_INVITATION;
    return reply;
}

WebReply WebService::renew(const Call& call)
{
    const tq::JsonRef body = requireObject(call.request.body);
    const tq::CertificateRequest request =
        requireCertificateRequest(requireString(*body, "certificateRequest"));
    return issued(200, *request, call.identity);
}

WebReply WebService::issued(int status, X509_REQ& request, const Identity& identity)
{
    const std::string certificate =
        authority_.issueHostCertificate(request, identity, settings_.current().certificateDays);
    const std::string authority = authority_.certificatePem();
    return {status,
            dumpObject(json_pack("{s:s, s:s, s:s, s:s}", "hostId", identity.hostId.c_str(), "certificate",
                                 certificate.c_str(), "caCertificates", authority.c_str(), "trustVersion",
                                 TRUST_VERSION)),
            ""};
}

WebReply WebService::issueToken(const Call& call)
{
    if (!call.request.body.empty())
        requireObject(call.request.body);
    const std::int64_t lifetime = settings_.current().tokenLifetimeSeconds;
    const std::int64_t now = unixNow();
    const std::string token = store_.issueToken(call.identity.hostId, now, now + lifetime).text();
    return {201,
            dumpObject(json_pack("{s:s, s:I}", "token", token.c_str(), "expiresIn",
                                 static_cast<json_int_t>(lifetime))),
            ""};
}

WebReply WebService::reload(const Call& /*call*/)
{
    try {
        settings_.reload();
    } catch (const std::exception& fault) {
        throw Refusal{500, "the settings stay as they were: " + std::string(fault.what())};
    }
    return {200, "{}", ""};
}

WebReply WebService::listHosts(const Call& call)
{
    if (call.target.query.empty())
        return listAllHosts();
    const std::optional<std::string> hostName = parseHostNameFilter(call.target.query);
    if (!hostName)
        throw Refusal{400, "the only filter is filter=hostName eq '<name>'"};
    return {200, "{\"hosts\":" + store_.listHosts(*hostName) + "}", ""};
}

WebReply WebService::listAllHosts()
{
    HostPlace place;
    const std::string first = store_.listHosts(place);
    WebReply reply{200, "{\"hosts\":[" + first, ""};
    if (first.size() < HOST_LIST_PART_BYTES) {
        reply.body += "]}";
        return reply;
    }
    const auto fetch = [this, place, isLast = false]() mutable -> std::string {
        if (isLast)
            return "";
        std::string part = store_.listHosts(place);
        isLast = part.size() < HOST_LIST_PART_BYTES;
        if (isLast)
            part += "]}";
        return part;
    };
    reply.nextPart = [parts = std::make_shared<PartsAhead>(fetch)] { return parts->next(); };
    return reply;
}

WebReply WebService::addHost(const Call& call)
{
    std::string record = requireHostRecord(call.request.body, call.identity);
    switch (store_.addHost(call.identity, record)) {
    case Store::Stored::exists:
        throw Refusal{409, "this host has a record already"};
    case Store::Stored::noIdentity:
        throw revoked();
    case Store::Stored::done:
        break;
    }
    return {201, std::move(record), ""};
}

WebReply WebService::readHost(const Call& call)
{
    std::optional<std::string> record = store_.findHost(call.hostId());
    if (!record)
        throw Refusal{404, "there is no such host"};
    return {200, std::move(*record), ""};
}

WebReply WebService::putHost(const Call& call)
{
    std::string record = requireHostRecord(call.request.body, call.identity);
    if (store_.putHost(call.identity, record) != Store::Stored::done)
        throw revoked();
    return {200, std::move(record), ""};
}

WebReply WebService::deleteHost(const Call& call)
{
    if (!store_.deleteHost(call.identity.hostId))
        throw Refusal{404, "there is no such host"};
    return {204, "", ""};
}

} // namespace masterd
