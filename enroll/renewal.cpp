#include "enroll/renewal.h"

#include "enroll/certificate_order.h"
#include "enroll/enroll_failure.h"
#include "enroll/enrollment_reply.h"
#include "enroll/stored_identities.h"
#include "enroll/utc_time.h"
#include "enroll/web_failure.h"
#include "platform/authorized_session.h"
#include "platform/http_answer.h"
#include "platform/http_session.h"
#include "platform/status.h"

#include <ctime>
#include <memory>

namespace enroll {

namespace {

constexpr const char* RENEWAL_PATH = "torquenix/security/renewals";

std::string nameOf(const tq::Identity& identity)
{
    return std::string("the ") + tq::certTypeName(identity.certType) + " identity towards " + identity.server;
}

/// Ends the sentences about an identity that cannot renew itself any more.
std::string askForInvitation(const tq::Identity& identity, const std::string& condition = "")
{
    return "; " + condition + "enrol again with a new invitation of that server (tqmasterd invite --host " +
           identity.hostName + (identity.certType == CERT_TYPE_CLUSTER ? " --cluster" : "") + ")";
}

[[noreturn]] void failRefused(const tq::Identity& identity, const std::string& cause,
                              const std::string& condition = "")
{
    throw Failure(ExitStatus::invitationNeeded, "server " + identity.server + " does not renew " +
                                                    nameOf(identity) + ": " + cause +
                                                    askForInvitation(identity, condition));
}

[[noreturn]] void failReplaced(const tq::Identity& identity)
{
    throw Failure(ExitStatus::noSuchIdentity,
                  nameOf(identity) +
                      " was removed or replaced by another run meanwhile, so this renewal is dropped");
}

/// Without a connection: the server would refuse the certificate, with fewer words.
void requireLivingCertificate(const tq::Identity& identity)
{
    const std::int64_t now = std::time(nullptr);
    const std::optional<CertificateLife> life = readCertificateLife(tq::identityFiles(identity).certificate);
    if (life && chooseRenewal(*life, now) == RenewalNeed::ended)
        throw Failure(ExitStatus::invitationNeeded,
                      "the certificate of " + nameOf(identity) + " has ended at " + utcTime(life->end) +
                          " and it is " + utcTime(now) + " by this host's clock, so it cannot be renewed" +
                          askForInvitation(identity));
}

/// Sends the request; the body of the 200.
std::string askForCertificate(const tq::Identity& identity, int port, const std::string& body,
                              const tq::WebLimits& limits)
{
    const tq::IdentityFiles files = tq::identityFiles(identity);
    tq::AuthorizedSession session(
        std::make_unique<tq::HttpSession>(identity.server, port, tq::identityTrust(files), limits),
        files.token);
    tq::HttpRequest request;
    request.method = "POST";
    request.path = RENEWAL_PATH;
    request.body = &body;
    tq::HttpReply reply;
    const tq::AuthorizedResult result = session.send(request, reply);
    if (result.transfer.status != EC_success && !result.transfer.sent && tq::isReplaced(identity))
        failReplaced(identity);
    if (result.transfer.status == EC_web_certificate_refused && readCertificateLife(files.certificate))
        failRefused(identity, result.transfer.cause, "if the clocks of both machines are right, ");
    if (result.transfer.status == EC_web_certificate_refused || result.tokenRefusal == tq::HTTP_FORBIDDEN)
        failRefused(identity, result.transfer.cause);
    if (result.transfer.status != EC_success)
        failTransfer(identity.server, port, result.transfer);
    if (reply.status == tq::HTTP_FORBIDDEN)
        failRefused(identity, tq::describeAnswer(reply.status, reply.body));
    if (reply.status != tq::HTTP_OK)
        throw Failure(ExitStatus::replyUnusable, "server " + identity.server + " did not renew " +
                                                     nameOf(identity) + ": " +
                                                     tq::describeAnswer(reply.status, reply.body));
    return reply.body;
}

EnrollmentReply checkedReply(const tq::Identity& identity, const std::string& answer, const EVP_PKEY& key)
{
    try {
        EnrollmentReply reply = parseEnrollmentReply(answer, key);
        if (reply.hostId != identity.hostId)
            throw UnusableReply("it is for the host identifier " + reply.hostId + ", not for " +
                                identity.hostId);
        return reply;
    } catch (const UnusableReply& fault) {
        throw Failure(ExitStatus::replyUnusable,
                      "the answer of server " + identity.server + " cannot be used: " + fault.what());
    }
}

tq::Identity stored(const tq::Identity& renewed, const tq::IdentityPem& pem)
{
    tq::Identity identity;
    std::string cause;
    switch (tq::renewIdentity(renewed, pem, &identity, &cause)) {
    case EC_success:
        return identity;
    case EC_identity_store_missing:
    case EC_identity_not_found:
        failReplaced(renewed);
    default:
        throw Failure(ExitStatus::storeFailed, "the renewed identity could not be stored: " + cause);
    }
}

} // namespace

RenewalNeed chooseRenewal(const CertificateLife& life, std::int64_t now)
{
    if (life.end < now)
        return RenewalNeed::ended;
    return now >= life.begin + (life.end - life.begin) * 2 / 3 ? RenewalNeed::due : RenewalNeed::none;
}

std::optional<CertificateLife> readCertificateLife(const std::string& path)
{
    const tq::Certificate certificate = readCertificateFile(path);
    if (!certificate)
        return std::nullopt;
    const std::optional<std::int64_t> begin = tq::certificateBeginTime(*certificate);
    const std::optional<std::int64_t> end = tq::certificateEndTime(*certificate);
    return begin && end ? std::optional<CertificateLife>({*begin, *end}) : std::nullopt;
}

tq::Identity renew(const tq::Identity& identity, int port, const tq::WebLimits& limits)
{
    requireLivingCertificate(identity);
    const auto [key, body] = orderCertificate(identity.certType, nullptr);
    const std::string answer = askForCertificate(identity, port, body, limits);
    const EnrollmentReply reply = checkedReply(identity, answer, *key);

    tq::Identity renewed = identity;
    renewed.hostName = reply.hostName;
    renewed.trustVersion = reply.trustVersion;
    return stored(renewed, {reply.certificate, tq::keyToPem(*key), reply.caCertificates});
}

} // namespace enroll
