#include "platform/token_store.h"

#include "tests/fakes/log/recording_log.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

using tq::AccessToken;

namespace {

const std::string DIRECTORY = "/tmp/token_store_test";
const std::string FILE_NAME = DIRECTORY + "/token.host.master1";

class TokenFile : public ::testing::Test {
protected:
    TokenFile()
    {
        std::filesystem::remove_all(DIRECTORY);
        std::filesystem::create_directory(DIRECTORY);
        fakes::recordedLog().clear();
    }

    ~TokenFile() override { std::filesystem::remove_all(DIRECTORY); }

    static void write(const std::string& text) { std::ofstream(FILE_NAME) << text; }

    static std::string text()
    {
        std::ostringstream whole;
        whole << std::ifstream(FILE_NAME).rdbuf();
        return whole.str();
    }
};

} // namespace

TEST(ParseTokenFile, ReadsTokenAndTime)
{
    const auto token = tq::parseTokenFile(R"({"token": "abc.DEF-123", "expiresAt": 1800000000})");
    ASSERT_TRUE(token);
    EXPECT_EQ(token->text, "abc.DEF-123");
    EXPECT_EQ(token->expiresAt, 1800000000);
}

TEST(ParseTokenFile, IgnoresUnknownKeys)
{
    EXPECT_TRUE(tq::parseTokenFile(R"({"token": "a", "expiresAt": 1, "scope": "x"})"));
}

TEST(ParseTokenFile, RefusesWhatIsNoToken)
{
    const std::string damaged[] = {
        "",
        "null",
        "[]",
        "\"token\"",
        "{}",
        R"({"token": "a"})",
        R"({"expiresAt": 1})",
        R"({"token": 5, "expiresAt": 1})",
        R"({"token": "a", "expiresAt": "1"})",
        R"({"token": "a", "expiresAt": 1.5})",
        R"({"token": "", "expiresAt": 1})",
        R"({"token": "a b", "expiresAt": 1})",
        R"({"token": "a\r\nX-Other: b", "expiresAt": 1})",
        R"({"token": "a\u0000b", "expiresAt": 1})",
        R"({"token": "\u00fc", "expiresAt": 1})",
        R"({"token": "a", "expiresAt": 1)",
        R"({"token": "a", "expiresAt": 1} x)",
        R"({"token": "a", "expiresAt": 99999999999999999999})",
        "\xEF\xBB\xBF{\"token\": \"a\", \"expiresAt\": 1}",
        std::string("{\"token\"\0: \"a\"}", 15),
        std::string(100000, '['),
    };
    for (const std::string& text : damaged)
        EXPECT_FALSE(tq::parseTokenFile(text)) << text.substr(0, 80);
}

TEST(IsTokenText, HoldsPrintableAsciiUpToItsLimit)
{
    EXPECT_TRUE(tq::isTokenText("a"));
    EXPECT_TRUE(tq::isTokenText("!~"));
    EXPECT_TRUE(tq::isTokenText(std::string(8192, 'x')));
    EXPECT_FALSE(tq::isTokenText(std::string(8193, 'x')));
    EXPECT_FALSE(tq::isTokenText(""));
    EXPECT_FALSE(tq::isTokenText("a\n"));
    EXPECT_FALSE(tq::isTokenText("\ra"));
    EXPECT_FALSE(tq::isTokenText("\x7f"));
}

TEST(ParseTokenReply, AddsTheValidityToNow)
{
    const auto token = tq::parseTokenReply(R"({"token": "t", "expiresIn": 3600})", 1000);
    ASSERT_TRUE(token);
    EXPECT_EQ(token->text, "t");
    EXPECT_EQ(token->expiresAt, 4600);
}

TEST(ParseTokenReply, LimitsTheValidityAndRefusesANegativeOne)
{
    const auto longest = tq::parseTokenReply(R"({"token": "t", "expiresIn": 9223372036854775807})", 1000);
    ASSERT_TRUE(longest);
    EXPECT_EQ(longest->expiresAt, 1000 + 366LL * 24 * 3600);
    EXPECT_FALSE(tq::parseTokenReply(R"({"token": "t", "expiresIn": -1})", 1000));
    EXPECT_FALSE(tq::parseTokenReply(R"({"token": "t", "expiresAt": 5})", 1000));
    EXPECT_FALSE(tq::parseTokenReply("<html>", 1000));
}

TEST_F(TokenFile, WhatIsStoredIsReadBack)
{
    ASSERT_TRUE(tq::storeToken(FILE_NAME, {"secret", 1800000000}));
    const auto token = tq::readToken(FILE_NAME);
    ASSERT_TRUE(token);
    EXPECT_EQ(token->text, "secret");
    EXPECT_EQ(token->expiresAt, 1800000000);
    struct stat facts {};
    ASSERT_EQ(stat(FILE_NAME.c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777U, 0600U);
    EXPECT_TRUE(fakes::recordedLog().empty());
}

TEST_F(TokenFile, AnAbsentOneIsNoneWithoutAWord)
{
    EXPECT_FALSE(tq::readToken(FILE_NAME));
    EXPECT_TRUE(fakes::recordedLog().empty());
}

TEST_F(TokenFile, ADamagedOneIsNoneWithOneLine)
{
    for (const char* text : {"", "{", "\x01\x02", R"({"token": "secret-part"})"}) {
        fakes::recordedLog().clear();
        write(text);
        EXPECT_FALSE(tq::readToken(FILE_NAME)) << text;
        ASSERT_EQ(fakes::recordedLog().size(), 1U) << text;
        EXPECT_EQ(fakes::recordedLog()[0],
                  (fakes::RecordedEntry{8, "Token file " + FILE_NAME + " is damaged and counts as absent",
                                        "readToken"}));
    }
}

TEST_F(TokenFile, AGigabyteIsNoneWithOneLineAndWithoutReadingItAll)
{
    write("x");
    ASSERT_EQ(truncate(FILE_NAME.c_str(), off_t{1} << 30), 0);
    EXPECT_FALSE(tq::readToken(FILE_NAME));
    EXPECT_EQ(fakes::recordedLog().size(), 1U);
}

TEST_F(TokenFile, ALinkOrFolderIsNoneWithOneLine)
{
    ASSERT_EQ(symlink("/etc/passwd", FILE_NAME.c_str()), 0);
    EXPECT_FALSE(tq::readToken(FILE_NAME));
    EXPECT_EQ(fakes::recordedLog().size(), 1U);

    fakes::recordedLog().clear();
    std::filesystem::remove(FILE_NAME);
    std::filesystem::create_directory(FILE_NAME);
    EXPECT_FALSE(tq::readToken(FILE_NAME));
    EXPECT_EQ(fakes::recordedLog().size(), 1U);
}

TEST_F(TokenFile, AFailedStoreLeavesTheOldOne)
{
    ASSERT_TRUE(tq::storeToken(FILE_NAME, {"old", 1}));
    EXPECT_FALSE(tq::storeToken(DIRECTORY + "/absent/token", {"new", 2}));
    EXPECT_EQ(fakes::countRecorded(16, "absent/token"), 1U);
    EXPECT_NE(text().find("old"), std::string::npos);
}
