/// The resources of a master server, without the network: from a request to its reply.
#pragma once

#include "masterd/authority.h"
#include "masterd/identity.h"
#include "masterd/settings.h"
#include "masterd/store.h"

#include <functional>
#include <string>

namespace masterd {

struct RequestTarget;

/// Largest request body.
inline constexpr std::size_t MAX_BODY_BYTES = std::size_t{256} * 1024;

/// A request whose head and body have been read.
struct WebRequest {
    std::string method;                ///< HEAD is taken as GET
    std::string target;                ///< as it stands in the request line
    std::string authorization;         ///< value of the header "Authorization"; empty when there is none
    std::string body;                  ///< at most MAX_BODY_BYTES
    const X509* certificate = nullptr; ///< the client's, verified against the authority; null without one
};

struct WebReply {
    int status = 200;
    std::string body;     ///< JSON; empty with 204
    std::string identity; ///< "<host name>/<host id>" of the client once that is known, for the request log
    /// Further parts of the body, one a call, and an empty text after the last; null when `body` is all. May
    /// throw, and then the body has no end.
    std::function<std::string()> nextPart = nullptr;
};

/// A reply that is an error, with the body of all errors: {"errorCode": 7000 + status, "errMessage": text}.
WebReply errorReply(int status, const std::string& message);

/// Answers requests. Safe for use by several threads.
///
/// Who may do what, in the order of the tests: an enrolment needs an invitation and nothing else; everything
/// else needs a certificate of an identity that stands (403); everything else but asking for a token needs a
/// valid token of that identity (401); writing and deleting are for the identity's own record (403).
class WebService {
public:
    /// All three must outlive the service.
    WebService(const Authority& authority, Store& store, SettingsFile& settings)
        : authority_(authority), store_(store), settings_(settings)
    {
    }

    /// Whether a request needs an invitation and no certificate; without one anything else is refused by its
    /// head alone, whatever its body is.
    static bool isEnrolment(const std::string& method, const std::string& target);

    /// Never throws; a failure inside is a 500, with its cause on standard error and not in the reply.
    WebReply handle(const WebRequest& request);

private:
    struct Call;
    struct Route;

    static const Route* findRoute(const std::string& method, const RequestTarget& target, bool& pathKnown);
    static bool isEnrolment(const Route* route);
    WebReply answer(const WebRequest& request, std::string& identityText);
    void checkToken(const WebRequest& request, const Identity& identity);

    WebReply enroll(const Call& call);
    WebReply renew(const Call& call);
    WebReply issueToken(const Call& call);
    WebReply reload(const Call& call);
    WebReply listHosts(const Call& call);
    WebReply listAllHosts();
    WebReply addHost(const Call& call);
    WebReply readHost(const Call& call);
    WebReply putHost(const Call& call);
    WebReply deleteHost(const Call& call);

    WebReply issued(int status, X509_REQ& request, const Identity& identity);

    const Authority& authority_;
    Store& store_;
    SettingsFile& settings_;
};

} // namespace masterd
