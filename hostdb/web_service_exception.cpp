#include "hostdb/web_service_exception.h"

#include "hostdb/error_body.h"

#include <utility>

namespace TQCLNTDB {

WebServiceException::WebServiceException(std::int64_t httpStatus, std::string responseBody)
    : httpStatus_(httpStatus), responseBody_(std::move(responseBody))
{
}

const char* WebServiceException::what() const noexcept
{
    return "Webservice exception encountered";
}

std::int32_t WebServiceException::getTquErrorCode() const noexcept
{
    try {
        return readErrorBody(responseBody_).errorCode;
    } catch (const std::exception&) { // memory is short: the body says nothing
        return WEB_FAILURE_WITHOUT_CODE;
    }
}

} // namespace TQCLNTDB
