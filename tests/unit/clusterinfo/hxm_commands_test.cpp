// What the adapter does with its commands, its buffers and the addresses that it is told.
#include "clusterinfo/hxm_info.h"

#include "tests/unit/clusterinfo/hxm_stubs.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>

using namespace libclusterinfo;
using faked_network::LookUp;
using faked_network::network;
using hxm::Adapter;
using hxm::BIN;
using hxm::runs;
using hxm::tool;
using hxm::traced;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class HxmCommands : public hxm::HxmTest {};

/// While one lives, no program can be started: its environment would be too large. A limit of descriptors
/// would be in the way of the sanitizers, who need some themselves.
class NoMorePrograms {
public:
    NoMorePrograms() { setenv(NAME, std::string(std::size_t{1} << 20, 'x').c_str(), 1); }
    NoMorePrograms(const NoMorePrograms&) = delete;
    NoMorePrograms& operator=(const NoMorePrograms&) = delete;
    ~NoMorePrograms() { unsetenv(NAME); }

private:
    static constexpr const char* NAME = "TOO_LONG_FOR_ANY_PROGRAM";
};

/// A resource vip, whose address query prints a text.
std::string oneResourceAt(const std::string& address)
{
    return "case $1$2 in -listType=IP) echo vip;; -value*) printf '" + address + "';; esac";
}

} // namespace

// Commands

TEST_F(HxmCommands, ACommandThatCannotBeStartedIsMinusOneWithItsLine)
{
    Adapter adapter;
    {
        const NoMorePrograms none;
        EXPECT_EQ(adapter.openCommand("echo x"), -1);
    }
    EXPECT_TRUE(wasTraced("    !!! Failed to execute [command] echo x \n"));
    EXPECT_FALSE(wasTraced("    [command] echo x \n"));
    ASSERT_EQ(adapter.openCommand("echo y"), 0); // nothing is left behind
    EXPECT_EQ(adapter.closeCommand(), 0);
}

TEST_F(HxmCommands, EveryReaderPassesTheFailureOfItsOpenCommand)
{
    Adapter adapter;
    adapter.clusterSystems = {"earlier"};
    adapter.domainName = "earlier";
    std::list<std::string> owners{"earlier"};
    const NoMorePrograms none;
    EXPECT_EQ(adapter.getClusterName(), -1);
    EXPECT_EQ(adapter.getClusterIP(), -1);
    EXPECT_EQ(adapter.getDomainName(), -1);
    EXPECT_EQ(adapter.getClusterSystems(), -1);
    EXPECT_EQ(adapter.getAllResource(), -1);
    EXPECT_EQ(adapter.getResource_VirtualInfoMap(), -1);
    EXPECT_EQ(adapter.getSystems("vip", owners), -1);
    EXPECT_EQ(adapter.domainName, "earlier");
    EXPECT_THAT(adapter.clusterSystems, ElementsAre("earlier"));
    EXPECT_THAT(owners, ElementsAre("earlier"));
}

TEST_F(HxmCommands, OfTheHostNameOnlyTheFirstLineCounts)
{
    tool(hxm::STUB_PATH, "hostname", "printf 'h1.a.example\\nh2.b.example\\n'");
    Adapter adapter;
    ASSERT_EQ(adapter.getDomainName(), 0);
    EXPECT_EQ(adapter.domainName, "a.example");
}

TEST_F(HxmCommands, OfAResourcesAddressOnlyTheFirstLineCounts)
{
    installManager(oneResourceAt("192.0.2.7\\n192.0.2.8\\n"));
    Adapter adapter;
    ASSERT_EQ(adapter.IsHXM(), 0);
    ASSERT_EQ(adapter.getResource_VirtualInfoMap(), 0);
    EXPECT_EQ(adapter.virtualInfoMap.at("vip").address, "192.0.2.7");
}

TEST_F(HxmCommands, ACommandLineIsCutAtItsBuffersEnd)
{
    const std::string resource(1020, 'r');
    installManager("case $1$2 in -listType=IP) printf '%01020d\\n' 0 | tr 0 r;; esac");
    Adapter adapter;
    ASSERT_EQ(adapter.IsHXM(), 0);
    ASSERT_EQ(adapter.getResource_VirtualInfoMap(), 0);
    EXPECT_THAT(adapter.ipResources, ElementsAre(resource));
    const std::string before = "\"/opt/XRVNhxm/bin/hxres\" -value ";
    EXPECT_EQ(runs().back(), "hxres -value " + resource.substr(0, 1023 - before.size()));
    EXPECT_THAT(adapter.virtualInfoMap, IsEmpty());
    EXPECT_EQ(adapter.clusterName, "") << "the field behind the buffers";
}

// State

TEST_F(HxmCommands, FieldsStandInTheirFixedOrder)
{
    const Adapter adapter;
    const std::vector<const void*> fields = adapter.fields();
    EXPECT_TRUE(std::is_sorted(fields.begin(), fields.end(), std::less<>()));
}

