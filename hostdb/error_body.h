/// The body of a failed response of a host database: {"errorCode": <integer>, "errMessage": "<text>"}.
#pragma once

#include "platform/status.h"

#include <cstdint>
#include <string>

namespace TQCLNTDB {

/// What a failure counts as when its body gives no code.
inline constexpr std::int32_t WEB_FAILURE_WITHOUT_CODE = EC_no_installed_version;

/// What a body says about the failure.
struct ErrorBody {
    /// "errorCode", of a number beyond 32 bits the low 32; WEB_FAILURE_WITHOUT_CODE when the body is no JSON
    /// object or has no such integer. A 0 is taken as it stands.
    std::int32_t errorCode;
    /// "errMessage"; "Error parsing response body" when the body is no JSON object or has no such text.
    std::string errMessage;
};

/// Reads any bytes; the two members are looked at independently. Throws only when memory is short.
ErrorBody readErrorBody(const std::string& body);

} // namespace TQCLNTDB
