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

TEST(Secret, OtherFormsAreNoSecret)
{
    const std::string id(16, 'a');
    const std::string secret(64, 'b');
    ASSERT_TRUE(masterd::parseSecret(id + '.' + secret));
    for (const std::string& text :
         {std::string(), std::string("."), id, id + '.', '.' + secret, id + ' ' + secret,
          id + '.' + secret + 'b', id + ".." + secret, 'A' + id.substr(1) + '.' + secret,
          id + '.' + secret.substr(1) + 'g', id + '.' + secret.substr(1) + '\0', id + '.' + secret + '\n',
          std::string(100000, 'a')})
        EXPECT_FALSE(masterd::parseSecret(text)) << text.substr(0, 100);
}

} // namespace
