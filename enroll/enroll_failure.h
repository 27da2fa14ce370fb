/// How tqenroll ends when it cannot do what it was asked.
#pragma once

#include <stdexcept>
#include <string>

namespace enroll {

/// Exit statuses of tqenroll; the help text lists them. `--status` gives 0 to 2 meanings of its own, those of
/// Verdict in status_report.h, once it has told the status.
enum class ExitStatus : int {
    done = 0,
    failed = 1,            ///< an internal failure, or a result that could not be shown
    usage = 2,             ///< the command line is wrong
    notRoot = 3,           ///< only root may do this
    notReachable = 4,      ///< the server cannot be reached or does not answer in time
    notTrusted = 5,        ///< the connection to the server is not trusted
    wrongFingerprint = 6,  ///< the server's authority has another fingerprint
    invitationRefused = 7, ///< the invitation is unknown, used, expired or for another host
    replyUnusable = 8,     ///< the server's answer is not what was asked for
    storeFailed = 9,       ///< the identity store is damaged or cannot be written
    noSuchIdentity = 10,   ///< the store has no such identity
    invitationNeeded = 11, ///< the certificate has ended or is refused: a new invitation is needed
    statusNotTold = 12,    ///< --status that failed or could not be shown, or is wrong in its command line
};

/// Ends the run: an exit status, and one sentence without a full stop for standard error.
class Failure : public std::runtime_error {
public:
    Failure(ExitStatus status, const std::string& sentence) : std::runtime_error(sentence), status_(status) {}

    [[nodiscard]] ExitStatus status() const { return status_; }

private:
    ExitStatus status_;
};

} // namespace enroll
