#include "sysinfo/system_info.h"

#include "sysinfo/hardware_info.h"
#include "sysinfo/host_info.h"
#include "sysinfo/os_info.h"
#include "sysinfo/vm_info.h"
#include "tests/fakes/platform/fake_platform.h"

#include <gmock/gmock.h>
#include <new>

// The probes, defined here: each notes its call, and one of them may throw.
namespace {

std::vector<std::string> calls;
std::string throwing;
bool throwsInteger = false;

template <typename Result>
Result probe(const std::string& name, Result result)
{
    calls.push_back(name);
    if (name == throwing) {
        if (throwsInteger)
            throw 7;
        throw std::bad_alloc();
    }
    return result;
}

} // namespace

namespace SYSINFO_NAMESPACE {

std::string UnixHostInfo::getHostID() const
{
    return probe<std::string>("getHostID", "id");
}

std::string UnixHostInfo::getTquClientName() const
{
    return probe<std::string>("getTquClientName", "client");
}

std::string UnixHostInfo::getTquClusterName() const
{
    return probe<std::string>("getTquClusterName", "cluster");
}

std::list<std::string> UnixHostInfo::getHostIP() const
{
    return probe<std::list<std::string>>("getHostIP", {"192.0.2.1"});
}

std::list<std::string> UnixHostInfo::getHostName() const
{
    return probe<std::list<std::string>>("getHostName", {"h1"});
}

std::string UnixOsInfo::getOsName() const
{
    return probe<std::string>("getOsName", "os");
}

std::string UnixOsInfo::getOsVersion() const
{
    return probe<std::string>("getOsVersion", "version");
}

bool LinuxVmInfo::getIsVm() const
{
    return probe("getIsVm", true);
}

long LinuxVmInfo::getVmType() const
{
    return probe("getVmType", 2L);
}

std::string LinuxVmInfo::getVmID() const
{
    return probe<std::string>("getVmID", "vm");
}

int LinuxVmInfo::getUVmType() const
{
    return probe("getUVmType", 5);
}

std::string LinuxHardwareInfo::getArchitectureType() const
{
    return probe<std::string>("getArchitectureType", "architecture");
}

std::string LinuxHardwareInfo::getCpuType() const
{
    return probe<std::string>("getCpuType", "cpu");
}

std::string LinuxHardwareInfo::getModelName() const
{
    return probe<std::string>("getModelName", "model");
}

std::string LinuxHardwareInfo::getVendorName() const
{
    return probe<std::string>("getVendorName", "vendor");
}

int LinuxHardwareInfo::getProcessorCount() const
{
    return probe("getProcessorCount", 3);
}

long LinuxHardwareInfo::getProcessorSocketCount() const
{
    return probe("getProcessorSocketCount", 2L);
}

long LinuxHardwareInfo::getProcessorCoreCount() const
{
    return probe("getProcessorCoreCount", 1L);
}

double LinuxHardwareInfo::getTotalMemory() const
{
    return probe("getTotalMemory", 4.5);
}

} // namespace SYSINFO_NAMESPACE

namespace {

using SYSINFO_NAMESPACE::GetClientSystemInfo;
using SYSINFO_NAMESPACE::TquClientSystemData;
using testing::ElementsAre;
using testing::IsEmpty;

class GetClientSystemInfoOrder : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        calls.clear();
        throwing.clear();
        throwsInteger = false;
    }

    TquClientSystemData result;
};

TEST_F(GetClientSystemInfoOrder, ProbesRunOnceInTheFixedOrder)
{
    EXPECT_EQ(GetClientSystemInfo(result), 0);
    EXPECT_THAT(calls, ElementsAre("getHostName", "getHostIP", "getHostID", "getTquClientName",
                                   "getTquClusterName", "getOsName", "getOsVersion", "getIsVm", "getVmType",
                                   "getVmID", "getUVmType", "getVendorName", "getModelName",
                                   "getArchitectureType", "getCpuType", "getProcessorCount",
                                   "getProcessorSocketCount", "getProcessorCoreCount", "getTotalMemory"));
    EXPECT_THAT(fakes::platform().log, IsEmpty());
}

TEST_F(GetClientSystemInfoOrder, EachAnswerReachesItsField)
{
    result.isVm = 7;
    EXPECT_EQ(GetClientSystemInfo(result), 0);
    EXPECT_EQ(result.osName, "os");
    EXPECT_EQ(result.osVersion, "version");
    EXPECT_EQ(result.hostID, "id");
    EXPECT_EQ(result.networkInfo.size(), 1U);
    EXPECT_EQ(result.architecture, "architecture");
    EXPECT_EQ(result.cpuType, "cpu");
    EXPECT_EQ(result.vendorName, "vendor");
    EXPECT_EQ(result.modelName, "model");
    EXPECT_EQ(result.tquClientName, "client");
    EXPECT_EQ(result.tquClusterName, "cluster");
    EXPECT_EQ(result.totalMemory, 4.5);
    EXPECT_EQ(result.processorCount, 3);
    EXPECT_EQ(result.processorSocketCount, 2);
    EXPECT_EQ(result.processorCoreCount, 1);
    EXPECT_EQ(result.isVm, 1);
    EXPECT_EQ(result.vmType, 2);
    EXPECT_EQ(result.vmID, "vm");
    EXPECT_EQ(result.uVmType, 5);
}

TEST_F(GetClientSystemInfoOrder, ExceptionOfAnyProbeIsMinusOneWithOneEntryAndAnUntouchedRecord)
{
    ASSERT_EQ(GetClientSystemInfo(result), 0);
    const std::vector<std::string> probes = calls;
    for (const std::string& name : probes) {
        fakes::reset();
        calls.clear();
        throwing = name;
        TquClientSystemData untouched;
        untouched.osName = "before";
        EXPECT_EQ(GetClientSystemInfo(untouched), -1) << name;
        EXPECT_EQ(untouched.osName, "before") << name;
        EXPECT_EQ(untouched.hostID, "") << name;
        EXPECT_EQ(calls.back(), name) << "no probe runs after it";
        EXPECT_THAT(fakes::platform().log,
                    ElementsAre(fakes::LogEntry{2, "exception getting system data",
                                                "TquClientSystemData::GetClientSystemInfo"}));
    }
}

TEST_F(GetClientSystemInfoOrder, ExceptionThatIsAnIntegerIsMinusOneToo)
{
    throwing = "getHostID";
    throwsInteger = true;
    EXPECT_EQ(GetClientSystemInfo(result), -1);
    EXPECT_EQ(result.osName, "");
    EXPECT_THAT(fakes::platform().log,
                ElementsAre(fakes::LogEntry{2, "exception getting system data",
                                            "TquClientSystemData::GetClientSystemInfo"}));
}

} // namespace
