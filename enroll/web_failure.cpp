#include "enroll/web_failure.h"

#include "enroll/enroll_failure.h"
#include "platform/status.h"

namespace enroll {

void failTransfer(const std::string& server, int port, const tq::TransferResult& result,
                  const std::string& ending)
{
    const std::string subject = "server " + server + " on port " + std::to_string(port);
    const std::string cause = ": " + result.cause + ending;
    switch (result.status) {
    case EC_cannot_connect:
    case EC_web_timeout:
        throw Failure(ExitStatus::notReachable, subject + " is not reachable" + cause);
    case EC_web_not_trusted:
    case EC_web_certificate_refused:
        throw Failure(ExitStatus::notTrusted, subject + " is not trusted" + cause);
    case EC_web_request_failed: // on this side
        throw Failure(ExitStatus::failed, "this host could not ask " + subject + cause);
    default:
        throw Failure(ExitStatus::replyUnusable, subject + " gave no usable answer" + cause);
    }
}

} // namespace enroll
