/// The master server's answer to an enrolment or a renewal.
#pragma once

#include "platform/crypto.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace enroll {

/// What an enrolment or a renewal brings, checked.
struct EnrollmentReply {
    std::string hostId;
    std::string hostName; ///< from the certificate
    std::string certificate;
    std::string caCertificates;
    std::optional<std::string> trustVersion;
};

/// What is wrong with an answer, as the end of a sentence.
class UnusableReply : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Whether a text is a UUID in lower or upper case, 8-4-4-4-12 digits.
bool isUuid(std::string_view text);

/// Parses and checks the body of a 201 or 200: `hostId` is a UUID, the certificate belongs to `key`, names
/// "urn:uuid:<hostId>" and one host name at least, and `caCertificates` holds certificates. Throws
/// UnusableReply otherwise.
EnrollmentReply parseEnrollmentReply(std::string_view body, const EVP_PKEY& key);

} // namespace enroll
