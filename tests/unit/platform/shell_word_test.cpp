#include "platform/shell_word.h"

#include <gtest/gtest.h>
#include <string>

namespace {

constexpr std::string_view PUNCTUATION = "._:@%+,/=-";

bool isAsciiLetterOrDigit(int byte)
{
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9');
}

TEST(IsPlainShellWord, OfAllBytesOnlyLettersDigitsAndHarmlessPunctuationMayStandInOne)
{
    for (int byte = 0; byte < 256; ++byte) {
        const char character = static_cast<char>(byte);
        const bool plain =
            isAsciiLetterOrDigit(byte) || PUNCTUATION.find(character) != std::string_view::npos;
        EXPECT_EQ(tq::isPlainShellWord(std::string("a") + character + "b"), plain) << byte;
        EXPECT_EQ(tq::isPlainShellWord(std::string("a") + character), plain) << byte;
        EXPECT_EQ(tq::isPlainShellWord(std::string(1, character)), plain && character != '-') << byte;
    }
}

TEST(IsPlainShellWord, AnEmptyWordIsNone)
{
    EXPECT_FALSE(tq::isPlainShellWord(""));
}

TEST(IsPlainShellWord, OnlyAtTheBeginningADashMakesAnOption)
{
    EXPECT_FALSE(tq::isPlainShellWord("-a"));
    EXPECT_FALSE(tq::isPlainShellWord("--"));
    EXPECT_TRUE(tq::isPlainShellWord("a-"));
    EXPECT_TRUE(tq::isPlainShellWord("a-b"));
}

} // namespace
