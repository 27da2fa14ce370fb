// The cluster manager's tools under limits of one second and one mebibyte.
#include "clusterinfo/hxm_info.h"

#include "tests/unit/clusterinfo/hxm_stubs.h"

#include <gmock/gmock.h>

using namespace libclusterinfo;
using fakes::LogEntry;
using fakes::platform;
using hxm::BIN;
using hxm::tool;
using testing::ElementsAre;

namespace {

class HxmLimits : public hxm::HxmTest {};

constexpr const char* SYSTEMS = "\"/opt/XRVNhxm/bin/hxsys\" -list -localclus";

} // namespace

TEST_F(HxmLimits, OutputWithoutAnEndIsCutAndTheDiscoveryGoesOn)
{
    for (const char* flood :
         {"exec head -c 70000000 /dev/zero", "head -c 70000000 /dev/zero | tr '\\000' x"}) {
        SCOPED_TRACE(flood);
        fakes::reset();
        installManager("case $1$2 in -listType=IP) echo vip;; -value*) echo 192.0.2.2;; esac");
        tool(BIN, "hxsys", flood);
        ClusterInfo info;
        EXPECT_EQ(GetClusterInfo_HXM(info), 0);
        EXPECT_EQ(info.cluster.name, "clu");
        EXPECT_EQ(info.virtualInfoList.size(), 1U);
        EXPECT_THAT(platform().log,
                    ElementsAre(LogEntry{
                        16, std::string("output of external command cut at 1048576 bytes: ") + SYSTEMS,
                        "CHxmInfo::openCommand"}));
    }
}

TEST_F(HxmLimits, AToolThatDoesNotEndIsEndedAndWhatItPrintedIsTaken)
{
    installManager();
    tool(BIN, "hxsys", "echo node1; exec sleep 1000");
    ClusterInfo info;
    EXPECT_EQ(GetClusterInfo_HXM(info), 0);
    ASSERT_EQ(info.nodeList.size(), 1U);
    EXPECT_EQ(info.nodeList.front().name, "node1");
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{16, std::string("external command ended after 1 s: ") + SYSTEMS,
                                     "CHxmInfo::openCommand"}));
}
