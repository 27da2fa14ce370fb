#include "enroll/certificate_order.h"

#include "enroll/enroll_failure.h"
#include "platform/identity_store.h"
#include "platform/json.h"

#include <utility>

namespace enroll {

CertificateOrder orderCertificate(cert_type certType, const char* invitation)
{
    tq::Key key = tq::generateKey();
    if (!key)
        throw Failure(ExitStatus::failed, "no key could be made");
    // The authority writes subject and names itself, so the subject here only has to be there.
    const std::string request = tq::makeCertificateRequest(*key, tq::certTypeName(certType));
    const char* name = "certificateRequest";
    const tq::JsonRef body(invitation == nullptr
                               ? json_pack("{s:s}", name, request.c_str())
                               : json_pack("{s:s, s:s}", "invitation", invitation, name, request.c_str()));
    const tq::JsonText text(json_dumps(body.get(), JSON_COMPACT));
    if (request.empty() || !text)
        throw Failure(ExitStatus::failed, "the certificate request could not be made");
    return {std::move(key), text.get()};
}

} // namespace enroll
