#include "platform/url.h"

#include <gtest/gtest.h>

using tq::encodePath;
using tq::isUrlHost;
using tq::serverUrl;

TEST(EncodePath, LeavesAPlainPathAsItIs)
{
    EXPECT_EQ(encodePath("torquenix/config/hosts/6f0f0000-1111-4222-8333-444455556666"),
              "torquenix/config/hosts/6f0f0000-1111-4222-8333-444455556666");
}

TEST(EncodePath, LeavesPercentSoThatEncodedPartsAreNotEncodedTwice)
{
    EXPECT_EQ(encodePath("hosts?filter=hostName%20eq%20'h1.example'"),
              "hosts?filter=hostName%20eq%20'h1.example'");
    EXPECT_EQ(encodePath("100%"), "100%");
}

TEST(EncodePath, EncodesHashAndPlus)
{
    EXPECT_EQ(encodePath("a#b+c"), "a%23b%2Bc");
}

TEST(EncodePath, KeepsDotsSlashesAndQuestionMarks)
{
    EXPECT_EQ(encodePath("a/../b//c/./d?e?f"), "a/../b//c/./d?e?f");
}

TEST(EncodePath, EncodesEveryByteThatMayNotStandInAUrl)
{
    EXPECT_EQ(encodePath(" \"<>\\^`{|}[]"), "%20%22%3C%3E%5C%5E%60%7B%7C%7D%5B%5D");
    EXPECT_EQ(encodePath(std::string_view("\0\x01\r\n\x7f\xc3\xbc\xff", 8)), "%00%01%0D%0A%7F%C3%BC%FF");
}

TEST(EncodePath, LeavesEveryByteThatMayStandInAUrl)
{
    const std::string allowed = "abcxyzABCXYZ0189-._~!$&'()*,;=:@/?%";
    EXPECT_EQ(encodePath(allowed), allowed);
}

TEST(ServerUrl, NamesServerAndPort)
{
    EXPECT_EQ(serverUrl("master1.example", 1556), "https://master1.example:1556");
}

TEST(ServerUrl, PutsAnIpv6AddressInBrackets)
{
    EXPECT_EQ(serverUrl("fe80::1", 1556), "https://[fe80::1]:1556");
}

TEST(IsUrlHost, AcceptsNamesAndAddresses)
{
    for (const char* name : {"master1", "master1.example", "a_b-c.example.", "127.0.0.1", "::1", "fe80::1:2"})
        EXPECT_TRUE(isUrlHost(name)) << name;
}

TEST(IsUrlHost, RefusesWhatWouldLeadTheRequestElsewhere)
{
    for (const char* name : {"", "user@host", "host:1", "host/path", "host?x", "host#x", "ho st", "host%2e",
                             "h\xc3\xb6st", "[::1]", "host\r\n", "::1%eth0"})
        EXPECT_FALSE(isUrlHost(name)) << name;
    EXPECT_FALSE(isUrlHost(std::string_view("::1\0x", 5)));
    EXPECT_FALSE(isUrlHost(std::string_view("host\0x", 6)));
}
