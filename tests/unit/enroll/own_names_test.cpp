#include "enroll/own_names.h"

#include "platform/paths.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

using enroll::isOneOf;
using enroll::readOwnNames;

TEST(IsOneOf, NamesAreComparedWithoutCase)
{
    EXPECT_TRUE(isOneOf({"other.example", "H1.example"}, "h1.EXAMPLE"));
    EXPECT_FALSE(isOneOf({"other.example", "h1.example"}, "h2.example"));
    EXPECT_FALSE(isOneOf({}, "h1"));
}

TEST(IsOneOf, ANameWithoutADomainStandsForThoseWithOne)
{
    EXPECT_TRUE(isOneOf({"h1"}, "h1.example"));
    EXPECT_TRUE(isOneOf({"h1.example"}, "H1"));
    EXPECT_FALSE(isOneOf({"h1.example"}, "h1.other"));
    EXPECT_FALSE(isOneOf({"h1"}, "h10.example"));
    EXPECT_FALSE(isOneOf({"h10"}, "h1"));
}

TEST(ReadOwnNames, TheConfiguredNameComesFirstThenTheHostName)
{
    std::array<char, 256> hostName{};
    ASSERT_EQ(gethostname(hostName.data(), hostName.size()), 0);
    std::filesystem::remove(TQ_CONFIG_FILE);
    ASSERT_FALSE(readOwnNames().empty());
    EXPECT_EQ(readOwnNames()[0], hostName.data());
    std::ofstream(TQ_CONFIG_FILE) << "CLIENT_NAME = h1-backup.example\n";
    const std::vector<std::string> names = readOwnNames();
    std::filesystem::remove(TQ_CONFIG_FILE);
    EXPECT_EQ(names.at(0), "h1-backup.example");
    EXPECT_EQ(names.at(1), hostName.data());
    for (const std::string& name : names)
        EXPECT_THAT(name, testing::Not(testing::MatchesRegex("[0-9.]+|.*:.*"))) << "addresses are no names";
}
