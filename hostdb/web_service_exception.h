/// The answer of a host database that was not the one asked for.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace TQCLNTDB {

/// Thrown by the host database client when a response's HTTP status is not the operation's success status.
class WebServiceException : public std::exception {
public:
    WebServiceException(std::int64_t httpStatus, std::string responseBody);

    /// Always "Webservice exception encountered".
    const char* what() const noexcept override;

    /// Status code of the failed response.
    std::int64_t httpStatus() const { return httpStatus_; }

    /// Body of the failed response, as received.
    const std::string& responseBody() const { return responseBody_; }

    /// The body's integer member "errorCode", or WEB_FAILURE_WITHOUT_CODE (7500). Never throws.
    std::int32_t getTquErrorCode() const noexcept;

private:
    std::int64_t httpStatus_;
    std::string responseBody_;
};

} // namespace TQCLNTDB
