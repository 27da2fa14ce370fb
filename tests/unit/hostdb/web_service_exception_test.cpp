#include "hostdb/web_service_exception.h"

#include <gtest/gtest.h>

namespace {

using TQCLNTDB::WebServiceException;

TEST(WebServiceException, CarriesStatusAndBody)
{
    const WebServiceException failure(std::int64_t{1} << 40, "body");
    EXPECT_EQ(failure.httpStatus(), std::int64_t{1} << 40);
    EXPECT_EQ(failure.responseBody(), "body");
}

TEST(WebServiceException, IsAStandardExceptionWithAFixedText)
{
    const WebServiceException failure(500, "body");
    const std::exception& standard = failure;
    EXPECT_STREQ(standard.what(), "Webservice exception encountered");
}

TEST(WebServiceException, TheErrorCodeIsThatOfTheBody)
{
    EXPECT_EQ(WebServiceException(500, R"({"errorCode": 8600})").getTquErrorCode(), 8600);
    EXPECT_EQ(WebServiceException(500, R"({"errorCode": 0})").getTquErrorCode(), 0);
}

TEST(WebServiceException, TheErrorCodeIs7500ForABodyWithoutOne)
{
    for (const char* body : {"", "not JSON", R"({"errorCode": "8600"})", R"({"errMessage": "x"})", "[1]"})
        EXPECT_EQ(WebServiceException(500, body).getTquErrorCode(), 7500) << body;
}

TEST(WebServiceException, AskingForTheErrorCodeNeverThrows)
{
    const WebServiceException failure(500, "");
    static_assert(noexcept(failure.getTquErrorCode()));
    EXPECT_NO_THROW(failure.getTquErrorCode());
}

} // namespace
