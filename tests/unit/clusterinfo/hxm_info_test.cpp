#include "clusterinfo/hxm_info.h"

#include "tests/unit/clusterinfo/hxm_stubs.h"

#include <algorithm>
#include <gmock/gmock.h>

using namespace libclusterinfo;
using faked_network::network;
using hxm::Adapter;
using hxm::BIN;
using hxm::runs;
using hxm::tool;
using hxm::traced;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// One whose commands cannot be started from a given one on.
class StarvedAdapter : public Adapter {
public:
    explicit StarvedAdapter(int goodCommands) : left_(goodCommands) {}
    int openCommand(const char* command) override
    {
        return left_-- > 0 ? CHxmInfo::openCommand(command) : -1;
    }

private:
    int left_;
};

class HxmInfo : public hxm::HxmTest {};

std::vector<std::string> names(const std::list<ResourceInfo>& nodes)
{
    std::vector<std::string> result;
    for (const ResourceInfo& node : nodes)
        result.push_back(node.name + "|" + node.fqdn + "|" + node.ipv4 + "|" + node.ipv6);
    return result;
}

} // namespace

TEST_F(HxmInfo, NoToolDirectoryIs30036AndLeavesTheClusterType)
{
    ClusterInfo info;
    info.clusterType = CLUSTERTYPE_WSFC;
    EXPECT_EQ(GetClusterInfo_HXM(info), 30036);
    EXPECT_EQ(info.clusterType, CLUSTERTYPE_WSFC);
    EXPECT_THAT(
        traced,
        ElementsAre("[GetClusterInfo_HXM] ... Enter \n", "[CHxmInfo::GetClusterInfo] ... Enter \n",
                    "    [CHxmInfo::IsHXM] ... Enter \n",
                    "        !!! Unable to access HXM HomeDirectory /opt/XRVNhxm/bin/ ... (0xffffffff).\n",
                    "    [CHxmInfo::IsHXM] ... Exit  \n", "[CHxmInfo::GetClusterInfo] ... Exit  \n",
                    "[CHxmInfo::~CHxmInfo] ... Enter \n", "[CHxmInfo::~CHxmInfo] ... Exit  \n",
                    "[GetClusterInfo_HXM] ... Exit  \n"));
}

TEST_F(HxmInfo, AToolDirectoryThatCannotBeReadGivesTheResultOfStat)
{
    std::filesystem::create_directories("/opt/XRVNhxm");
    std::ofstream("/opt/XRVNhxm/bin") << "a file";
    Adapter adapter;
    EXPECT_EQ(adapter.IsHXM(), -1);
}

TEST_F(HxmInfo, ThePresenceCommandsRawResultIsReturned)
{
    tool(BIN, "hxstatus", "exit 3");
    Adapter adapter;
    EXPECT_EQ(adapter.IsHXM(), 3 << 8);
    EXPECT_THAT(runs(), ElementsAre("hxstatus -summary"));
    EXPECT_TRUE(
        wasTraced("    !!! Failed to run m_command /opt/XRVNhxm/bin/hxstatus -summary >/dev/null 2>&1 "
                  "... (0x300).\n"));
}

TEST_F(HxmInfo, AFailingPresenceCommandEndsTheDiscovery)
{
    installManager();
    tool(BIN, "hxstatus", "exit 1");
    ClusterInfo info;
    EXPECT_EQ(GetClusterInfo_HXM(info), 256);
    EXPECT_EQ(info.clusterType, CLUSTERTYPE_NOT_A_CLUSTER);
    EXPECT_EQ(info.cluster.name, "");
}

TEST_F(HxmInfo, CommandsRunInTheirFixedOrder)
{
    installManager("case $1$2$3 in -listType=IP) echo vip;; -value*) echo 192.0.2.9;; "
                   "-statevip) printf '#Res Attr System Value\\nvip State node1 x\\n';; esac");
    ClusterInfo info;
    EXPECT_EQ(GetClusterInfo_HXM(info), 0);
    EXPECT_THAT(runs(), ElementsAre("hxstatus -summary", "hxclus -value ClusterName",
                                    "hxclus -value ClusterAddress", "hxsys -list -localclus", "hostname ",
                                    "hxres -list Type=IP", "hxres -value vip Address", "hxres -state vip"));
    for (const char* command :
         {"[command] \"/opt/XRVNhxm/bin/hxclus\" -value ClusterName \n",
          "[command] \"/opt/XRVNhxm/bin/hxclus\" -value ClusterAddress \n", "[command] hostname \n",
          "[command] \"/opt/XRVNhxm/bin/hxsys\" -list -localclus \n",
          "[command] /opt/XRVNhxm/bin/hxres -list Type=IP \n",
          "[command] \"/opt/XRVNhxm/bin/hxres\" -value vip Address \n",
          "[command] \"/opt/XRVNhxm/bin/hxres\" -state vip \n"})
        EXPECT_TRUE(wasTracedSomewhere(command)) << command;
}

