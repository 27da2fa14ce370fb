#include "masterd/host_record.h"

#include <gtest/gtest.h>

namespace {

const masterd::Identity IDENTITY{"11111111-2222-4333-8444-555555555555", "h1.example"};
const std::string HEAD = R"({"uuid":"11111111-2222-4333-8444-555555555555","hostName":"h1.example")";

std::string faultOf(const std::string& body)
{
    const masterd::ComposedRecord record = masterd::composeHostRecord(body, IDENTITY);
    EXPECT_EQ(record.text.empty(), !record.fault.empty()) << body;
    return record.fault;
}

TEST(ComposeHostRecord, EmptyObjectIsARecordOfTheNamesAlone)
{
    EXPECT_EQ(masterd::composeHostRecord("{}", IDENTITY).text, HEAD + "}");
}

TEST(ComposeHostRecord, KeepsEveryKnownKeyInTheOrderOfTheBody)
{
    const std::string known =
        R"("masterServer":"m","osVersion":"v","osType":"t","osReleaseVersion":"r","installedHFXs":"x",)"
        R"("installedPackages":"p","kqUpdatePlatform":"k","hwDescription":"w","cpuArchitecture":"c",)"
        R"("tquVersion":"q","servers":["a","b"],"clusterSharedNames":[],"isSecureEnabled":true,)"
        R"("trustVersion":"1","machineType":"y","hypervisorType":"z","machineTquType":"u")";
    EXPECT_EQ(masterd::composeHostRecord("{" + known + "}", IDENTITY).text, HEAD + "," + known + "}");
}

TEST(ComposeHostRecord, UnknownKeysAreLeftOut)
{
    EXPECT_EQ(masterd::composeHostRecord(R"({"other":{"a":[1]},"osType":"t","OSTYPE":5})", IDENTITY).text,
              HEAD + R"(,"osType":"t"})");
}

TEST(ComposeHostRecord, NamesOfTheBodyCountForNothing)
{
    EXPECT_EQ(masterd::composeHostRecord(R"({"uuid":"u","hostId":"i","hostName":"n"})", IDENTITY).text,
              HEAD + "}");
}

TEST(ComposeHostRecord, OfAKeyThatStandsTwiceTheLastHolds)
{
    EXPECT_EQ(masterd::composeHostRecord(R"({"osType":"a","osType":"b"})", IDENTITY).text,
              HEAD + R"(,"osType":"b"})");
}

TEST(ComposeHostRecord, RefusesWrongTypesNamingTheKey)
{
    for (const char* key :
         {"hostName", "uuid", "hostId", "masterServer", "osType", "osVersion", "osReleaseVersion",
          "installedHFXs", "installedPackages", "kqUpdatePlatform", "hwDescription", "cpuArchitecture",
          "tquVersion", "trustVersion", "machineType", "hypervisorType", "machineTquType"}) {
        for (const char* value : {"1", "null", "true", "[]", "{}", R"(["a"])"})
            EXPECT_EQ(faultOf(std::string("{\"") + key + "\":" + value + "}"),
                      std::string("\"") + key + "\" is not a string");
    }
    for (const char* key : {"servers", "clusterSharedNames"}) {
        for (const char* value : {"\"a\"", "null", "1", "{}", "[1]", R"(["a",null])", R"([["a"]])"})
            EXPECT_EQ(faultOf(std::string("{\"") + key + "\":" + value + "}"),
                      std::string("\"") + key + "\" is not an array of strings");
    }
    for (const char* value : {"\"true\"", "null", "1", "[]", "{}"})
        EXPECT_EQ(faultOf(std::string("{\"isSecureEnabled\":") + value + "}"),
                  "\"isSecureEnabled\" is neither true nor false");
}

TEST(ComposeHostRecord, RefusesWhatIsNoJsonObject)
{
    for (const char* body : {"[]", "[{}]"})
        EXPECT_EQ(faultOf(body), "the body is not a JSON object") << body;
    for (const std::string& body : {std::string(),
                                    std::string(" "),
                                    std::string("null"),
                                    std::string("1"),
                                    std::string("\"a\""),
                                    std::string("{"),
                                    std::string("{}}"),
                                    std::string("{} x"),
                                    std::string("{}{}"),
                                    std::string("{'a':1}"),
                                    std::string("\xef\xbb\xbf{}"),
                                    std::string(R"({"osType":1e999})"),
                                    std::string("{\"osType\":\"\xff\"}"),
                                    std::string("{\"osType\":\"\xc0\xaf\"}"),
                                    std::string(R"({"osType":"\u0000"})"),
                                    std::string(R"({"osType":"\ud800"})"),
                                    std::string("{\"osType\":\"\0\"}", 13),
                                    std::string("/**/{}"),
                                    std::string(100000, '['),
                                    std::string(100000, '[') + std::string(100000, ']')})
        EXPECT_EQ(faultOf(body).rfind("the body is not JSON", 0), 0U) << body.substr(0, 50);
}

} // namespace
