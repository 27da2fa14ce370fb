// The names that a host shares with a cluster, whatever its manager: the adapter's answer is the test's own.
#include "clusterinfo/cluster_discovery.h"

#include "clusterinfo/hxm_info.h"
#include "tests/unit/clusterinfo/faked_network.h"

#include <gmock/gmock.h>

using namespace libclusterinfo;
using testing::ElementsAre;

namespace {

ClusterInfo described;

ResourceInfo identity(const std::string& name, const std::string& fqdn, const std::string& ipv4,
                      const std::string& ipv6)
{
    ResourceInfo info;
    info.name = name;
    info.fqdn = fqdn;
    info.ipv4 = ipv4;
    info.ipv6 = ipv6;
    return info;
}

VirtualNameInfo virtualName(const std::string& name, const std::string& fqdn, const std::string& ipv4,
                            const std::string& ipv6, const std::list<std::string>& owners = {"node1"})
{
    VirtualNameInfo info;
    static_cast<ResourceInfo&>(info) = identity(name, fqdn, ipv4, ipv6);
    info.ownerList = owners;
    return info;
}

class SharedNames : public testing::Test {
protected:
    void SetUp() override
    {
        faked_network::reset();
        described.reset();
        described.clusterType = CLUSTERTYPE_HXM;
        described.nodeList = {identity("node1", "", "", "")};
    }

    std::list<std::string> shared(bool includeIP)
    {
        EXPECT_EQ(GetClusterSharedNames(names, includeIP), 0);
        return names;
    }

    std::list<std::string> names;
};

} // namespace

// Stands before the one of the library.
int libclusterinfo::GetClusterInfo_HXM(ClusterInfo& info)
{
    info = described;
    return 0;
}

TEST_F(SharedNames, EveryPartOfTheClusterInItsOrder)
{
    described.cluster = identity("clu", "clu.example", "192.0.2.1", "2001:db8::1");
    EXPECT_THAT(shared(true), ElementsAre("clu", "clu.example", "192.0.2.1", "2001:db8::1"));
    names.clear();
    EXPECT_THAT(shared(false), ElementsAre("clu", "clu.example"));
}

TEST_F(SharedNames, AVirtualNameAtAnIPv6AddressGivesNameFullNameAndAddress)
{
    described.virtualInfoList = {virtualName("vip6", "vip6.a.example", "", "2001:db8::7")};
    EXPECT_THAT(shared(true), ElementsAre("vip6", "vip6.a.example", "2001:db8::7"));
}

TEST_F(SharedNames, AVirtualNameWithoutAnAddressIsSkipped)
{
    described.virtualInfoList = {virtualName("nowhere", "nowhere.example", "", ""),
                                 virtualName("vip", "", "192.0.2.7", "")};
    EXPECT_THAT(shared(true), ElementsAre("vip", "192.0.2.7"));
}

TEST_F(SharedNames, AClusterWithoutAnAddressContributesNoName)
{
    described.cluster = identity("clu", "clu.example", "", "");
    described.virtualInfoList = {virtualName("vip", "", "192.0.2.7", "")};
    EXPECT_THAT(shared(true), ElementsAre("vip", "192.0.2.7"));
}

TEST_F(SharedNames, DuplicatesAreDeliberatelyNotRemoved)
{
    names = {"vip"};
    described.cluster = identity("vip", "", "192.0.2.7", "");
    described.virtualInfoList = {virtualName("vip", "", "192.0.2.7", "", {"node1", "node10"}),
                                 virtualName("vip", "", "192.0.2.7", "")};
    EXPECT_THAT(shared(false), ElementsAre("vip", "vip", "vip", "vip", "vip"));
}

TEST_F(SharedNames, AnOwnerIsFoundWithoutRegardToCase)
{
    described.virtualInfoList = {virtualName("upper", "", "192.0.2.7", "", {"NODE1.Example"}),
                                 virtualName("other", "", "192.0.2.8", "", {"NODE2"})};
    EXPECT_THAT(shared(false), ElementsAre("upper"));
}

TEST_F(SharedNames, TheNodesFourTextsAreCopiedIntoItsView)
{
    described.nodeList = {identity("node2", "node2.example", "192.0.2.22", "2001:db8::22"),
                          identity("NODE1", "node1.example", "192.0.2.21", "2001:db8::21")};
    ClusterNodeInfo view;
    ASSERT_EQ(GetClusterNodeInfo(described, view), 0);
    EXPECT_EQ(view.node.name, "NODE1");
    EXPECT_EQ(view.node.fqdn, "node1.example");
    EXPECT_EQ(view.node.ipv4, "192.0.2.21");
    EXPECT_EQ(view.node.ipv6, "2001:db8::21");
}