TEST_F(HxmInfo, FillsTheWholeCluster)
{
    installManager("case $1$2 in -listType=IP) printf 'vipb\\nvipa\\nvipb\\n';; -valuevipa) echo 192.0.2.7;; "
                   "-valuevipb) echo 2001:db8::9;; "
                   "-state*) printf '#head\\nx y node1 z\\nx y node2 z\\n';; esac");
    network().names["192.0.2.7"] = "vip1.a.example";
    ClusterInfo info;
    ASSERT_EQ(GetClusterInfo_HXM(info), 0);
    EXPECT_EQ(info.clusterType, CLUSTERTYPE_HXM);
    EXPECT_EQ(info.cluster.name, "clu");
    EXPECT_EQ(info.cluster.ipv4, "192.0.2.1");
    EXPECT_EQ(info.cluster.ipv6, "");
    EXPECT_THAT(names(info.nodeList), ElementsAre("node1|node1.example||", "node2|node2.example||"));
    ASSERT_EQ(info.virtualInfoList.size(), 2U);
    EXPECT_EQ(info.virtualInfoList.front().name, "vip1");
    EXPECT_EQ(info.virtualInfoList.front().fqdn, "vip1.a.example");
    EXPECT_EQ(info.virtualInfoList.front().ipv4, "192.0.2.7");
    EXPECT_EQ(info.virtualInfoList.front().ipv6, "");
    EXPECT_THAT(info.virtualInfoList.front().ownerList, ElementsAre("node1", "node2"));
    // An address that does not resolve: no names, but address and owners.
    EXPECT_EQ(info.virtualInfoList.back().name + info.virtualInfoList.back().fqdn, "");
    EXPECT_EQ(info.virtualInfoList.back().ipv6, "2001:db8::9");
    EXPECT_THAT(info.virtualInfoList.back().ownerList, ElementsAre("node1", "node2"));
}

TEST_F(HxmInfo, AnIPv6ClusterAddressGoesToIpv6)
{
    installManager();
    tool(BIN, "hxclus", "case $2 in ClusterName) echo clu;; *) echo 2001:db8::1;; esac");
    ClusterInfo info;
    ASSERT_EQ(GetClusterInfo_HXM(info), 0);
    EXPECT_EQ(info.cluster.ipv4, "");
    EXPECT_EQ(info.cluster.ipv6, "2001:db8::1");
}

TEST_F(HxmInfo, SeveralNameLinesAreJoinedAndIndentedOnesSkipped)
{
    installManager();
    tool(BIN, "hxclus", "printf 'clu one\\n indented\\n\\nster\\n'");
    Adapter adapter;
    ASSERT_EQ(adapter.IsHXM(), 0);
    ASSERT_EQ(adapter.getClusterName(), 0);
    EXPECT_EQ(adapter.clusterName, "cluster");
    EXPECT_TRUE(wasTraced("    Get clustername ... cluster.\n"));
}

TEST_F(HxmInfo, TheClusterAddressKeepsItsBlanks)
{
    installManager();
    tool(BIN, "hxclus", "printf '\\n 10.0.0.1 /8\\n'");
    Adapter adapter;
    ASSERT_EQ(adapter.IsHXM(), 0);
    ASSERT_EQ(adapter.getClusterIP(), 0);
    EXPECT_EQ(adapter.clusterIP, " 10.0.0.1 /8");
    EXPECT_TRUE(wasTraced("    Get clusterIP ...  10.0.0.1 /8.\n"));
}

TEST_F(HxmInfo, EverySystemLineIsTracedAndKeptInOrder)
{
    installManager();
    tool(BIN, "hxsys", "printf 'nodeb\\n\\nnode a\\n'");
    Adapter adapter;
    ASSERT_EQ(adapter.IsHXM(), 0);
    ASSERT_EQ(adapter.getClusterSystems(), 0);
    EXPECT_THAT(adapter.clusterSystems, ElementsAre("nodeb", "node a"));
    EXPECT_TRUE(wasTraced("    Got cluster system ... nodeb.\n"));
}

TEST_F(HxmInfo, TheDomainIsWhatFollowsTheFirstDot)
{
    tool(hxm::STUB_PATH, "hostname", "echo h1.a.example");
    Adapter adapter;
    ASSERT_EQ(adapter.getDomainName(), 0);
    EXPECT_EQ(adapter.domainName, "a.example");
    EXPECT_TRUE(wasTraced("    Got domain name ... a.example.\n"));
}

