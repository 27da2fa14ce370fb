#include "hostinfo/tqclntdb_hostinfo.h"
#include "tests/fakes/platform/fake_platform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

using fakes::LogEntry;
using fakes::platform;
using testing::ElementsAre;
using TQCLNTDB::CHostInformation;

namespace {

constexpr int PROGRESS = 2;
constexpr int ERROR = 16;

class LoadUUIDFromHostConfig : public testing::Test {
protected:
    void SetUp() override { fakes::reset(); }

    static constexpr const char* CONTEXT = "CHostInformation::loadUUIDFromHostConfig";
    CHostInformation record{"m1", CERT_TYPE_CLUSTER};
};

class LoadTrustVersionFromHostConfig : public testing::Test {
protected:
    void SetUp() override { fakes::reset(); }

    static constexpr const char* CONTEXT = "CHostInformation::loadTrustVersionFromHostConfig";
    CHostInformation record{"m1", CERT_TYPE_CLUSTER};
};

TEST_F(LoadUUIDFromHostConfig, StoresTheIdentifierOfServerAndType)
{
    platform().hostId = {0, "abc"};
    EXPECT_EQ(record.loadUUIDFromHostConfig(), 0);
    EXPECT_EQ(record.hostId, "abc");
    EXPECT_THAT(platform().calls, ElementsAre("getHostID 2 m1 64"));
    EXPECT_THAT(
        platform().log,
        ElementsAre(LogEntry{PROGRESS, "Retrieved Host Id [ abc ] for Master Server [ m1 ]", CONTEXT}));
}

TEST_F(LoadUUIDFromHostConfig, FailureIsReturnedAndLeavesTheIdentifier)
{
    for (const int status : {227, 7610, 7611, 7612, -1}) {
        platform().log.clear();
        platform().hostId.status = status;
        record.hostId = "before";
        EXPECT_EQ(record.loadUUIDFromHostConfig(), status);
        EXPECT_EQ(record.hostId, "before");
        EXPECT_THAT(platform().log,
                    ElementsAre(LogEntry{
                        ERROR, "Host Id retrieval failed with error: " + std::to_string(status), CONTEXT}));
    }
}

TEST_F(LoadUUIDFromHostConfig, BufferTakes63Characters)
{
    platform().hostId.text = std::string(63, 'x');
    EXPECT_EQ(record.loadUUIDFromHostConfig(), 0);
    EXPECT_EQ(record.hostId, std::string(63, 'x'));
    platform().hostId.text = std::string(64, 'y');
    EXPECT_EQ(record.loadUUIDFromHostConfig(), 7613);
    EXPECT_EQ(record.hostId, std::string(63, 'x'));
}

TEST_F(LoadTrustVersionFromHostConfig, StoresTheTrustVersionOfServerAndType)
{
    platform().trustVersion = {0, "7"};
    EXPECT_EQ(record.loadTrustVersionFromHostConfig(), 0);
    EXPECT_EQ(record.trustVersion, "7");
    EXPECT_THAT(platform().calls, ElementsAre("getTrustVersion 2 m1 64"));
    EXPECT_THAT(
        platform().log,
        ElementsAre(LogEntry{PROGRESS, "Retrieved TrustVersion [ 7 ] for Master Server [ m1 ]", CONTEXT}));
}

TEST_F(LoadTrustVersionFromHostConfig, NoneRecordedIsEmptyAndASuccess)
{
    platform().trustVersion = {227, ""};
    record.trustVersion = "before";
    EXPECT_EQ(record.loadTrustVersionFromHostConfig(), 0);
    EXPECT_EQ(record.trustVersion, "");
    EXPECT_THAT(
        platform().log,
        ElementsAre(LogEntry{PROGRESS, "Retrieved TrustVersion [  ] for Master Server [ m1 ]", CONTEXT}));
}

TEST_F(LoadTrustVersionFromHostConfig, FailureIsReturnedAndLeavesTheTrustVersion)
{
    for (const int status : {7610, 7611, 7612, 7613, -1}) {
        platform().log.clear();
        platform().trustVersion.status = status;
        record.trustVersion = "before";
        EXPECT_EQ(record.loadTrustVersionFromHostConfig(), status);
        EXPECT_EQ(record.trustVersion, "before");
        EXPECT_THAT(
            platform().log,
            ElementsAre(LogEntry{ERROR, "TrustVersion retrieval failed with error: " + std::to_string(status),
                                 CONTEXT}));
    }
}

} // namespace
