#include "clusterinfo/cluster_discovery.h"

#include "tests/unit/clusterinfo/hxm_stubs.h"

#include <cerrno>
#include <gmock/gmock.h>

using namespace libclusterinfo;
using faked_network::network;
using hxm::BIN;
using hxm::tool;
using hxm::traced;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

ResourceInfo node(const std::string& name)
{
    ResourceInfo info;
    info.name = name;
    return info;
}

VirtualNameInfo virtualName(const std::string& name, const std::string& ipv4, const std::string& ipv6,
                            const std::list<std::string>& owners)
{
    VirtualNameInfo info;
    info.name = name;
    info.fqdn = name.empty() ? "" : name + ".example";
    info.ipv4 = ipv4;
    info.ipv6 = ipv6;
    info.ownerList = owners;
    return info;
}

class Discovery : public hxm::HxmTest {
protected:
    /// A cluster of this host and another one, with one virtual address that this host may own.
    static void installCluster(const std::string& clusterAddress)
    {
        installManager("case $1$2 in -listType=IP) echo vip;; -value*) echo 192.0.2.7;; "
                       "-state*) printf 'vip State node1 x\\n';; esac");
        network().names["192.0.2.7"] = "vip";
        tool(BIN, "hxsys", "printf 'other\\nnode1\\n'");
        tool(BIN, "hxclus",
             "case $2 in ClusterName) echo clu;; ClusterAddress) echo " + clusterAddress + ";; esac");
    }

    std::list<std::string> names{"earlier"};
    ClusterInfo cluster;
    ClusterNodeInfo view;
};

} // namespace

TEST_F(Discovery, WithoutAManagerTheStatusPassesAndTheNamesStay)
{
    EXPECT_EQ(GetClusterSharedNames(names, false), 30036);
    EXPECT_THAT(names, ElementsAre("earlier"));
}

TEST_F(Discovery, AFailingPresenceCommandsStatusPasses)
{
    installManager();
    tool(BIN, "hxstatus", "exit 2");
    EXPECT_EQ(GetClusterSharedNames(names, true), 512);
    EXPECT_THAT(names, ElementsAre("earlier"));
}

TEST_F(Discovery, SharedNamesAreTheClustersAndTheOwnedVirtualNames)
{
    installCluster("192.0.2.1");
    EXPECT_EQ(GetClusterSharedNames(names, false), 0);
    EXPECT_THAT(names, ElementsAre("earlier", "clu", "vip"));
}

TEST_F(Discovery, WithAddressesTheyFollowTheirNames)
{
    installCluster("2001:db8::1");
    EXPECT_EQ(GetClusterSharedNames(names, true), 0);
    EXPECT_THAT(names, ElementsAre("earlier", "clu", "2001:db8::1", "vip", "192.0.2.7"));
}

TEST_F(Discovery, AClusterWithoutAnAddressContributesOnlyVirtualNames)
{
    installCluster("");
    EXPECT_EQ(GetClusterSharedNames(names, true), 0);
    EXPECT_THAT(names, ElementsAre("earlier", "vip", "192.0.2.7"));
}

TEST_F(Discovery, TheEnterLineStandsAtBothEndsOfSharedNames)
{
    GetClusterSharedNames(names, true);
    EXPECT_EQ(traced.front(), "[GetClusterSharedNames] ... (includeIP:true) Enter \n");
    EXPECT_EQ(traced.back(), "[GetClusterSharedNames] ... (includeIP:true) Enter \n");
    traced.clear();
    GetClusterSharedNames(names, false);
    EXPECT_EQ(traced.back(), "[GetClusterSharedNames] ... (includeIP:false) Enter \n");
}

TEST_F(Discovery, RulesFrameTheDiscovery)
{
    EXPECT_EQ(GetClusterInfo(cluster), 30036);
    EXPECT_EQ(traced.front(), "----------------------------------------\n");
    EXPECT_EQ(traced.back(), "----------------------------------------\n\n");
}

TEST_F(Discovery, TheRecordIsResetFirst)
{
    cluster.clusterType = CLUSTERTYPE_WSFC;
    cluster.nodeList = {node("old")};
    GetClusterInfo(cluster);
    EXPECT_EQ(cluster.clusterType, CLUSTERTYPE_NOT_A_CLUSTER);
    EXPECT_TRUE(cluster.nodeList.empty());
}

TEST_F(Discovery, JsonOfTheCluster)
{
    std::string json;
    EXPECT_EQ(GetClusterInfo(json), 30036);
    EXPECT_EQ(json, R"({"status": 30036})");
    installCluster("192.0.2.1");
    EXPECT_EQ(GetClusterInfo(json), 0);
    EXPECT_NE(json.find(R"("clusterType": "clustertype_hxm")"), std::string::npos) << json;
}

TEST_F(Discovery, JsonOfTheNodesView)
{
    std::string json;
    EXPECT_EQ(GetClusterNodeInfo(json), 30036);
    EXPECT_EQ(json, R"({"status": 30036})");
    installCluster("192.0.2.1");
    EXPECT_EQ(GetClusterNodeInfo(json), 0);
    EXPECT_EQ(json.find(R"({"node": {"name": "node1")"), 0U) << json;
}

TEST_F(Discovery, TheHostNameIsCutBeforeItsFirstDot)
{
    const std::pair<const char*, const char*> cases[] = {
        {"node1.a.example", "node1"}, {"node1", "node1"}, {".x", ""}, {"", ""}};
    for (const auto& [full, cut] : cases) {
        network().hostName = full;
        std::string name = "earlier";
        EXPECT_EQ(GetNodeHostName(name), 0) << full;
        EXPECT_EQ(name, cut) << full;
    }
    EXPECT_THAT(traced, IsEmpty());
}

