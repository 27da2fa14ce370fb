#include "sysinfo/system_info.h"

#include "tests/unit/sysinfo/faked_host.h"

#include <cstdlib>
#include <gmock/gmock.h>

namespace {

using faked_host::host;
using fakes::platform;
using namespace SYSINFO_NAMESPACE;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

TEST(GetNetworkInfo, ThreeAddressesAndTwoNamesGiveThreeEntriesWithBothNames)
{
    SystemInfoData data;
    data.hostIPs = {"192.0.2.1", "192.0.2.2", "2001:db8::1"};
    data.hostNames = {"h1.example", "h1"};
    const std::list<IpInfoData> network = GetNetworkInfo(data);
    ASSERT_EQ(network.size(), 3U);
    auto address = data.hostIPs.begin();
    for (const IpInfoData& entry : network) {
        EXPECT_EQ(entry.ipAddress, *address++);
        EXPECT_THAT(entry.hostNames, ElementsAre("h1.example", "h1"));
    }
}

TEST(GetNetworkInfo, NoAddressesGiveAnEmptyList)
{
    SystemInfoData data;
    data.hostNames = {"h1"};
    EXPECT_THAT(GetNetworkInfo(data), IsEmpty());
}

TEST(GetNetworkInfo, NoNamesGiveEntriesWithoutNames)
{
    SystemInfoData data;
    data.hostIPs = {"192.0.2.1"};
    const std::list<IpInfoData> network = GetNetworkInfo(data);
    ASSERT_EQ(network.size(), 1U);
    EXPECT_THAT(network.front().hostNames, IsEmpty());
}

TEST(CreateTquClientSystemInfo, EveryFieldIsCopied)
{
    SystemInfoData data;
    data.osName = "1";
    data.osVersion = "2";
    data.vendorName = "3";
    data.modelName = "4";
    data.architecture = "5";
    data.cpuType = "6";
    data.tquClientName = "7";
    data.tquClusterName = "8";
    data.totalMemory = 9.5;
    data.processorCount = 10;
    data.processorSocketCount = 11;
    data.processorCoreCount = 12;
    data.hostNames = {"13"};
    data.hostIPs = {"14"};
    data.hostID = "15";
    data.isVm = 1;
    data.vmType = 17;
    data.uVmType = 18;
    data.vmID = "19";

    const TquClientSystemData result = CreateTquClientSystemInfo(data);
    EXPECT_EQ(result.osName, "1");
    EXPECT_EQ(result.osVersion, "2");
    EXPECT_EQ(result.vendorName, "3");
    EXPECT_EQ(result.modelName, "4");
    EXPECT_EQ(result.architecture, "5");
    EXPECT_EQ(result.cpuType, "6");
    EXPECT_EQ(result.tquClientName, "7");
    EXPECT_EQ(result.tquClusterName, "8");
    EXPECT_EQ(result.totalMemory, 9.5);
    EXPECT_EQ(result.processorCount, 10);
    EXPECT_EQ(result.processorSocketCount, 11);
    EXPECT_EQ(result.processorCoreCount, 12);
    EXPECT_THAT(result.networkInfo, ElementsAre(Field(&IpInfoData::ipAddress, "14")));
    EXPECT_EQ(result.hostID, "15");
    EXPECT_EQ(result.isVm, 1);
    EXPECT_EQ(result.vmType, 17);
    EXPECT_EQ(result.uVmType, 18);
    EXPECT_EQ(result.vmID, "19");
}

TEST(TquClientSystemData, FreshRecordsAreEmpty)
{
    const TquClientSystemData result = CreateTquClientSystemInfo(SystemInfoData{});
    EXPECT_EQ(result.osName, "");
    EXPECT_EQ(result.vmID, "");
    EXPECT_EQ(result.totalMemory, 0.0);
    EXPECT_EQ(result.processorCount, 0);
    EXPECT_EQ(result.isVm, 0);
    EXPECT_THAT(result.networkInfo, IsEmpty());
}

class GetClientSystemInfoTest : public testing::Test {
protected:
    void SetUp() override
    {
        faked_host::reset();
        setenv("PATH", "/nonexistent", 1); // the machine's own tools are not found
        EXPECT_EQ(GetClientSystemInfoWithFiles(), 0);
    }

    int GetClientSystemInfoWithFiles()
    {
        faked_host::setConfiguration("SERVER = m1\nCLIENT_NAME = H1.example\nCLUSTER_NAME = C1\n");
        faked_host::setFile("/proc/cpuinfo", "processor\t: 0\nvendor_id\t: SampleVendor\ncpu family\t: 6\n"
                                             "model\t\t: 79\nmodel name\t: Sample CPU\nstepping\t: 1\n");
        faked_host::setFile("/proc/meminfo", "MemTotal:        2048 kB\n");
        platform().addresses = {"127.0.0.1", "192.0.2.7"};
        platform().hostNames = {"h1.example", "h1", "192.0.2.7"};
        platform().gethostid = 0xA8C00702;
        return GetClientSystemInfo(result);
    }

