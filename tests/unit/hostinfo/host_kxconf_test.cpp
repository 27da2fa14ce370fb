#include "hostinfo/tqclntdb_hostinfo.h"
#include "tests/fakes/platform/fake_platform.h"
#include "tests/fakes/seams/fake_seams.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using fakes::LogEntry;
using fakes::platform;
using fakes::seams;
using testing::ElementsAre;
using testing::IsEmpty;
using TQCLNTDB::CHostInformation;

namespace {

constexpr int PROGRESS = 2;
constexpr int ERROR = 16;

class LoadHostInfoFromKXConf : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        fakes::resetSeams();
    }

    static constexpr const char* CONTEXT = "CHostInformation::loadHostInfoFromKXConf";
    CHostInformation record;
};

class GetMachineTquType : public LoadHostInfoFromKXConf {
protected:
    static constexpr const char* CONTEXT = "CHostInformation::getMachineTquType";
    std::string out = "before";
};

TEST_F(LoadHostInfoFromKXConf, TakesServersAndInstalledVersion)
{
    platform().configuredServers = {"m1", "m2", "m1"};
    EXPECT_EQ(record.loadHostInfoFromKXConf(), 0);
    EXPECT_THAT(record.servers, ElementsAre("m1", "m2", "m1"));
    EXPECT_EQ(record.tquVersion, "Torquenix_9.1.0.1");
    EXPECT_THAT(platform().log, ElementsAre(LogEntry{PROGRESS, "Found 3 server entries", CONTEXT}));
    EXPECT_THAT(platform().calls, ElementsAre("ReadHostConfigExA 1 0 0 0", "FreeHostConfigA"));
    EXPECT_THAT(seams().calls, ElementsAre("getTQInstalledVersionStr"));
}

TEST_F(LoadHostInfoFromKXConf, ServersAreCountedInTheLogBeforeTheVersionIsAskedFor)
{
    std::vector<LogEntry> before;
    seams().onInstalledVersion = [&] { before = platform().log; };
    EXPECT_EQ(record.loadHostInfoFromKXConf(), 0);
    EXPECT_THAT(before, ElementsAre(LogEntry{PROGRESS, "Found 0 server entries", CONTEXT}));
}

TEST_F(LoadHostInfoFromKXConf, ConfigurationIsReadIntoAZeroedStructure)
{
    EXPECT_EQ(record.loadHostInfoFromKXConf(), 0);
    EXPECT_TRUE(platform().hostConfigWasZeroed);
}

TEST_F(LoadHostInfoFromKXConf, ServersAreAppendedAndOnlyNewOnesCounted)
{
    platform().configuredServers = {"m1"};
    record.servers = {"m0", "m1"};
    EXPECT_EQ(record.loadHostInfoFromKXConf(), 0);
    EXPECT_THAT(record.servers, ElementsAre("m0", "m1", "m1"));
    EXPECT_THAT(platform().log, ElementsAre(LogEntry{PROGRESS, "Found 1 server entries", CONTEXT}));
}

TEST_F(LoadHostInfoFromKXConf, NoServersAreASuccess)
{
    EXPECT_EQ(record.loadHostInfoFromKXConf(), 0);
    EXPECT_THAT(record.servers, IsEmpty());
    EXPECT_THAT(platform().log, ElementsAre(LogEntry{PROGRESS, "Found 0 server entries", CONTEXT}));
}

TEST_F(LoadHostInfoFromKXConf, FailedReadIsReturnedAndLeavesTheRecord)
{
    for (const int status : {12, 13}) {
        platform().log.clear();
        platform().hostConfigStatus = status;
        EXPECT_EQ(record.loadHostInfoFromKXConf(), status);
        EXPECT_THAT(platform().log, ElementsAre(LogEntry{ERROR, "Failed to read kx.conf", CONTEXT}));
        EXPECT_THAT(record.servers, IsEmpty());
        EXPECT_EQ(record.tquVersion, "");
    }
}

TEST_F(LoadHostInfoFromKXConf, ResultOfTheVersionIsDeliberatelyNotChecked)
{
    seams().installedVersionStatus = 7500;
    seams().installedVersion = "";
    EXPECT_EQ(record.loadHostInfoFromKXConf(), 0);
    EXPECT_EQ(record.tquVersion, "");
}

TEST_F(GetMachineTquType, ValueIsCopied)
{
    platform().masterConfig.values["MACHINE_TQU_TYPE"] = "MEDIA SERVER";
    EXPECT_EQ(record.getMachineTquType(out), 0);
    EXPECT_EQ(out, "MEDIA SERVER");
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{PROGRESS, "Found MACHINE_TQU_TYPE = MEDIA SERVER", CONTEXT}));
    EXPECT_THAT(platform().calls, ElementsAre("TQ_read_master_config", "get_master_config_ptr",
                                              "kxconfGetKeyValPair MACHINE_TQU_TYPE"));
}

TEST_F(GetMachineTquType, EmptyValueIsAValue)
{
    platform().masterConfig.values["MACHINE_TQU_TYPE"] = "";
    EXPECT_EQ(record.getMachineTquType(out), 0);
    EXPECT_EQ(out, "");
    EXPECT_THAT(platform().log, ElementsAre(LogEntry{PROGRESS, "Found MACHINE_TQU_TYPE = ", CONTEXT}));
}

TEST_F(GetMachineTquType, AbsentKeyIsASuccessAndLeavesTheOutput)
{
    EXPECT_EQ(record.getMachineTquType(out), 0);
    EXPECT_EQ(out, "before");
    EXPECT_THAT(
        platform().log,
        ElementsAre(LogEntry{PROGRESS, "No value found for 'MACHINE_TQU_TYPE' in the Torquenix configuration",
                             CONTEXT}));
}

TEST_F(GetMachineTquType, ConfigurationThatCannotBeReadIsReturned)
{
    platform().masterConfig.values["MACHINE_TQU_TYPE"] = "MEDIA";
    platform().masterConfigStatus = 13;
    EXPECT_EQ(record.getMachineTquType(out), 13);
    EXPECT_EQ(out, "before");
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{ERROR, "TQ_read_master_config() failed, status = 13", CONTEXT}));
}

} // namespace
