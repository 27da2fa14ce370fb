#include "platform/http_answer.h"

#include "platform/json.h"

#include <algorithm>

namespace tq {

namespace {

constexpr std::size_t MESSAGE_MAX_BYTES = 500;

/// An error page of megabytes is not worth parsing for one sentence.
constexpr std::size_t BODY_MAX_BYTES = std::size_t{64} * 1024;

std::string errorBodyMessage(std::string_view body)
{
    if (body.size() > BODY_MAX_BYTES)
        return "";
    const JsonRef object(json_loadb(body.data(), body.size(), 0, nullptr));
    const json_t* message = json_object_get(object.get(), "errMessage");
    if (!json_is_string(message))
        return "";
    std::string text(json_string_value(message), std::min(json_string_length(message), MESSAGE_MAX_BYTES));
    // It also goes to terminals, which obey control characters.
    std::replace_if(
        text.begin(), text.end(), [](char byte) { return byte < ' ' || byte > '~'; }, '?');
    return text;
}

} // namespace

std::string describeAnswer(std::int64_t httpStatus, std::string_view body)
{
    std::string text = "HTTP status " + std::to_string(httpStatus);
    const std::string message = errorBodyMessage(body);
    return message.empty() ? text : text + " (" + message + ")";
}

} // namespace tq
