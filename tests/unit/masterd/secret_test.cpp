#include "masterd/secret.h"

#include <gtest/gtest.h>

namespace {

using masterd::Secret;

TEST(Secret, TextComesBackAsItWas)
{
    const Secret made = masterd::makeSecret();
    const std::optional<Secret> parsed = masterd::parseSecret(made.text());
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->id, made.id);
    EXPECT_EQ(parsed->secret, made.secret);
}

TEST(Secret, HasSixtyFourBitsOfIdAndTwoHundredFiftySixOfSecret)
{
    const Secret made = masterd::makeSecret();
    EXPECT_EQ(made.id.size(), 16U);
    EXPECT_EQ(made.secret.size(), 64U);
}

TEST(Secret, NoTwoAreAlike)
{
    EXPECT_NE(masterd::makeSecret().secret, masterd::makeSecret().secret);
}

TEST(Secret, HashIsNotTheSecretAndMatchesOnlyIt)
{
    const Secret made = masterd::makeSecret();
    EXPECT_EQ(made.hash().find(made.secret), std::string::npos);
    EXPECT_TRUE(made.matches(made.hash()));
    EXPECT_FALSE(made.matches(masterd::makeSecret().hash()));
    EXPECT_FALSE(made.matches(""));
}

/// The text of a secret with one part of it replaced.
std::string changed(std::size_t position, std::size_t count, const std::string& by)
{
    return (std::string(16, 'a') + '.' + std::string(64, 'b')).replace(position, count, by);
}

TEST(Secret, OtherFormsAreNoSecret)
{
    constexpr std::size_t POINT = 16;
    constexpr std::size_t END = 81;
    ASSERT_TRUE(masterd::parseSecret(changed(0, 0, "")));
    for (const std::string& text :
         {std::string(), std::string("."), std::string(100000, 'a'), changed(POINT, END, ""),
          changed(POINT + 1, END, ""), changed(0, POINT, ""), changed(POINT, 1, " "), changed(POINT, 1, ".."),
          changed(POINT, 1, ""), changed(END, 0, "b"), changed(END - 1, 1, ""), changed(END, 0, "\n"),
          changed(0, 1, "A"), changed(END - 1, 1, "g"), changed(END - 1, 1, std::string(1, '\0'))})
        EXPECT_FALSE(masterd::parseSecret(text)) << text.substr(0, 100);
}

} // namespace