TEST_F(HxmCommands, ReadersEmptyTheirFieldsFirstButForTheSystems)
{
    installManager(oneResourceAt("192.0.2.7\\n"));
    Adapter adapter;
    ASSERT_EQ(adapter.IsHXM(), 0);
    adapter.ipResources = {"gone"};
    for (int run = 0; run < 2; ++run) {
        ASSERT_EQ(adapter.getClusterName(), 0);
        ASSERT_EQ(adapter.getClusterIP(), 0);
        ASSERT_EQ(adapter.getDomainName(), 0);
        ASSERT_EQ(adapter.getClusterSystems(), 0);
        ASSERT_EQ(adapter.getAllResource(), 0);
    }
    EXPECT_EQ(adapter.clusterName, "clu");
    EXPECT_EQ(adapter.clusterIP, "192.0.2.1");
    EXPECT_EQ(adapter.domainName, "example");
    EXPECT_THAT(adapter.ipResources, ElementsAre("vip"));
    EXPECT_THAT(adapter.clusterSystems, ElementsAre("node1", "node2", "node1", "node2"));
}

TEST_F(HxmCommands, AResourceThatIsKnownKeepsItsAddress)
{
    installManager(oneResourceAt("192.0.2.7\\n"));
    Adapter adapter;
    ASSERT_EQ(adapter.IsHXM(), 0);
    adapter.virtualInfoMap.emplace("vip", VirtualInfo("earlier", "192.0.2.99"));
    ASSERT_EQ(adapter.getResource_VirtualInfoMap(), 0);
    ASSERT_EQ(adapter.virtualInfoMap.size(), 1U);
    EXPECT_EQ(adapter.virtualInfoMap.at("vip").virtualName, "earlier");
    EXPECT_EQ(adapter.virtualInfoMap.at("vip").address, "192.0.2.99");
}

// Addresses and their names

TEST_F(HxmCommands, TheClustersOwnAddressIsComparedWithRegardToCase)
{
    installManager("case $1$2 in -listType=IP) printf 'same\\nupper\\n';; -valuesame) echo 2001:db8::1;; "
                   "-valueupper) echo 2001:DB8::1;; esac");
    tool(BIN, "hxclus", "case $2 in ClusterName) echo clu;; *) echo 2001:db8::1;; esac");
    Adapter adapter;
    ASSERT_EQ(adapter.IsHXM(), 0);
    ASSERT_EQ(adapter.getClusterIP(), 0);
    ASSERT_EQ(adapter.getResource_VirtualInfoMap(), 0);
    ASSERT_EQ(adapter.virtualInfoMap.size(), 1U);
    EXPECT_EQ(adapter.virtualInfoMap.at("upper").address, "2001:DB8::1");
}

TEST_F(HxmCommands, AnAddressIsLookedUpByItsBytesAndFamily)
{
    network().names = {{"192.0.2.7", "vip4.example"}, {"2001:db8::7", "vip6.example"}};
    Adapter adapter;
    EXPECT_EQ(adapter.getVirtualName("192.0.2.7"), "vip4.example");
    EXPECT_EQ(adapter.getVirtualName("2001:db8::7"), "vip6.example");
    EXPECT_EQ(adapter.getVirtualName("192.0.2.8"), "");
    EXPECT_THAT(network().lookUps,
                ElementsAre(LookUp{{192, 0, 2, 7}, AF_INET},
                            LookUp{{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7}, AF_INET6},
                            LookUp{{192, 0, 2, 8}, AF_INET}));
}

TEST_F(HxmCommands, AResolvedNameIsSplitAtItsFirstDot)
{
    const std::array<std::string, 3> cases[] = {
        {"vip1.a.example", "vip1", "vip1.a.example"}, {"vip1", "vip1", ""}, {".example", "", ".example"}};
    installManager(oneResourceAt("192.0.2.7\\n"));
    for (const auto& [resolved, name, fqdn] : cases) {
        network().names["192.0.2.7"] = resolved;
        ClusterInfo info;
        ASSERT_EQ(GetClusterInfo_HXM(info), 0);
        ASSERT_EQ(info.virtualInfoList.size(), 1U) << resolved;
        EXPECT_EQ(info.virtualInfoList.front().name, name) << resolved;
        EXPECT_EQ(info.virtualInfoList.front().fqdn, fqdn) << resolved;
    }
}

// Trace

TEST_F(HxmCommands, EveryOperationHasAScopeOfItsName)
{
    installManager("case $1$2 in -listType=IP) echo vip;; -value*) echo 192.0.2.7;; "
                   "-state*) echo 'vip State node1';; esac");
    ClusterInfo info;
    ASSERT_EQ(GetClusterInfo_HXM(info), 0);
    for (const char* scope :
         {"CHxmInfo::my_fgets", "CHxmInfo::IsHXM", "CHxmInfo::getClusterName", "CHxmInfo::openCommand",
          "CHxmInfo::closeCommand", "CHxmInfo::getClusterIP", "CHxmInfo::getDomainName",
          "CHxmInfo::getClusterSystems", "CHxmInfo::getAllResource", "CHxmInfo::getResource_VirtualInfoMap",
          "CHxmInfo::getSystems", "CHxmInfo::isIPV4", "CHxmInfo::getVirtualName", "CHxmInfo::~CHxmInfo",
          "CHxmInfo::GetClusterInfo", "GetClusterInfo_HXM"}) {
        EXPECT_TRUE(wasTracedSomewhere("[" + std::string(scope) + "] ... Enter \n")) << scope;
        EXPECT_TRUE(wasTracedSomewhere("[" + std::string(scope) + "] ... Exit  \n")) << scope;
    }
}