TEST_F(HxmInfo, AHostNamedWithoutADomainGetsNodeNamesOfTheFormSystemDotHostname)
{
    installManager();
    tool(hxm::STUB_PATH, "hostname", "echo node1");
    ClusterInfo info;
    ASSERT_EQ(GetClusterInfo_HXM(info), 0);
    EXPECT_THAT(names(info.nodeList), ElementsAre("node1|node1.node1||", "node2|node2.node1||"));
}

TEST_F(HxmInfo, NoOutputOfHostnameKeepsTheDomain)
{
    installManager();
    tool(hxm::STUB_PATH, "hostname", "exit 1");
    ClusterInfo info;
    ASSERT_EQ(GetClusterInfo_HXM(info), 0);
    EXPECT_THAT(names(info.nodeList), ElementsAre("node1|||", "node2|||"));
}

TEST_F(HxmInfo, ResourceNamesEndAtBlankTabOrLineEndAndCollapse)
{
    installManager("printf 'b rest\\na\\trest\\nb\\n'");
    Adapter adapter;
    ASSERT_EQ(adapter.IsHXM(), 0);
    ASSERT_EQ(adapter.getAllResource(), 0);
    EXPECT_THAT(adapter.ipResources, ElementsAre("a", "b"));
}

TEST_F(HxmInfo, AResourceAtTheClustersOwnAddressIsNoVirtualName)
{
    installManager("case $1$2 in -listType=IP) printf 'own\\nother\\n';; -valueown) echo 192.0.2.1;; "
                   "-value*) echo 192.0.2.2;; esac");
    Adapter adapter;
    ASSERT_EQ(adapter.IsHXM(), 0);
    ASSERT_EQ(adapter.getClusterIP(), 0);
    ASSERT_EQ(adapter.getResource_VirtualInfoMap(), 0);
    ASSERT_EQ(adapter.virtualInfoMap.size(), 1U);
    EXPECT_EQ(adapter.virtualInfoMap.at("other").address, "192.0.2.2");
    EXPECT_TRUE(wasTraced("    Process Resource:own.\n"));
}

TEST_F(HxmInfo, AResourceWithoutAnAddressLineIsSkipped)
{
    installManager("case $1$2 in -listType=IP) printf 'dumb\\ngood\\n';; -valuegood) echo 192.0.2.2;; esac");
    Adapter adapter;
    ASSERT_EQ(adapter.IsHXM(), 0);
    ASSERT_EQ(adapter.getResource_VirtualInfoMap(), 0);
    EXPECT_EQ(adapter.virtualInfoMap.count("dumb"), 0U);
    EXPECT_EQ(adapter.virtualInfoMap.count("good"), 1U);
}

TEST_F(HxmInfo, ANameThatCannotStandInACommandLineIsSkippedAndStaysInTheSet)
{
    installManager("case $1$2 in -listType=IP) printf '%s\\n' 'a;touch' '-rf' '$(id)' good '' ;; "
                   "-value*) echo 192.0.2.2;; esac");
    Adapter adapter;
    ASSERT_EQ(adapter.IsHXM(), 0);
    ASSERT_EQ(adapter.getResource_VirtualInfoMap(), 0);
    EXPECT_THAT(adapter.ipResources, ElementsAre("", "$(id)", "-rf", "a;touch", "good"));
    EXPECT_EQ(adapter.virtualInfoMap.size(), 1U);
    EXPECT_EQ(std::count(traced.begin(), traced.end(),
                         "    !!! Skipped resource with a name that cannot stand in a command line.\n"),
              4);
    EXPECT_THAT(runs(), ElementsAre("hxstatus -summary", "hxres -list Type=IP", "hxres -value good Address"));
    std::list<std::string> owners;
    EXPECT_NE(adapter.getSystems("$(id)", owners), 0);
    EXPECT_THAT(owners, IsEmpty());
}

TEST_F(HxmInfo, OwnersAreTheThirdWordsOfAllLinesButComments)
{
    installManager("printf '#Resource Attribute System Value\\nr State node1 x\\nr State\\n\\n"
                   "r State node2 OFFLINE # node9\\na b # c\\n'");
    Adapter adapter;
    ASSERT_EQ(adapter.IsHXM(), 0);
    std::list<std::string> owners{"earlier"};
    ASSERT_EQ(adapter.getSystems("r", owners), 0);
    EXPECT_THAT(owners, ElementsAre("earlier", "node1", "node2"));
}