TEST_F(Discovery, AHostNameThatCannotBeAskedForGivesItsErrorNumber)
{
    network().hostNameFails = true;
    network().hostNameError = ENAMETOOLONG;
    std::string name = "earlier";
    EXPECT_EQ(GetNodeHostName(name), ENAMETOOLONG);
    EXPECT_EQ(name, "earlier");
    EXPECT_THAT(traced, ElementsAre("!!! gethostname() failed ... ox24\n"));
    cluster.nodeList = {node("node1")};
    traced.clear();
    EXPECT_EQ(GetClusterNodeInfo(cluster, view), ENAMETOOLONG);
    EXPECT_THAT(traced,
                ElementsAre("[GetClusterNodeInfo] ... Enter \n", "!!! gethostname() failed ... ox24\n"));
}

TEST_F(Discovery, AFailureWithoutAnErrorNumberIsAnEmptyHostName)
{
    network().hostNameFails = true;
    errno = EINVAL; // of something before
    std::string name = "earlier";
    EXPECT_EQ(GetNodeHostName(name), 0);
    EXPECT_EQ(name, "");
    EXPECT_THAT(traced, IsEmpty());
}

TEST_F(Discovery, AHostWithoutANameIsMinusOne)
{
    cluster.nodeList = {node("node1")}; // which an empty name would match
    for (const char* name : {"", ".x"}) {
        network().hostName = name;
        traced.clear();
        EXPECT_EQ(GetClusterNodeInfo(cluster, view), -1) << name;
        EXPECT_EQ(view.node.name, "") << name;
        EXPECT_THAT(traced, ElementsAre("[GetClusterNodeInfo] ... Enter \n",
                                        "    !!! Unable to retrieve hostname for the local machine.\n"))
            << name;
    }
}

TEST_F(Discovery, AFailureOfTheNodesViewReachesTheJsonAndTheSharedNames)
{
    installCluster("192.0.2.1");
    network().hostName = "";
    std::string json;
    EXPECT_EQ(GetClusterNodeInfo(json), -1);
    EXPECT_EQ(json, R"({"status": -1})");
    EXPECT_EQ(GetClusterSharedNames(names, true), -1);
    network().hostNameFails = true;
    network().hostNameError = ENAMETOOLONG;
    EXPECT_EQ(GetClusterNodeInfo(json), ENAMETOOLONG);
    EXPECT_EQ(json, R"({"status": 36})");
    traced.clear();
    EXPECT_EQ(GetClusterSharedNames(names, true), ENAMETOOLONG);
    EXPECT_THAT(names, ElementsAre("earlier"));
    EXPECT_EQ(traced.front(), "[GetClusterSharedNames] ... (includeIP:true) Enter \n");
    EXPECT_EQ(traced.back(), "[GetClusterSharedNames] ... (includeIP:true) Enter \n");
}

TEST_F(Discovery, AHostThatIsNoMemberIsNoFailureAndHasNoExitLine)
{
    cluster.nodeList = {node("stranger")};
    view.node.name = "unchanged";
    EXPECT_EQ(GetClusterNodeInfo(cluster, view), 0);
    EXPECT_EQ(view.node.name, "unchanged");
    EXPECT_THAT(traced, ElementsAre("[GetClusterNodeInfo] ... Enter \n", "    Hostname: \"node1\"\n",
                                    "    \"node1\" is NOT part of the cluster.\n"));
}

TEST_F(Discovery, AHostThatIsNoMemberSharesNoNames)
{
    installManager();
    tool(BIN, "hxsys", "echo stranger");
    EXPECT_EQ(GetClusterSharedNames(names, true), 0);
    EXPECT_THAT(names, ElementsAre("earlier"));
}

TEST_F(Discovery, ByThePrefixRuleALongerNodeNameThatComesFirstIsTaken)
{
    const std::string host = "node1";
    cluster.nodeList = {node(host + "0"), node(host)};
    EXPECT_EQ(GetClusterNodeInfo(cluster, view), 0);
    EXPECT_EQ(view.node.name, host + "0");
}

TEST_F(Discovery, AVirtualNameIsTakenOnceForEachMatchingOwner)
{
    const std::string host = "node1";
    cluster.nodeList = {node(host)};
    cluster.cluster = node("clu");
    cluster.virtualInfoList = {virtualName("both", "192.0.2.7", "", {host, host + "0"}),
                               virtualName("none", "192.0.2.8", "", {"stranger"}),
                               virtualName("unowned", "192.0.2.9", "", {})};
    EXPECT_EQ(GetClusterNodeInfo(cluster, view), 0);
    ASSERT_EQ(view.virtualInfoList.size(), 2U);
    EXPECT_EQ(view.virtualInfoList.front().name, "both");
    EXPECT_EQ(view.virtualInfoList.back().name, "both");
    EXPECT_THAT(view.virtualInfoList.back().ownerList, ElementsAre(host, host + "0"));
    EXPECT_EQ(view.cluster.name, "clu");
    EXPECT_THAT(traced, ElementsAre("[GetClusterNodeInfo] ... Enter \n", "    Hostname: \"" + host + "\"\n",
                                    "    Possible owner of virtual name \"both\".\n",
                                    "    Possible owner of virtual name \"both\".\n",
                                    "[GetClusterNodeInfo] ... Exit \n"));
}
