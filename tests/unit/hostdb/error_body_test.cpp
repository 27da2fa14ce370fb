#include "hostdb/error_body.h"

#include "tests/fakes/platform/fake_platform.h"

#include <gtest/gtest.h>

namespace {

using TQCLNTDB::ErrorBody;
using TQCLNTDB::readErrorBody;

constexpr const char* NO_MESSAGE = "Error parsing response body";

struct Case {
    std::string body;
    std::int32_t code;
    std::string message;
};

void expectRead(const Case& expected)
{
    const ErrorBody read = readErrorBody(expected.body);
    EXPECT_EQ(read.errorCode, expected.code) << expected.body;
    EXPECT_EQ(read.errMessage, expected.message) << expected.body;
}

TEST(ErrorBody, BothMembersAreRead)
{
    expectRead({R"({"errorCode": 8600, "errMessage": "x"})", 8600, "x"});
    expectRead({R"({"errMessage": "Gr\u00f6\u00dfe", "errorCode": 25, "more": [1]})", 25, "Größe"});
    expectRead({R"({"errorCode": -7, "errMessage": ""})", -7, ""});
}

TEST(ErrorBody, EachMemberCountsOnItsOwn)
{
    expectRead({R"({"errorCode": 8600})", 8600, NO_MESSAGE});
    expectRead({R"({"errMessage": "x"})", 7500, "x"});
    expectRead({R"({"errorCode": "8600", "errMessage": "x"})", 7500, "x"});
    expectRead({R"({"errorCode": 8600.0, "errMessage": null})", 7500, NO_MESSAGE});
    expectRead({R"({"errorCode": true, "errMessage": 5})", 7500, NO_MESSAGE});
    expectRead({R"({"ERRORCODE": 1, "ErrMessage": "x"})", 7500, NO_MESSAGE});
}

TEST(ErrorBody, AZeroIsTakenAsItStands)
{
    expectRead({R"({"errorCode": 0, "errMessage": "fine"})", 0, "fine"});
}

TEST(ErrorBody, BeyondThirtyTwoBitsTheLowOnesCount)
{
    expectRead({R"({"errorCode": 4294967301, "errMessage": "x"})", 5, "x"});
    expectRead({R"({"errorCode": 2147483648, "errMessage": "x"})", INT32_MIN, "x"});
    expectRead({R"({"errorCode": 9223372036854775807, "errMessage": "x"})", -1, "x"});
}

TEST(ErrorBody, ABodyThatIsNoJsonObjectSaysNothing)
{
    const std::string damaged[] = {
        "",
        " ",
        "null",
        "[]",
        R"([{"errorCode": 1, "errMessage": "x"}])",
        R"("errorCode")",
        "8600",
        "<html>502</html>",
        R"({"errorCode": 1, "errMessage": "x")",
        R"({"errorCode": 1, "errMessage": "x"} {})",
        R"({"errorCode": 99999999999999999999999999, "errMessage": "x"})",
        "\xEF\xBB\xBF{\"errorCode\": 1}",
        "{\"errMessage\": \"\xFF\"}",
        R"({"errMessage": "a\u0000b"})",
        std::string("{\"errorCode\": 1}\0", 17),
        std::string("{\"errMessage\": \"a\0b\"}", 21),
        std::string(100000, '['),
        std::string(10000000, 'x'),
    };
    for (const std::string& body : damaged) {
        const ErrorBody read = readErrorBody(body);
        EXPECT_EQ(read.errorCode, 7500) << body.substr(0, 100);
        EXPECT_EQ(read.errMessage, NO_MESSAGE) << body.substr(0, 100);
    }
}

TEST(ErrorBody, TheLastOfTwoEqualMembersHolds)
{
    expectRead({R"({"errorCode": 1, "errorCode": 2, "errMessage": "a", "errMessage": "b"})", 2, "b"});
}

TEST(ErrorBody, ReadingWritesNoEntries)
{
    fakes::reset();
    readErrorBody("not JSON");
    EXPECT_TRUE(fakes::platform().log.empty());
}

} // namespace
