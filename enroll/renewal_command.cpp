#include "enroll/renewal_command.h"

#include "enroll/identity_list.h"
#include "enroll/renewal.h"
#include "enroll/stored_identities.h"
#include "enroll/terminal.h"
#include "platform/debuglog.h"

#include <algorithm>
#include <ctime>
#include <functional>
#include <vector>

namespace enroll {

namespace {

/// The identities that the order names, whether they need a renewal or not.
std::vector<tq::Identity> orderedIdentities(const RenewalOrder& order)
{
    std::vector<tq::Identity> identities = readIdentities();
    if (order.server.empty()) {
        if (identities.empty() && !order.ifNeeded)
            throw Failure(ExitStatus::noSuchIdentity, "this host has no identity to renew");
        return identities;
    }
    const tq::Identity* found = tq::findIdentity(identities, order.server, order.certType);
    if (found == nullptr)
        throw Failure(ExitStatus::noSuchIdentity, std::string("this host has no ") +
                                                      tq::certTypeName(order.certType) +
                                                      " identity towards " + order.server);
    return {*found};
}

/// A certificate that cannot be read needs what follows: a renewal, or the sentence about why there is none.
bool isNeeded(const tq::Identity& identity)
{
    const std::optional<CertificateLife> life = readCertificateLife(tq::identityFiles(identity).certificate);
    return !life || chooseRenewal(*life, std::time(nullptr)) != RenewalNeed::none;
}

void renewOne(const tq::Identity& identity, int port, std::ostream& out)
{
    const tq::Identity renewed = renew(identity, port, tq::webLimits(tq::readPlatformSettings()));
    const std::string sentence = std::string("Renewed the ") + tq::certTypeName(renewed.certType) +
                                 " identity towards " + renewed.server + "; the certificate ends " +
                                 describeEndOf(renewed, std::time(nullptr));
    LogLine(LogLevel::progress, "runRenewals") << sentence;
    show(out, sentence + '\n', "the identity is renewed, but the report of it");
}

} // namespace

ExitStatus runRenewals(const RenewalOrder& order, std::ostream& out, std::ostream& err)
{
    if (!order.ifNeeded)
        openLog();
    std::vector<tq::Identity> identities = orderedIdentities(order);
    if (order.ifNeeded) {
        identities.erase(std::remove_if(identities.begin(), identities.end(), std::not_fn(isNeeded)),
                         identities.end());
        if (identities.empty())
            return ExitStatus::done;
        openLog();
    }
    ExitStatus status = ExitStatus::done;
    for (const tq::Identity& identity : identities) {
        try {
            renewOne(identity, order.port, out);
        } catch (const Failure& failure) {
            LogLine(LogLevel::error, "runRenewals") << failure.what();
            complain(err, failure.what());
            if (status == ExitStatus::done)
                status = failure.status();
        }
    }
    return status;
}

} // namespace enroll
