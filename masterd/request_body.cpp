#include "masterd/request_body.h"

#include <strings.h>

namespace masterd {

namespace {

constexpr const char* LENGTH_HEADER = "Content-Length";
constexpr const char* CODING_HEADER = "Transfer-Encoding";
/// As many digits as any honest length has; more would overflow.
constexpr std::size_t LENGTH_MAX_DIGITS = 18;

RequestBody refused(int status, const char* fault)
{
    return {"", status, fault};
}

RequestBody tooLarge()
{
    return refused(413, "the body is over 256 KiB");
}

bool isLength(const std::string& text)
{
    return !text.empty() && text.size() <= LENGTH_MAX_DIGITS &&
           text.find_first_not_of("0123456789") == std::string::npos;
}

/// What is wrong with how the request tells its body's end; null for nothing.
const char* framingFault(const httplib::Request& request)
{
    const std::size_t lengths = request.get_header_value_count(LENGTH_HEADER);
    const std::size_t codings = request.get_header_value_count(CODING_HEADER);
    if (lengths + codings > 1)
        return "the body's end is told twice";
    if (lengths == 1 && !isLength(request.get_header_value(LENGTH_HEADER)))
        return "the body's length is not a number";
    if (codings == 1 && strcasecmp(request.get_header_value(CODING_HEADER).c_str(), "chunked") != 0)
        return "the only transfer coding is \"chunked\"";
    return nullptr;
}

RequestBody readAll(const httplib::ContentReader& reader)
{
    RequestBody body;
    bool isTooLarge = false;
    const bool complete = reader([&](const char* data, std::size_t size) {
        isTooLarge = body.text.size() + size > MAX_BODY_BYTES;
        if (!isTooLarge)
            body.text.append(data, size);
        return !isTooLarge;
    });
    if (isTooLarge)
        return tooLarge();
    return complete ? body : refused(400, "the body ends early or cannot be decoded");
}

} // namespace

RequestBody readRequestBody(const httplib::Request& request, const httplib::ContentReader* reader)
{
    if (const char* fault = framingFault(request); fault != nullptr)
        return refused(400, fault);
    const bool isChunked = request.has_header(CODING_HEADER);
    const auto length = request.get_header_value<std::uint64_t>(LENGTH_HEADER);
    if (!isChunked && length == 0)
        return {};
    if (length > MAX_BODY_BYTES)
        return tooLarge();
    if (reader == nullptr)
        return refused(400, "a body does not belong to this method");
    if (request.is_multipart_form_data())
        return refused(400, "the body is a form, not JSON");
    return readAll(*reader);
}

} // namespace masterd
