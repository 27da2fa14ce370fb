#include "enroll/stored_identities.h"

#include "enroll/enroll_failure.h"
#include "platform/file_io.h"
#include "platform/status.h"

#include <optional>

namespace enroll {

void failStore(const std::string& cause)
{
    throw Failure(ExitStatus::storeFailed, "the identity store cannot be used: " + cause);
}

std::vector<tq::Identity> readIdentities()
{
    std::vector<tq::Identity> identities;
    std::string cause;
    const int status = tq::loadIdentityStore(identities, &cause);
    if (status != EC_success && status != EC_identity_store_missing)
        failStore(cause);
    return identities;
}

tq::Certificate readCertificateFile(const std::string& path)
{
    constexpr std::size_t MAX_BYTES = std::size_t{1} << 20U;
    const std::optional<std::string> pem = tq::readFile(path, MAX_BYTES, nullptr);
    return pem ? tq::parseCertificate(*pem) : nullptr;
}

} // namespace enroll
