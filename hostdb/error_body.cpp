#include "hostdb/error_body.h"

#include "platform/json.h"

namespace TQCLNTDB {

ErrorBody readErrorBody(const std::string& body)
{
    ErrorBody result{WEB_FAILURE_WITHOUT_CODE, "Error parsing response body"};
    const tq::JsonRef document(json_loadb(body.data(), body.size(), 0, nullptr));

    if (const json_t* code = json_object_get(document.get(), "errorCode"); json_is_integer(code))
        result.errorCode = static_cast<std::int32_t>(json_integer_value(code));
    if (const json_t* message = json_object_get(document.get(), "errMessage"); json_is_string(message))
        result.errMessage.assign(json_string_value(message), json_string_length(message));
    return result;
}

} // namespace TQCLNTDB
