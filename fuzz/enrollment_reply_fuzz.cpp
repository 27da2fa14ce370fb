/// A master server's answer to an enrolment. "@certificate@" in an input stands for a certificate that
/// belongs to the host's key, "@stranger@" for one with the same names for another key, "@authority@" for the
/// one that issued both.
#include "enroll/enrollment_reply.h"
#include "fuzz/support/target.h"
#include "fuzz/support/template_text.h"
#include "masterd/authority.h"
#include "platform/server_name.h"

namespace {

/// A host that has asked for a certificate, and the authority that gave it.
struct Enrolment {
    tq::Key key = tq::generateKey();
    masterd::Authority authority = masterd::Authority::create();
    fuzz::TemplateValues values;

    Enrolment()
    {
        const tq::Key other = tq::generateKey();
        values = {{"@certificate@", certificateOf(*key)},
                  {"@stranger@", certificateOf(*other)},
                  {"@authority@", fuzz::jsonEscaped(authority.certificatePem())}};
    }

private:
    /// A certificate with the host's names for any key.
    [[nodiscard]] std::string certificateOf(EVP_PKEY& anyKey) const
    {
        const tq::CertificateRequest request =
            tq::parseCertificateRequest(tq::makeCertificateRequest(anyKey, "h1.example"));
        const masterd::Identity identity{"6f0f0000-0000-4000-8000-000000000001", "h1.example"};
        return fuzz::jsonEscaped(authority.issueHostCertificate(*request, identity, 30));
    }
};

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Enrolment ENROLMENT;
    using fuzz::require;
    const std::string body = fuzz::expanded(fuzz::textOf(data, size), ENROLMENT.values);
    try {
        const enroll::EnrollmentReply reply = enroll::parseEnrollmentReply(body, *ENROLMENT.key);
        require(enroll::isUuid(reply.hostId), "a host identifier is a UUID", reply.hostId);
        require(tq::serverNameFault(reply.hostName) == nullptr, "a host's name is a good one",
                reply.hostName);
        const tq::Certificate certificate = tq::parseCertificate(reply.certificate);
        require(certificate && tq::isKeyOfCertificate(*ENROLMENT.key, *certificate),
                "a certificate is for the host's key");
    } catch (const enroll::UnusableReply& refused) {
        require(*refused.what() != '\0', "a refused answer has a reason");
    }
    return 0;
}
