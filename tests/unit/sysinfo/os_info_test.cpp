#include "sysinfo/os_info.h"

#include "tests/unit/sysinfo/faked_host.h"

#include <gmock/gmock.h>

namespace {

using faked_host::host;
using fakes::LogEntry;
using fakes::platform;
using SYSINFO_NAMESPACE::osNameFrom;
using SYSINFO_NAMESPACE::osVersionFrom;
using SYSINFO_NAMESPACE::UnixOsInfo;
using testing::ElementsAre;

TEST(OsNameFrom, DarwinIsMacOSXAndEveryOtherNameStays)
{
    EXPECT_EQ(osNameFrom("Darwin"), "MacOSX");
    for (const char* name : {"Linux", "AIX", "darwin", "Darwin ", ""})
        EXPECT_EQ(osNameFrom(name), name);
}

TEST(OsVersionFrom, ReleaseStaysOnOtherSystems)
{
    EXPECT_EQ(osVersionFrom("Linux", "6.1.0-18-amd64"), "6.1.0-18-amd64");
    EXPECT_EQ(osVersionFrom("darwin", "19.6.0"), "19.6.0");
}

TEST(OsVersionFrom, DarwinKernel1960Is10156)
{
    EXPECT_EQ(osVersionFrom("Darwin", "19.6.0"), "10.15.6");
}

TEST(OsVersionFrom, DarwinKernel2010Is10161)
{
    EXPECT_EQ(osVersionFrom("Darwin", "20.1.0"), "10.16.1");
}

TEST(OsVersionFrom, DarwinNumbersThatAreNotReadHaveDefaults)
{
    EXPECT_EQ(osVersionFrom("Darwin", ""), "10.6.8");
    EXPECT_EQ(osVersionFrom("Darwin", "x"), "10.6.8");
    EXPECT_EQ(osVersionFrom("Darwin", "19"), "10.15.8");
    EXPECT_EQ(osVersionFrom("Darwin", "19.x"), "10.15.8");
    EXPECT_EQ(osVersionFrom("Darwin", "-2147483648.1.1"), "10.-2147483652.1");
}

class UnixOsInfoTest : public testing::Test {
protected:
    void SetUp() override { faked_host::reset(); }
    UnixOsInfo os;
};

TEST_F(UnixOsInfoTest, NameAndVersionAreLogged)
{
    EXPECT_EQ(os.getOsName(), "Linux");
    EXPECT_EQ(os.getOsVersion(), "6.1.0-18-amd64");
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{2, "osName: Linux", "UnixOsInfo::getOsName"},
                            LogEntry{2, "osVersion: 6.1.0-18-amd64", "UnixOsInfo::getOsVersion"}));
}

TEST_F(UnixOsInfoTest, DarwinGoesThroughItsOwnRules)
{
    host().systemName = "Darwin";
    host().release = "19.6.0";
    EXPECT_EQ(os.getOsName(), "MacOSX");
    EXPECT_EQ(os.getOsVersion(), "10.15.6");
}

TEST_F(UnixOsInfoTest, FailedUnameIsLoggedAndEndsAtOnce)
{
    host().unameFails = true;
    EXPECT_EQ(os.getOsName(), "<NULL>");
    EXPECT_EQ(os.getOsVersion(), "<NULL>");
    EXPECT_THAT(platform().log, ElementsAre(LogEntry{2, "ACE_utsname failed", "UnixOsInfo::getOsName"},
                                            LogEntry{2, "ACE_utsname failed", "UnixOsInfo::getOsVersion"}));
}

} // namespace