    TquClientSystemData result;
};

TEST_F(GetClientSystemInfoTest, FillsTheRecordFromEveryProbe)
{
    EXPECT_EQ(result.osName, "Linux");
    EXPECT_EQ(result.osVersion, "6.1.0-18-amd64");
    EXPECT_EQ(result.hostID, "a8c00702");
    ASSERT_EQ(result.networkInfo.size(), 1U);
    EXPECT_EQ(result.networkInfo.front().ipAddress, "192.0.2.7");
    EXPECT_THAT(result.networkInfo.front().hostNames, ElementsAre("h1.example", "h1"));
    EXPECT_EQ(result.architecture, "x86_64");
    EXPECT_EQ(result.cpuType, "x86_64 (Family:6 Model:79 Stepping:1)");
    EXPECT_EQ(result.vendorName, "SampleVendor");
    EXPECT_EQ(result.modelName, "Sample CPU");
    EXPECT_EQ(result.tquClientName, "h1.example");
    EXPECT_EQ(result.tquClusterName, "c1");
    EXPECT_EQ(result.totalMemory, 2.0);
    EXPECT_EQ(result.processorCount, 4);
    EXPECT_EQ(result.processorSocketCount, 1);
    EXPECT_EQ(result.processorCoreCount, 1);
}

TEST_F(GetClientSystemInfoTest, RunsItsCommandsInAFixedOrder)
{
    std::vector<std::string> files;
    for (const std::string& line : host().shellLines)
        files.push_back(line.substr(0, line.find(" <")));
    EXPECT_THAT(files, ElementsAre("LC_ALL=C /bin/cat /usr/torqv/torquenix/kx.conf",
                                   "LC_ALL=C /bin/cat /usr/torqv/torquenix/kx.conf",
                                   "LC_ALL=C cat /proc/cpuinfo -vvv", // whether it is a guest
                                   "LC_ALL=C /sbin/lspci -vvv",       // VMware product
                                   "LC_ALL=C /sbin/lspci -vvv",       // VMware identifier
                                   "LC_ALL=C which dmidecode -a",     // hypervisor family
                                   "LC_ALL=C which lspci -a", "LC_ALL=C which hostnamectl -a",
                                   "LC_ALL=C /bin/cat /proc/cpuinfo",   // vendor
                                   "LC_ALL=C /bin/cat /proc/cpuinfo",   // model
                                   "LC_ALL=C /bin/cat /proc/cpuinfo",   // CPU type
                                   "LC_ALL=C /bin/cat /proc/cpuinfo",   // sockets
                                   "LC_ALL=C /bin/cat /proc/cpuinfo",   // cores
                                   "LC_ALL=C /bin/cat /proc/meminfo")); // memory
}

TEST_F(GetClientSystemInfoTest, OnlyLoopbackAddressesGiveAnEmptyNetwork)
{
    platform().addresses = {"127.0.0.1", "::1"};
    EXPECT_EQ(GetClientSystemInfo(result), 0);
    EXPECT_THAT(result.networkInfo, IsEmpty());
}

TEST_F(GetClientSystemInfoTest, FailedEnumerationGivesOneEntryWithTheMarker)
{
    platform().ifaddrsStatus = 1;
    EXPECT_EQ(GetClientSystemInfo(result), 0);
    ASSERT_EQ(result.networkInfo.size(), 1U);
    EXPECT_EQ(result.networkInfo.front().ipAddress, "<NULL>");
}

TEST_F(GetClientSystemInfoTest, RecordIsReturnedInFullWhenEveryProbeFails)
{
    faked_host::reset();
    faked_host::removeFile("/proc/cpuinfo");
    faked_host::removeFile("/proc/meminfo");
    host().unameFails = true;
    host().hostNameFails = true;
    host().processorsOnline = -1;
    platform().ifaddrsStatus = 1;

    EXPECT_EQ(GetClientSystemInfo(result), 0);
    for (const std::string* text :
         {&result.osName, &result.osVersion, &result.hostID, &result.architecture, &result.vendorName,
          &result.modelName, &result.tquClientName, &result.tquClusterName})
        EXPECT_EQ(*text, "<NULL>");
    EXPECT_EQ(result.cpuType, "<NULL> (Family:<NULL> Model:<NULL> Stepping:<NULL>)");
    EXPECT_EQ(result.totalMemory, 0.0);
    EXPECT_EQ(result.processorCount, 0);
    EXPECT_EQ(result.processorSocketCount, 0);
    EXPECT_EQ(result.processorCoreCount, 0);
    ASSERT_EQ(result.networkInfo.size(), 1U);
    EXPECT_THAT(result.networkInfo.front().hostNames, ElementsAre("<NULL>"));
}

} // namespace
