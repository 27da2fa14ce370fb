#include "platform/platformname.h"

#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <set>
#include <string>

TEST(PlatformNames, OwnPlatformIsTenAndHasAName)
{
    EXPECT_EQ(KQUPDATE_PLATFORM, 10);
    EXPECT_TRUE(isValidKqupdateOsHdwNamesIdentifier(10));
    EXPECT_STREQ(getOsHdwName(10), "linux-rpm-x86_64");
}

TEST(PlatformNames, DebianFamilyHasAnIdentifierOfItsOwn)
{
    EXPECT_NE(getKqupdateOsHdwDebianIdentifier(), KQUPDATE_PLATFORM);
    EXPECT_STREQ(getOsHdwName(getKqupdateOsHdwDebianIdentifier()), "linux-deb-x86_64");
}

TEST(PlatformNames, EveryNameIsDistinctAndFitsTheRecord)
{
    std::set<std::string> names;
    int valid = 0;
    for (int identifier = -1000; identifier < 1000; ++identifier) {
        const std::string name = getOsHdwName(identifier);
        EXPECT_EQ(isValidKqupdateOsHdwNamesIdentifier(identifier), !name.empty()) << identifier;
        if (name.empty())
            continue;
        ++valid;
        names.insert(name);
        EXPECT_LE(name.size(), 32U) << name;
    }
    EXPECT_GE(valid, 10);
    EXPECT_EQ(names.size(), static_cast<std::size_t>(valid));
}

TEST(PlatformNames, UnknownIdentifierHasAnEmptyName)
{
    for (const int identifier : {0, -1, 999, INT_MAX, INT_MIN}) {
        EXPECT_FALSE(isValidKqupdateOsHdwNamesIdentifier(identifier)) << identifier;
        EXPECT_STREQ(getOsHdwName(identifier), "") << identifier;
    }
}
