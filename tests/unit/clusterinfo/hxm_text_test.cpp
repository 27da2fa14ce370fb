#include "clusterinfo/hxm_text.h"

#include <gtest/gtest.h>

using namespace libclusterinfo;

TEST(TextBefore, CutsAtTheFirstStop)
{
    EXPECT_EQ(textBefore("clu one\n", " \n"), "clu");
    EXPECT_EQ(textBefore("10.0.0.1 /24\n", "\n"), "10.0.0.1 /24");
    EXPECT_EQ(textBefore("no stop", "\n"), "no stop");
    EXPECT_EQ(textBefore("\n", "\n"), "");
    EXPECT_EQ(textBefore("", "\n"), "");
}

TEST(DomainOf, IsWhatFollowsTheFirstDot)
{
    EXPECT_EQ(domainOf("h1.a.example", "old"), "a.example");
}

TEST(DomainOf, AHostNameWithoutADotIsItsOwnDomain)
{
    EXPECT_EQ(domainOf("h1", "old"), "h1");
}

TEST(DomainOf, ALeadingDotKeepsTheDomain)
{
    EXPECT_EQ(domainOf(".example", "old"), "old");
}

TEST(DomainOf, AnEmptyFirstLineEmptiesTheDomain)
{
    EXPECT_EQ(domainOf("", "old"), "");
}

TEST(ThirdWord, IsFoundWhateverTheWhiteSpace)
{
    EXPECT_EQ(thirdWord("res1 State node1 |ONLINE|"), "node1");
    EXPECT_EQ(thirdWord("  res1\tState\t\tnode2\r"), "node2");
}

TEST(ThirdWord, ALineWithFewerThanThreeWordsAddsNothing)
{
    for (const char* line : {"", "   ", "one", "one two", "one two  "})
        EXPECT_EQ(thirdWord(line), std::nullopt) << line;
}

TEST(HasThreeDots, NeitherFewerNorMore)
{
    EXPECT_TRUE(hasThreeDots("192.0.2.1"));
    EXPECT_TRUE(hasThreeDots("..."));
    for (const char* text : {"", "1.2.3", "1.2.3.4.5", "2001:db8::1"})
        EXPECT_FALSE(hasThreeDots(text)) << text;
}
