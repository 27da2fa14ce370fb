#include "clusterinfo/cluster_json.h"
#include "clusterinfo/cluster_records.h"

#include <algorithm>
#include <gtest/gtest.h>

using namespace libclusterinfo;

namespace {

ResourceInfo resource(const std::string& name, const std::string& fqdn = "", const std::string& ipv4 = "",
                      const std::string& ipv6 = "")
{
    ResourceInfo info;
    info.name = name;
    info.fqdn = fqdn;
    info.ipv4 = ipv4;
    info.ipv6 = ipv6;
    return info;
}

VirtualNameInfo virtualName(const std::string& name, const std::list<std::string>& owners)
{
    VirtualNameInfo info;
    info.name = name;
    info.fqdn = name + ".example";
    info.ipv4 = "192.0.2.7";
    info.ipv6 = "2001:db8::7";
    info.ownerList = owners;
    return info;
}

ClusterInfo sampleCluster()
{
    ClusterInfo info;
    info.clusterType = CLUSTERTYPE_HXM;
    info.cluster = resource("clu", "clu.example", "192.0.2.1", "");
    info.nodeList = {resource("node1", "node1.example"), resource("node2", "node2.example")};
    info.virtualInfoList = {virtualName("vip1", {"node1", "node2"}), virtualName("vip2", {})};
    return info;
}

constexpr const char* EMPTY_RECORD = R"({"name": "", "fqdn": "", "ipv4": "", "ipv6": ""})";

} // namespace

TEST(GetClusterTypeStr, EveryTypeHasItsText)
{
    EXPECT_STREQ(GetClusterTypeStr(CLUSTERTYPE_NOT_A_CLUSTER), "clustertype_not_a_cluster");
    EXPECT_STREQ(GetClusterTypeStr(CLUSTERTYPE_WSFC), "clustertype_wsfc");
    EXPECT_STREQ(GetClusterTypeStr(CLUSTERTYPE_WSFC_NO_AC), "clustertype_wsfc_no_ac");
    EXPECT_STREQ(GetClusterTypeStr(CLUSTERTYPE_HXM), "clustertype_hxm");
}

TEST(GetClusterTypeStr, AnyOtherNumberIsUnknown)
{
    EXPECT_STREQ(GetClusterTypeStr(static_cast<TQClusterType>(7)), "clustertype_unknown");
    EXPECT_STREQ(GetClusterTypeStr(static_cast<TQClusterType>(-1)), "clustertype_unknown");
}

TEST(ClusterRecords, ResetEmptiesEveryRecord)
{
    ClusterInfo cluster = sampleCluster();
    cluster.reset();
    EXPECT_EQ(cluster.clusterType, CLUSTERTYPE_NOT_A_CLUSTER);
    EXPECT_EQ(cluster.cluster.name + cluster.cluster.fqdn + cluster.cluster.ipv4 + cluster.cluster.ipv6, "");
    EXPECT_TRUE(cluster.nodeList.empty());
    EXPECT_TRUE(cluster.virtualInfoList.empty());

    ClusterNodeInfo node;
    node.node = resource("n", "n.e", "1", "2");
    node.cluster = resource("c", "c.e", "1", "2");
    node.virtualInfoList = {virtualName("v", {"n"})};
    node.reset();
    EXPECT_EQ(node.node.name + node.node.fqdn + node.cluster.ipv4 + node.cluster.ipv6, "");
    EXPECT_TRUE(node.virtualInfoList.empty());

    VirtualInfo known("name", "address");
    known.reset();
    EXPECT_EQ(known.virtualName + known.address, "");
}

TEST(ClusterRecords, ResetThroughTheBaseEmptiesTheOwnersToo)
{
    VirtualNameInfo info = virtualName("v", {"n"});
    ResourceInfo& base = info;
    base.reset();
    EXPECT_TRUE(info.ownerList.empty());
    EXPECT_EQ(info.name, "");
}

TEST(NodeLookup, MatchesByPrefixWithoutRegardToCase)
{
    NodeLookup lookup;
    lookup.name = "Node1";
    for (const char* name : {"node1", "NODE1.example", "node10"})
        EXPECT_TRUE(lookup(resource(name))) << name;
    for (const char* name : {"node2", "node", "xnode1", ""})
        EXPECT_FALSE(lookup(resource(name))) << name;
}

