#include "hostinfo/tqclntdb_hostinfo.h"

#include "tests/fakes/clusterinfo/fake_clusterinfo.h"
#include "tests/fakes/platform/fake_platform.h"

#include <gmock/gmock.h>

using fakes::clusterDiscovery;
using fakes::LogEntry;
using fakes::platform;
using testing::ElementsAre;
using testing::IsEmpty;
using TQCLNTDB::CHostInformation;

namespace {

constexpr const char* DISABLED = "CHostInformation::isClusterAutoDiscoveryDisabled";
constexpr const char* RETRIEVE = "CHostInformation::retrieveClusterSharedNames";
constexpr const char* LOAD = "CHostInformation::loadSharedNames";

class ClusterNames : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        fakes::resetClusterDiscovery();
    }

    CHostInformation record;
};

} // namespace

TEST_F(ClusterNames, DiscoveryIsOnWhenTheConfigurationCannotBeRead)
{
    platform().masterConfigStatus = 12;
    EXPECT_EQ(record.isClusterAutoDiscoveryDisabled(), 0);
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{
                    8, "Failed to read kx.conf for auto cluster discovery key, errorcode : 12", DISABLED}));
}

TEST_F(ClusterNames, DiscoveryIsOnWhenTheKeyIsAbsentOrNoBoolean)
{
    EXPECT_EQ(record.isClusterAutoDiscoveryDisabled(), 0);
    EXPECT_THAT(
        platform().log,
        ElementsAre(LogEntry{
            8, "Failed to read key from kx.conf for auto cluster discovery key, errorcode : 1", DISABLED}));
    platform().masterConfig.values["DISABLE_CLUSTER_AUTO_DISCOVERY"] = "perhaps";
    EXPECT_EQ(record.isClusterAutoDiscoveryDisabled(), 0);
}

TEST_F(ClusterNames, TheFlagDecides)
{
    platform().masterConfig.values["DISABLE_CLUSTER_AUTO_DISCOVERY"] = "YES";
    EXPECT_EQ(record.isClusterAutoDiscoveryDisabled(), 1);
    platform().masterConfig.values["DISABLE_CLUSTER_AUTO_DISCOVERY"] = "NO";
    EXPECT_EQ(record.isClusterAutoDiscoveryDisabled(), 0);
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(ClusterNames, FoundNamesAreAppendedAndLogged)
{
    clusterDiscovery().status = 0;
    clusterDiscovery().names = {"vip1", "vip1.example"};
    record.clusterSharedNames = {"earlier"};
    EXPECT_EQ(record.loadSharedNames(), 0);
    EXPECT_THAT(record.clusterSharedNames, ElementsAre("earlier", "vip1", "vip1.example"));
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{2, "GetClusterSharedNames returned = vip1, vip1.example", RETRIEVE},
                            LogEntry{2, "Shared Names = earlier, vip1, vip1.example", LOAD}));
    EXPECT_THAT(clusterDiscovery().includeIP, ElementsAre(false));
}

TEST_F(ClusterNames, AHostOutsideAnyClusterIsDeliberatelyLoggedAtErrorLevel)
{
    EXPECT_EQ(record.loadSharedNames(), 30036);
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{2, "Host is not part of a HXM cluster.", RETRIEVE},
                            LogEntry{16,
                                     "retrieveClusterSharedNames status : 30036. Check getclusterinfo::trace "
                                     "for more details. ",
                                     LOAD}));
}

TEST_F(ClusterNames, AHostOutsideAWindowsClusterHasALineOfItsOwn)
{
    clusterDiscovery().status = 1060;
    EXPECT_EQ(record.retrieveClusterSharedNames(), 1060);
    EXPECT_THAT(platform().log, ElementsAre(LogEntry{2, "Host is not part of a Windows cluster.", RETRIEVE}));
}

TEST_F(ClusterNames, AnyOtherStatusIsAnErrorAndItsNamesAreNotTaken)
{
    clusterDiscovery().status = 256;
    clusterDiscovery().names = {"half"};
    EXPECT_EQ(record.retrieveClusterSharedNames(), 256);
    EXPECT_THAT(record.clusterSharedNames, IsEmpty());
    EXPECT_THAT(platform().log, ElementsAre(LogEntry{16, "GetClusterSharedNames status : 256", RETRIEVE}));
}

TEST_F(ClusterNames, TheTraceReachesTheLog)
{
    clusterDiscovery().traceLines = {"[GetClusterSharedNames] ... Enter \n"};
    record.retrieveClusterSharedNames();
    EXPECT_EQ(platform().log.front(),
              (LogEntry{2, "[GetClusterSharedNames] ... Enter \n\n", "libclusterinfo::trace"}));
}

TEST_F(ClusterNames, ANullTraceMessageWritesNothing)
{
    TQCLNTDB::libClusterInfoTrace(nullptr);
    EXPECT_THAT(platform().log, ElementsAre(LogEntry{2, "", "libclusterinfo::trace"}));
}
