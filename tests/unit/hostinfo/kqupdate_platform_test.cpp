#include "hostinfo/tqclntdb_hostinfo.h"
#include "tests/fakes/platform/fake_platform.h"
#include "tests/fakes/seams/fake_seams.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

using fakes::LogEntry;
using fakes::platform;
using fakes::seams;
using testing::ElementsAre;
using TQCLNTDB::CHostInformation;

namespace {

constexpr int PROGRESS = 2;
constexpr int ERROR = 16;
constexpr const char* CONTEXT = "CHostInformation::retrieveKqUpdatePlatform";

class RetrieveKqUpdatePlatform : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        fakes::resetSeams();
        record.kqUpdatePlatform = "before";
    }

    CHostInformation record;
};

TEST_F(RetrieveKqUpdatePlatform, BuildsOwnPlatformWhenItIsValid)
{
    EXPECT_EQ(record.retrieveKqUpdatePlatform(), 0);
    EXPECT_EQ(record.kqUpdatePlatform, "linux_x86");
    EXPECT_THAT(seams().calls,
                ElementsAre("isDebianUbuntu", "isValidKqupdateOsHdwNamesIdentifier 10", "getOsHdwName 10"));
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{PROGRESS, "KqUpdate platform set to : [linux_x86]", CONTEXT}));
}

TEST_F(RetrieveKqUpdatePlatform, DebianFamilyHasItsOwnWithoutAValidityCheck)
{
    seams().debianUbuntu = true;
    seams().validPlatforms.clear();
    EXPECT_EQ(record.retrieveKqUpdatePlatform(), 0);
    EXPECT_EQ(record.kqUpdatePlatform, "linux_debian");
    EXPECT_THAT(seams().calls, ElementsAre("isDebianUbuntu", "getOsHdwName 20"));
    EXPECT_THAT(platform().calls, ElementsAre("getKqupdateOsHdwDebianIdentifier"));
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{PROGRESS, "KqUpdate platform set to : [linux_debian]", CONTEXT}));
}

TEST_F(RetrieveKqUpdatePlatform, InvalidIdentifierEmptiesTheField)
{
    seams().validPlatforms.clear();
    EXPECT_EQ(record.retrieveKqUpdatePlatform(), 7291);
    EXPECT_EQ(record.kqUpdatePlatform, "");
    EXPECT_THAT(
        platform().log,
        ElementsAre(LogEntry{ERROR,
                             "KQUPDATE_PLATFORM value [10] is not a valid platform identifier. Setting "
                             "KqUpdate platform value to empty string.",
                             CONTEXT},
                    LogEntry{PROGRESS, "KqUpdate platform set to : []", CONTEXT}));
}

TEST_F(RetrieveKqUpdatePlatform, NameOf32BytesIsKept)
{
    seams().platformNames[10] = std::string(32, 'p');
    EXPECT_EQ(record.retrieveKqUpdatePlatform(), 0);
    EXPECT_EQ(record.kqUpdatePlatform, std::string(32, 'p'));
}

TEST_F(RetrieveKqUpdatePlatform, NameOf33BytesEmptiesTheField)
{
    const std::string name(33, 'p');
    for (const bool debian : {false, true}) {
        platform().log.clear();
        seams().debianUbuntu = debian;
        seams().platformNames = {{10, name}, {20, name}};
        EXPECT_EQ(record.retrieveKqUpdatePlatform(), 7290);
        EXPECT_EQ(record.kqUpdatePlatform, "");
        EXPECT_THAT(platform().log,
                    ElementsAre(LogEntry{ERROR,
                                         "KqUpdate platform value [" + name +
                                             "] exceeds the max allowed length of 32. Setting value to empty "
                                             "string.",
                                         CONTEXT},
                                LogEntry{PROGRESS, "KqUpdate platform set to : []", CONTEXT}));
    }
}

TEST_F(RetrieveKqUpdatePlatform, LengthIsCountedInBytes)
{
    std::string name;
    for (int i = 0; i < 17; ++i)
        name += "\xc3\xa4"; // 17 characters, 34 bytes
    seams().platformNames[10] = name;
    EXPECT_EQ(record.retrieveKqUpdatePlatform(), 7290);
}

} // namespace