TEST(NodeLookup, TheFirstMatchingNodeWins)
{
    const std::list<ResourceInfo> nodes{resource("node10"), resource("node1")};
    NodeLookup lookup;
    lookup.name = "node1";
    EXPECT_EQ(std::find_if(nodes.begin(), nodes.end(), lookup)->name, "node10");
}

TEST(ClusterInfoToJson, AClusterAfterResetHasEmptyRecordAndArrays)
{
    ClusterInfo info = sampleCluster();
    info.reset();
    std::string json = "earlier";
    ClusterInfoToJson(info, json);
    EXPECT_EQ(json, std::string(R"({"clusterType": "clustertype_not_a_cluster", "cluster": )") +
                        EMPTY_RECORD + R"(, "nodeList": [], "virtualInfoList": []})");
}

TEST(ClusterInfoToJson, AWholeClusterInItsFixedOrder)
{
    std::string json;
    ClusterInfoToJson(sampleCluster(), json);
    EXPECT_EQ(json, R"({"clusterType": "clustertype_hxm", )"
                    R"("cluster": {"name": "clu", "fqdn": "clu.example", "ipv4": "192.0.2.1", "ipv6": ""}, )"
                    R"("nodeList": [{"name": "node1", "fqdn": "node1.example", "ipv4": "", "ipv6": ""}, )"
                    R"({"name": "node2", "fqdn": "node2.example", "ipv4": "", "ipv6": ""}], )"
                    R"("virtualInfoList": [{"name": "vip1", "fqdn": "vip1.example", "ipv4": "192.0.2.7", )"
                    R"("ipv6": "2001:db8::7", "ownerList": ["node1", "node2"]}, )"
                    R"({"name": "vip2", "fqdn": "vip2.example", "ipv4": "192.0.2.7", "ipv6": "2001:db8::7", )"
                    R"("ownerList": []}]})");
}

TEST(NodeInfoToJson, VirtualNamesDeliberatelyComeWithoutOwners)
{
    ClusterNodeInfo node;
    node.node = resource("node1", "node1.example");
    node.cluster = resource("clu");
    node.virtualInfoList = {virtualName("vip1", {"node1"})};
    std::string json = "earlier";
    NodeInfoToJson(node, json);
    EXPECT_EQ(json, R"({"node": {"name": "node1", "fqdn": "node1.example", "ipv4": "", "ipv6": ""}, )"
                    R"("cluster": {"name": "clu", "fqdn": "", "ipv4": "", "ipv6": ""}, )"
                    R"("virtualInfoList": [{"name": "vip1", "fqdn": "vip1.example", )"
                    R"("ipv4": "192.0.2.7", "ipv6": "2001:db8::7"}]})");
}

TEST(StatusToJson, HoldsTheStatusAlone)
{
    std::string json = "earlier";
    StatusToJson(json, 30036);
    EXPECT_EQ(json, R"({"status": 30036})");
    StatusToJson(json, -1);
    EXPECT_EQ(json, R"({"status": -1})");
}

TEST(ClusterInfoToJson, TextThatIsNotUtf8IsEmptyAndTheRestStays)
{
    ClusterInfo info = sampleCluster();
    info.cluster.name = "\xff\xfe";
    info.nodeList = {resource("node1", "\xc3", "1\x80", "\xed\xa0\x80")};
    info.virtualInfoList = {virtualName("vip1", {"node1", "node\xff", "node2"})};
    std::string json;
    ClusterInfoToJson(info, json);
    EXPECT_EQ(json, R"({"clusterType": "clustertype_hxm", )"
                    R"("cluster": {"name": "", "fqdn": "clu.example", "ipv4": "192.0.2.1", "ipv6": ""}, )"
                    R"("nodeList": [{"name": "node1", "fqdn": "", "ipv4": "", "ipv6": ""}], )"
                    R"("virtualInfoList": [{"name": "vip1", "fqdn": "vip1.example", "ipv4": "192.0.2.7", )"
                    R"("ipv6": "2001:db8::7", "ownerList": ["node1", "", "node2"]}]})");
}
