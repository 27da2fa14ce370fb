/// One enrolment: this host gets an identity towards a master server.
#pragma once

#include "platform/curl_handle.h"
#include "platform/identity_store.h"

#include <string>
#include <vector>

namespace enroll {

struct EnrollmentOrder {
    std::string server;
    int port = 0;
    std::string invitation;
    std::string fingerprint; ///< of the server's authority, as parseFingerprint() gives it
    cert_type certType = CERT_TYPE_HOST;
    std::vector<std::string> ownNames = {}; ///< one of them must be the invited host; none takes any host
};

/// Enrols, and adds the identity to the store, where it takes the place of an earlier one of the same server
/// and type. In this order: the store can be written; the server's authority has the fingerprint, over a
/// connection that sends nothing; the invitation goes over a second connection that trusts this authority
/// alone and whose server has the right name; the answer is what was asked for and for this host; key and
/// certificate are stored together. Returns the identity. Throws Failure; the store is then as it was.
tq::Identity enroll(const EnrollmentOrder& order, const tq::WebLimits& limits);

} // namespace enroll
