#include "platform/http_answer.h"

#include <gtest/gtest.h>

using tq::describeAnswer;

TEST(DescribeAnswer, HoldsTheMessageOfTheBody)
{
    EXPECT_EQ(describeAnswer(403, R"({"errorCode": 9, "errMessage": "host is revoked"})"),
              "HTTP status 403 (host is revoked)");
}

TEST(DescribeAnswer, IsTheStatusAloneWhenThereIsNoMessage)
{
    for (const char* body : {"", "<html>", "[]", "{}", R"({"errMessage": 5})", R"({"errMessage": ""})"})
        EXPECT_EQ(describeAnswer(500, body), "HTTP status 500") << body;
    const std::string large = R"({"errMessage": "x", "more": ")" + std::string(70'000, 'x') + "\"}";
    EXPECT_EQ(describeAnswer(500, large), "HTTP status 500");
}

TEST(DescribeAnswer, CutsTheMessageAndLetsNoControlCharacterThrough)
{
    EXPECT_EQ(describeAnswer(500, R"({"errMessage": ")" + std::string(1000, 'x') + "\"}"),
              "HTTP status 500 (" + std::string(500, 'x') + ")");
    EXPECT_EQ(describeAnswer(500, R"({"errMessage": "a\u001b[31m\r\nb\u202e"})"),
              "HTTP status 500 (a?[31m\?\?b\?\?\?)");
}
