/// The body of a failed response of a host database: {"errorCode": <integer>, "errMessage": "<text>"}.
#pragma once

#include <cstdint>
#include <string>

namespace TQCLNTDB {

/// What a body says about the failure.
struct ErrorBody {
    /// "errorCode", of a number beyond 32 bits the low 32; 7500 when the body is no JSON object or has no
    /// such integer. A 0 is taken as it stands.
    std::int32_t errorCode;
    /// "errMessage"; "Error parsing response body" when the body is no JSON object or has no such text.
    std::string errMessage;
};

/// Reads any bytes; the two members are looked at independently. Throws only when memory is short.
ErrorBody readErrorBody(const std::string& body);

} // namespace TQCLNTDB