TEST_F(HxmInfo, ARefusedAddressDoesNotResolve)
{
    Adapter adapter;
    for (const char* address : {"", "999.1.1.1", "a.b.c.d", "not an address", "1.2.3"})
        EXPECT_EQ(adapter.getVirtualName(address), "") << address;
    EXPECT_THAT(network().lookUps, IsEmpty());
}

TEST_F(HxmInfo, LinesAreTracedOneStepDeeperThanTheirReader)
{
    installManager();
    Adapter adapter;
    ASSERT_EQ(adapter.IsHXM(), 0);
    traced.clear();
    ASSERT_EQ(adapter.getClusterName(), 0);
    EXPECT_TRUE(wasTraced("    [CHxmInfo::my_fgets] ... Enter \n"));
    EXPECT_TRUE(wasTraced("        [fgets] clu\n"));
    EXPECT_TRUE(wasTraced("        [fgets] NULL\n"));
}

TEST_F(HxmInfo, ALongLineComesInPiecesAndEachPieceIsALine)
{
    installManager();
    tool(BIN, "hxsys", "printf '%2000s\\n' x | tr ' ' n");
    Adapter adapter;
    ASSERT_EQ(adapter.IsHXM(), 0);
    ASSERT_EQ(adapter.getClusterSystems(), 0);
    EXPECT_THAT(adapter.clusterSystems,
                ElementsAre(std::string(1023, 'n'), std::string(2000 - 1023 - 1, 'n') + "x"));
}

TEST_F(HxmInfo, ACommandThatCannotBeStartedIsMinusOneWhereverTheRulesTestIt)
{
    installManager();
    for (int good : {0, 1, 2}) {
        StarvedAdapter adapter(good);
        ClusterInfo info;
        EXPECT_EQ(adapter.GetClusterInfo(info), -1) << good;
        EXPECT_EQ(info.clusterType, CLUSTERTYPE_HXM) << good;
    }
    for (int good : {3, 4}) { // the domain and the resources may fail
        StarvedAdapter adapter(good);
        ClusterInfo info;
        EXPECT_EQ(adapter.GetClusterInfo(info), 0) << good;
        EXPECT_EQ(info.nodeList.size(), 2U) << good;
        EXPECT_TRUE(info.virtualInfoList.empty()) << good;
    }
}

TEST_F(HxmInfo, AResourceWhoseSystemsCannotBeAskedIsSkipped)
{
    installManager("case $1$2 in -listType=IP) echo vip;; -value*) echo 192.0.2.2;; esac");
    StarvedAdapter adapter(6);
    ClusterInfo info;
    EXPECT_EQ(adapter.GetClusterInfo(info), 0);
    EXPECT_TRUE(info.virtualInfoList.empty());
}

TEST_F(HxmInfo, ToolsThatPrintNothingOrFailLeaveTheirFieldsEmpty)
{
    for (const char* name : {"hxclus", "hxsys", "hxres"})
        tool(BIN, name, "exit 7");
    tool(BIN, "hxstatus", "exit 0");
    ClusterInfo info;
    EXPECT_EQ(GetClusterInfo_HXM(info), 0);
    EXPECT_EQ(info.clusterType, CLUSTERTYPE_HXM);
    EXPECT_EQ(info.cluster.name + info.cluster.ipv4 + info.cluster.ipv6, "");
    EXPECT_TRUE(info.nodeList.empty());
    EXPECT_TRUE(info.virtualInfoList.empty());
}

TEST_F(HxmInfo, BinaryOutputIsTakenUpToItsNuls)
{
    installManager();
    tool(BIN, "hxsys", "printf 'no\\000de\\n\\377\\376\\n'");
    Adapter adapter;
    ASSERT_EQ(adapter.IsHXM(), 0);
    ASSERT_EQ(adapter.getClusterSystems(), 0);
    EXPECT_THAT(adapter.clusterSystems, ElementsAre("no", "\xff\xfe"));
}

TEST_F(HxmInfo, OpeningACommandClosesTheOneBeforeAndWaitsForItsEnd)
{
    Adapter adapter;
    ASSERT_EQ(adapter.openCommand("sleep 0.3; echo ended >/tmp/first"), 0);
    ASSERT_FALSE(std::filesystem::exists("/tmp/first"));
    ASSERT_EQ(adapter.openCommand("echo second"), 0);
    EXPECT_TRUE(std::filesystem::exists("/tmp/first")) << "it was waited for";
    EXPECT_EQ(adapter.closeCommand(), 0);
    EXPECT_EQ(adapter.closeCommand(), 0);
    EXPECT_TRUE(wasTraced("    [command] echo second \n"));
}
