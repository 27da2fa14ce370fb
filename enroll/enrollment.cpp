#include "enroll/enrollment.h"

#include "enroll/certificate_order.h"
#include "enroll/enroll_failure.h"
#include "enroll/enrollment_reply.h"
#include "enroll/own_names.h"
#include "enroll/server_authority.h"
#include "enroll/stored_identities.h"
#include "enroll/web_failure.h"
#include "platform/http_answer.h"
#include "platform/http_session.h"
#include "platform/paths.h"
#include "platform/status.h"

namespace enroll {

namespace {

constexpr const char* ENROLLMENT_PATH = "torquenix/security/enrollments";

/// Ends of the sentence about a failure after the invitation was sent.
constexpr const char* MAYBE_SPENT = "; the invitation may be spent, so ask for a new one";
constexpr const char* SPENT = "; the invitation is spent, so ask for a new one";

/// An invitation is spent by its first use, so a store that could not take the identity is found out before.
void requireUsableStore(const EnrollmentOrder& order)
{
    std::string cause;
    if (tq::tryIdentityStore(order.server, order.certType, &cause) != EC_success)
        failStore(cause);
}

/// The authority of the server in PEM, once its fingerprint is the expected one.
std::string trustedAuthority(const EnrollmentOrder& order, const tq::WebLimits& limits)
{
    tq::Certificate authority;
    const tq::TransferResult result = takeServerAuthority(order.server, order.port, limits, authority);
    if (result.status != EC_success)
        failTransfer(order.server, order.port, result);
    if (!tq::equalInConstantTime(tq::certificateFingerprint(*authority), order.fingerprint))
        throw Failure(ExitStatus::wrongFingerprint,
                      "the authority of server " + order.server +
                          " has another fingerprint than the given one, so the invitation was not sent; "
                          "take both anew from tqmasterd invite, and if that changes nothing, then another "
                          "machine answers under this name");
    return tq::certificateToPem(*authority);
}

/// Sends the invitation over a connection that trusts this authority alone; the body of the 201.
std::string redeemInvitation(const EnrollmentOrder& order, const std::string& authority,
                             const std::string& body, const tq::WebLimits& limits)
{
    tq::TlsTrust trust;
    trust.authoritiesPem = authority;
    tq::HttpSession session(order.server, order.port, trust, limits);
    tq::HttpRequest request;
    request.method = "POST";
    request.path = ENROLLMENT_PATH;
    request.body = &body;
    tq::HttpReply reply;
    if (const tq::TransferResult result = session.send(request, reply); result.status != EC_success)
        failTransfer(order.server, order.port, result, result.sent ? MAYBE_SPENT : "");
    if (reply.status == tq::HTTP_FORBIDDEN)
        throw Failure(
            ExitStatus::invitationRefused,
            "server " + order.server +
                " does not take the invitation, which is unknown, used or expired; ask for a new one");
    if (reply.status != tq::HTTP_CREATED)
        throw Failure(ExitStatus::replyUnusable, "server " + order.server + " did not enrol this host: " +
                                                     tq::describeAnswer(reply.status, reply.body) +
                                                     MAYBE_SPENT);
    return reply.body;
}

EnrollmentReply checkedReply(const EnrollmentOrder& order, const std::string& answer, const EVP_PKEY& key)
{
    try {
        return parseEnrollmentReply(answer, key);
    } catch (const UnusableReply& fault) {
        throw Failure(ExitStatus::replyUnusable,
                      "the answer of server " + order.server + " cannot be used: " + fault.what() + SPENT);
    }
}

/// The server alone knows for whom an invitation is, and tells it with the certificate.
void requireInvitationForThisHost(const EnrollmentOrder& order, const std::string& hostName)
{
    if (order.ownNames.empty() || isOneOf(order.ownNames, hostName))
        return;
    const std::string& name = order.ownNames.front();
    throw Failure(ExitStatus::invitationRefused,
                  "the invitation was for host " + hostName + ", this host is " + name +
                      ", and it is spent now; ask for one for this host (tqmasterd invite --host " + name +
                      "), or set CLIENT_NAME in " + TQ_CONFIG_FILE + " if the invited name is this host's");
}

} // namespace

tq::Identity enroll(const EnrollmentOrder& order, const tq::WebLimits& limits)
{
    requireUsableStore(order);
    const std::string authority = trustedAuthority(order, limits);
    const auto [key, body] = orderCertificate(order.certType, order.invitation.c_str());
    const std::string answer = redeemInvitation(order, authority, body, limits);
    const EnrollmentReply reply = checkedReply(order, answer, *key);
    requireInvitationForThisHost(order, reply.hostName);

    tq::Identity identity;
    identity.server = order.server;
    identity.certType = order.certType;
    identity.hostId = reply.hostId;
    identity.hostName = reply.hostName;
    identity.trustVersion = reply.trustVersion;
    identity.caMode = CA_USAGE_INTERNAL;
    const tq::IdentityPem pem{reply.certificate, tq::keyToPem(*key), reply.caCertificates};
    std::string cause;
    if (tq::saveIdentity(identity, pem, &identity, &cause) != EC_success)
        throw Failure(ExitStatus::storeFailed, "the new identity could not be stored: " + cause + SPENT);
    return identity;
}

} // namespace enroll
