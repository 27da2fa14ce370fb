#include "masterd/request_target.h"

#include <gtest/gtest.h>

namespace {

using Segments = std::vector<std::string>;

Segments segmentsOf(const std::string& target)
{
    const auto parsed = masterd::parseRequestTarget(target);
    EXPECT_TRUE(parsed) << target;
    return parsed ? parsed->segments : Segments{"refused"};
}

TEST(ParseRequestTarget, CutsThePathAtItsSlashes)
{
    EXPECT_EQ(segmentsOf("/a/b"), (Segments{"a", "b"}));
    EXPECT_EQ(segmentsOf("/"), (Segments{""}));
    EXPECT_EQ(segmentsOf("/a/"), (Segments{"a", ""}));
    EXPECT_EQ(segmentsOf("//a"), (Segments{"", "a"}));
}

TEST(ParseRequestTarget, EncodedSlashAndNulStayInsideTheirSegment)
{
    EXPECT_EQ(segmentsOf("/a%2Fb/c%00d"), (Segments{"a/b", std::string("c\0d", 3)}));
}

TEST(ParseRequestTarget, DotsAndPlusMeanNothingInAPath)
{
    EXPECT_EQ(segmentsOf("/a/../b/./c+d/%2e%2E"), (Segments{"a", "..", "b", ".", "c+d", ".."}));
}

TEST(ParseRequestTarget, QueryIsDecodedAndPlusIsABlankThere)
{
    const auto parsed = masterd::parseRequestTarget("/a?b%20c+d%2Be?f/g");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->segments, (Segments{"a"}));
    EXPECT_EQ(parsed->query, "b c d+e?f/g");
}

TEST(ParseRequestTarget, EmptyQueryIsNone)
{
    const auto parsed = masterd::parseRequestTarget("/a?");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->query, "");
}

TEST(ParseRequestTarget, RefusesWhatIsNoPathOrBadlyEncoded)
{
    for (const char* target :
         {"", "a", "?a", "https://host/a", "*", "/%", "/%2", "/%2g", "/a%zz", "/a?%", "/a?%4"})
        EXPECT_FALSE(masterd::parseRequestTarget(target)) << target;
}

TEST(ParseHostNameFilter, NameIsAllBetweenTheFirstAndTheLastQuote)
{
    EXPECT_EQ(masterd::parseHostNameFilter("filter=hostName eq 'h1.example'"), "h1.example");
    EXPECT_EQ(masterd::parseHostNameFilter("filter=hostName eq 'a'b' or 'c'"), "a'b' or 'c");
    EXPECT_EQ(masterd::parseHostNameFilter("filter=hostName eq 'a&b=c'"), "a&b=c");
    EXPECT_EQ(masterd::parseHostNameFilter("filter=hostName eq ''"), "");
}

TEST(ParseHostNameFilter, AnyOtherQueryIsNone)
{
    for (const char* query :
         {"", "filter", "filter=", "filter=hostName", "filter=hostName eq", "filter=hostName eq h1",
          "filter=hostName eq '", "filter=hostName eq 'h1", "filter=hostName eq h1'",
          "filter=hostName ne 'h1'", "filter=hostname eq 'h1'", "filter=osType eq 'h1'",
          "filter=hostName  eq 'h1'", "Filter=hostName eq 'h1'", "filter=hostName eq 'h1' ",
          "filter=hostName eq 'h1'&limit=1", "limit=1&filter=hostName eq 'h1'", " filter=hostName eq 'h1'"})
        EXPECT_FALSE(masterd::parseHostNameFilter(query)) << query;
}

} // namespace
