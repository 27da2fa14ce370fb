#include "sysinfo/vm_info.h"

#include "tests/fakes/platform/fake_platform.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>

using namespace SYSINFO_NAMESPACE;
using fakes::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::filesystem::path TOOLS = "/tmp/vm-tools";
const std::filesystem::path SBIN_LSPCI = "/usr/sbin/lspci";

void script(const std::filesystem::path& path, const std::string& body)
{
    std::ofstream(path) << "#!/bin/sh\necho \"" << path.filename().string()
                        << " $* LC_ALL=$LC_ALL\" >>/tmp/vm-runs\n"
                        << body << '\n';
    std::filesystem::permissions(path, std::filesystem::perms(0755));
}

std::vector<std::string> runs()
{
    std::ifstream file("/tmp/vm-runs");
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

/// Logs of one function.
std::vector<std::string> logOf(const char* function)
{
    return platform().texts(function, 2);
}

/// A machine whose tools are those that a test puts there.
class VmInfo : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        std::filesystem::remove_all(TOOLS);
        std::filesystem::create_directories(TOOLS);
        std::filesystem::remove("/tmp/vm-runs");
        std::filesystem::remove(SBIN_LSPCI);
        for (const char* needed : {"sh", "cat", "tr", "dd"})
            std::filesystem::create_symlink(std::string("/usr/bin/") + needed, TOOLS / needed);
        // Like Debian's, which prints the path and fails on the option behind the name.
        script(TOOLS / "which", "[ -x " + TOOLS.string() + "/$1 ] && echo " + TOOLS.string() + "/$1; exit 1");
        setenv("PATH", TOOLS.c_str(), 1);
        unsetenv("LC_ALL");
    }

    static void tool(const std::string& name, const std::string& body) { script(TOOLS / name, body); }

    /// dmidecode with a manufacturer and a product name.
    static void dmidecode(const std::string& manufacturer, const std::string& product = "")
    {
        tool("dmidecode", "case $2 in system-manufacturer) echo '" + manufacturer +
                              "';; system-product-name) echo '" + product + "';; esac");
    }

    LinuxVmInfo info;
};

constexpr const char* DMIDECODE = "LinuxVmInfo::getUVmTypeUsingDmidecodeCommand";
constexpr const char* LSPCI = "LinuxVmInfo::getUVmTypeUsingLspciCommand";
constexpr const char* HOSTNAMECTL = "LinuxVmInfo::getUVmTypeUsingHostnameCtlCommand";
constexpr const char* CHAIN = "LinuxVmInfo::getUVmType";
constexpr const char* AZURE = "LinuxVmInfo::isAzureStackVm";
constexpr const char* RED_HAT_LINE = "Red Hat string found as the manufacturer value in the output of the "
                                     "dmidecode, which conflicts with other "
                                     "hypervisor types, so finding product name instead..";
constexpr const char* TRY_LSPCI = "Failed to get UVMType using dmidecode command, trying with lspci command.";
constexpr const char* TRY_HOSTNAMECTL =
    "Failed to get UVMType using lspci command, trying with hostnamectl command.";

} // namespace

// dmidecode

TEST_F(VmInfo, TheManufacturerNamesTheFamily)
{
    dmidecode("VMware, Inc.");
    EXPECT_EQ(info.getUVmTypeUsingDmidecodeCommand(), 1);
    EXPECT_THAT(logOf(DMIDECODE), ElementsAre("uvmType: 1"));
    EXPECT_THAT(runs(),
                ElementsAre("which dmidecode -a LC_ALL=C", "dmidecode -s system-manufacturer LC_ALL="));
    // The blank behind the argument stands in the log, which is searched for it.
    EXPECT_TRUE(platform().logged(2, "Executing cmd (/tmp/vm-tools/dmidecode -s system-manufacturer )",
                                  "SystemCmd::Execute"));
}

TEST_F(VmInfo, AToolIsLocatedByTheFirstLineWhateverTheStatus)
{
    tool("which", "echo " + TOOLS.string() + "/dmidecode; echo /other/dmidecode; exit 1");
    dmidecode("Nutanix");
    EXPECT_EQ(info.getUVmTypeUsingDmidecodeCommand(), 6);
}

TEST_F(VmInfo, WithoutDmidecodeTheMisspeltLineIsKept)
{
    EXPECT_EQ(info.getUVmTypeUsingDmidecodeCommand(), 0);
    EXPECT_THAT(logOf(DMIDECODE), ElementsAre("Failed to find location of dmideocde binary.", "uvmType: 0"));
}

TEST_F(VmInfo, AFailingDmidecodeReturnsAtOnce)
{
    tool("dmidecode", "echo VMware; exit 1");
    EXPECT_EQ(info.getUVmTypeUsingDmidecodeCommand(), 0);
    EXPECT_THAT(logOf(DMIDECODE), ElementsAre("dmidecode system-manufacturer failed."));
}

TEST_F(VmInfo, ADmidecodeThatPrintsNothingReturnsAtOnce)
{
    tool("dmidecode", "exit 0");
    EXPECT_EQ(info.getUVmTypeUsingDmidecodeCommand(), 0);
    EXPECT_THAT(logOf(DMIDECODE), ElementsAre("dmidecode command output buffer is empty."));
}

TEST_F(VmInfo, OnlyTheFirstLineOfDmidecodeCounts)
{
    tool("dmidecode", "printf '# SMBIOS comment\\nVMware\\n'");
    EXPECT_EQ(info.getUVmTypeUsingDmidecodeCommand(), 0);
}

TEST_F(VmInfo, ARedHatManufacturerIsDecidedByTheProductName)
{
    dmidecode("Red Hat", "OpenStack Compute");
    EXPECT_EQ(info.getUVmTypeUsingDmidecodeCommand(), 8);
    EXPECT_THAT(logOf(DMIDECODE), ElementsAre(RED_HAT_LINE, "uvmType: 8"));
    EXPECT_THAT(runs(), ElementsAre("which dmidecode -a LC_ALL=C", "dmidecode -s system-manufacturer LC_ALL=",
                                    "dmidecode -s system-product-name LC_ALL="));
}

TEST_F(VmInfo, TheRedHatTestHeedsCase)
{
    dmidecode("RED HAT INC.");
    EXPECT_EQ(info.getUVmTypeUsingDmidecodeCommand(), 5);
    EXPECT_THAT(logOf(DMIDECODE), ElementsAre("uvmType: 5"));
}

TEST_F(VmInfo, AProductNameWithoutAKeywordOrALineIsNone)
{
    dmidecode("Red Hat", "RHEL");
    EXPECT_EQ(info.getUVmTypeUsingDmidecodeCommand(), 0);
    tool("dmidecode", "[ $2 = system-manufacturer ] && echo 'Red Hat'; exit 0");
    EXPECT_EQ(info.getUVmTypeUsingDmidecodeCommand(), 0);
}

TEST_F(VmInfo, AFailingProductNameQueryStillReachesTheClosingLine)
{
    tool("dmidecode", "[ $2 = system-manufacturer ] && echo 'Red Hat' && exit 0; exit 1");
    EXPECT_EQ(info.getUVmTypeUsingDmidecodeCommand(), 0);
    EXPECT_THAT(logOf(DMIDECODE),
                ElementsAre(RED_HAT_LINE, "dmidecode product name command failed", "uvmType: 0"));
}

// lspci

TEST_F(VmInfo, TheFirstLspciLineThatNamesAFamilyDecides)
{
    tool("lspci",
         "printf '00:00.0 Host bridge: Intel\\n00:01.0 Red Hat, Inc. Virtio\\n00:02.0 VMware SVGA\\n'");
    EXPECT_EQ(info.getUVmTypeUsingLspciCommand(), 5);
    EXPECT_THAT(logOf(LSPCI), ElementsAre("uvmType: 5"));
    EXPECT_THAT(runs(), ElementsAre("which lspci -a LC_ALL=C", "lspci  LC_ALL="));
}

TEST_F(VmInfo, AMissingAFailingOrASilentLspciGivesNone)
{
    EXPECT_EQ(info.getUVmTypeUsingLspciCommand(), 0);
    EXPECT_THAT(logOf(LSPCI), ElementsAre("Failed to find location of lspci binary.", "uvmType: 0"));
    fakes::reset();
    tool("lspci", "echo VMware; exit 1");
    EXPECT_EQ(info.getUVmTypeUsingLspciCommand(), 0);
    EXPECT_THAT(logOf(LSPCI), ElementsAre("lspci command failed", "uvmType: 0"));
    fakes::reset();
    tool("lspci", "exit 0");
    EXPECT_EQ(info.getUVmTypeUsingLspciCommand(), 0);
    EXPECT_THAT(logOf(LSPCI), ElementsAre("uvmType: 0"));
}

// hostnamectl

TEST_F(VmInfo, OnlyVirtualizationLinesOfHostnamectlCount)
{
    tool("hostnamectl", "printf '  Static hostname: kvm-host\\n   Virtualization: microsoft\\n'");
    EXPECT_EQ(info.getUVmTypeUsingHostnameCtlCommand(), 2);
    EXPECT_THAT(logOf(HOSTNAMECTL), ElementsAre("uvmType: 2"));
    tool("hostnamectl", "echo 'virtualization: kvm'");
    EXPECT_EQ(info.getUVmTypeUsingHostnameCtlCommand(), 0);
}

TEST_F(VmInfo, AMissingOrFailingHostnamectlGivesNone)
{
    EXPECT_EQ(info.getUVmTypeUsingHostnameCtlCommand(), 0);
    EXPECT_THAT(logOf(HOSTNAMECTL),
                ElementsAre("Failed to find location of hostnamectl binary.", "uvmType: 0"));
    fakes::reset();
    tool("hostnamectl", "echo 'Virtualization: kvm'; exit 1");
    EXPECT_EQ(info.getUVmTypeUsingHostnameCtlCommand(), 0);
    EXPECT_THAT(logOf(HOSTNAMECTL), ElementsAre("hostnamectl command failed", "uvmType: 0"));
}

// The chain

TEST_F(VmInfo, APhysicalHostAsksAllThree)
{
    dmidecode("Dell Inc.");
    tool("lspci", "echo '00:00.0 Host bridge: Intel'");
    tool("hostnamectl", "echo 'Chassis: server'");
    EXPECT_EQ(info.getUVmType(), 0);
    EXPECT_THAT(logOf(CHAIN), ElementsAre(TRY_LSPCI, TRY_HOSTNAMECTL));
    EXPECT_THAT(runs(),
                ElementsAre("which dmidecode -a LC_ALL=C",
                            "dmidecode -s system-manufacturer LC_ALL=", "which lspci -a LC_ALL=C",
                            "lspci  LC_ALL=", "which hostnamectl -a LC_ALL=C", "hostnamectl  LC_ALL="));
}

TEST_F(VmInfo, WithoutDmidecodeTheChainGoesOnWithLspci)
{
    tool("lspci", "echo 'VMware SVGA II'");
    EXPECT_EQ(info.getUVmType(), 1);
    EXPECT_THAT(logOf(CHAIN), ElementsAre(TRY_LSPCI));
}

TEST_F(VmInfo, TheChainEndsWithHostnamectl)
{
    dmidecode("OpenInfra Foundation", "Standard PC");
    tool("lspci", "echo '00:00.0 Host bridge: Intel'");
    tool("hostnamectl", "printf '   Chassis: vm\\n   Virtualization: kvm\\n'");
    EXPECT_EQ(info.getUVmType(), 5);
    EXPECT_THAT(logOf(CHAIN), ElementsAre(TRY_LSPCI, TRY_HOSTNAMECTL));
    EXPECT_EQ(runs().back(), "hostnamectl  LC_ALL=");
}

TEST_F(VmInfo, AHyperVGuestFoundByHostnamectlIsAskedForAzureStackToo)
{
    tool("hostnamectl", "echo '   Virtualization: microsoft'");
    tool("curl", "echo '{\"subscriptionId\": \"1\"}'");
    EXPECT_EQ(info.getUVmType(), 7);
    EXPECT_THAT(logOf(CHAIN), ElementsAre(TRY_LSPCI, TRY_HOSTNAMECTL));
    EXPECT_THAT(logOf(HOSTNAMECTL), ElementsAre("uvmType: 2"));
}

TEST_F(VmInfo, AnAnswerOfDmidecodeEndsTheChain)
{
    dmidecode("Nutanix");
    EXPECT_EQ(info.getUVmType(), 6);
    EXPECT_THAT(logOf(CHAIN), IsEmpty());
}

TEST_F(VmInfo, AHyperVGuestOnAzureStackIsSeven)
{
    dmidecode("Microsoft Corporation");
    tool("curl", "echo '{\"subscriptionId\": \"1\"}'");
    EXPECT_EQ(info.getUVmType(), 7);
    EXPECT_THAT(logOf(AZURE), ElementsAre("subscriptionId found in the output.", "isAzureStackVm: 1"));
    EXPECT_EQ(runs().back(), "curl http://169.254.169.254/Microsoft.Compute/identity LC_ALL=C");
}

TEST_F(VmInfo, AHyperVGuestWithoutAMetadataAnswerIsTwo)
{
    dmidecode("Microsoft Corporation");
    tool("curl", "echo not found");
    EXPECT_EQ(info.getUVmType(), 2);
    EXPECT_THAT(logOf(AZURE), ElementsAre("isAzureStackVm: 0"));
    fakes::reset();
    tool("curl", "echo subscriptionId; exit 7");
    EXPECT_EQ(info.getUVmType(), 2);
    EXPECT_THAT(logOf(AZURE), ElementsAre("curl command failed", "isAzureStackVm: 0"));
}

TEST_F(VmInfo, OnlyHyperVGuestsAreAskedForAzureStack)
{
    dmidecode("VMware, Inc.");
    tool("curl", "echo subscriptionId");
    EXPECT_EQ(info.getUVmType(), 1);
    EXPECT_THAT(logOf(AZURE), IsEmpty());
}

// isVm

TEST_F(VmInfo, TheHypervisorFlagInWhateverCaseMakesAGuest)
{
    std::filesystem::remove(TOOLS / "cat");
    tool("cat", "printf 'processor : 0\\nflags : fpu HyperVisor lm\\n'");
    EXPECT_TRUE(info.getIsVm());
    EXPECT_THAT(logOf("LinuxVmInfo::getIsVm"), ElementsAre("isVm: 1"));
    EXPECT_THAT(runs(), ElementsAre("cat /proc/cpuinfo -vvv LC_ALL=C"));
}

TEST_F(VmInfo, NoFlagOrNoCpuinfoIsNoGuest)
{
    std::filesystem::remove(TOOLS / "cat");
    tool("cat", "echo 'flags : fpu lm'");
    EXPECT_FALSE(info.getIsVm());
    EXPECT_THAT(logOf("LinuxVmInfo::getIsVm"), ElementsAre("isVm: 0"));
    fakes::reset();
    tool("cat", "echo hypervisor; exit 1");
    EXPECT_FALSE(info.getIsVm());
    EXPECT_THAT(logOf("LinuxVmInfo::getIsVm"), ElementsAre("cat command failed", "isVm: 0"));
}

// VMware

TEST_F(VmInfo, IsVMwareLooksAtTheFixedLspciAlone)
{
    tool("lspci", "echo VMware");
    EXPECT_FALSE(info.isVMware());
    EXPECT_THAT(logOf("LinuxVmInfo::isVMware"), ElementsAre("lspci command failed", "isVMware: 0"));
    fakes::reset();
    script(SBIN_LSPCI, "printf 'Intel\\nSubsystem: VMWARE SVGA\\n'");
    EXPECT_TRUE(info.isVMware());
    EXPECT_THAT(logOf("LinuxVmInfo::isVMware"), ElementsAre("isVMware: 1"));
    EXPECT_EQ(runs().back(), "lspci -vvv LC_ALL=C");
}

TEST_F(VmInfo, AHostThatIsNoVMwareGuestIsSevenAndHasNoVmId)
{
    script(SBIN_LSPCI, "echo Intel");
    platform().gethostid = 0x1234;
    EXPECT_EQ(info.getVmType(), 7);
    EXPECT_THAT(logOf("LinuxVmInfo::getVmType"), ElementsAre("vmType: 7"));
    EXPECT_THAT(logOf("LinuxVmInfo::getVMwareType"), IsEmpty()); // the port is not touched
    EXPECT_EQ(info.getVmID(), "<NULL>");
    EXPECT_THAT(logOf("LinuxVmInfo::getVmID"), ElementsAre("vmId: <NULL>"));
}

TEST_F(VmInfo, AVMwareGuestsIdIsTheHostIdInHexadecimal)
{
    script(SBIN_LSPCI, "echo VMware");
    platform().gethostid = static_cast<long>(0xffffffff00a8c0feL);
    EXPECT_EQ(info.getVmID(), "a8c0fe");
    EXPECT_THAT(logOf("LinuxVmInfo::getVmID"), ElementsAre("vmId: a8c0fe"));
    platform().gethostid = 0;
    EXPECT_EQ(info.getVmID(), "<NULL>");
}

TEST_F(VmInfo, TheProductCodeIsReadWhereAVMwareDeviceIsListed)
{
    // Wherever this runs: on a machine that is no guest of VMware the read faults and there is no code.
    script(SBIN_LSPCI, "echo VMware");
    const long code = info.getVmType();
    EXPECT_THAT(code, testing::AnyOf(0, 1, 2, 7));
    EXPECT_THAT(logOf("LinuxVmInfo::getVMwareType"), ElementsAre("vmType: " + std::to_string(code)));
    EXPECT_THAT(logOf("LinuxVmInfo::getVmType"), ElementsAre("vmType: " + std::to_string(code)));
}

TEST(VMwareProductCode, TwoThreeAndFourHaveCodes)
{
    EXPECT_EQ(vmwareProductCode(2), 0);
    EXPECT_EQ(vmwareProductCode(3), 1);
    EXPECT_EQ(vmwareProductCode(4), 2);
}

TEST(VMwareProductCode, AnyOtherOrNoneIsSeven)
{
    for (std::uint32_t product : {0U, 1U, 5U, 0xffffffffU})
        EXPECT_EQ(vmwareProductCode(product), 7) << product;
    EXPECT_EQ(vmwareProductCode(std::nullopt), 7);
}

// Damaged output

namespace {

/// Bodies of scripts whose output names nothing: NULs, bytes that are no text, 10 MB of NULs, 10 MB on one
/// line, an empty line.
const char* const DAMAGED[] = {"printf '\\000VMware hypervisor subscriptionId\\n'", "printf '\\377\\376\\n'",
                               "dd if=/dev/zero bs=65536 count=160 2>/dev/null",
                               "dd if=/dev/zero bs=65536 count=160 2>/dev/null | tr '\\000' x",
                               "printf '\\n'"};

} // namespace

TEST_F(VmInfo, NoOutputOfAnyToolIsHarmful)
{
    for (const char* body : DAMAGED) {
        for (const char* name : {"dmidecode", "lspci", "hostnamectl"})
            tool(name, body);
        EXPECT_EQ(info.getUVmType(), 0) << body;
    }
}

TEST_F(VmInfo, NoOutputOfWhichIsHarmful)
{
    for (const char* name : {"dmidecode", "lspci", "hostnamectl"})
        tool(name, "echo VMware");
    for (const char* body : DAMAGED) {
        tool("which", body);
        testing::internal::CaptureStderr(); // a path over the line's length takes the redirections with it
        EXPECT_EQ(info.getUVmType(), 0) << body;
        testing::internal::GetCapturedStderr();
    }
}

TEST_F(VmInfo, NoOutputOfTheMetadataEndpointIsHarmful)
{
    dmidecode("Microsoft Corporation");
    for (const char* body : DAMAGED) {
        tool("curl", body);
        EXPECT_EQ(info.getUVmType(), 2) << body;
    }
}

TEST_F(VmInfo, NoOutputOfCatOrTheFixedLspciIsHarmful)
{
    std::filesystem::remove(TOOLS / "cat");
    for (const char* body : DAMAGED) {
        tool("cat", body);
        script(SBIN_LSPCI, body);
        EXPECT_FALSE(info.getIsVm()) << body;
        EXPECT_FALSE(info.isVMware()) << body;
        EXPECT_EQ(info.getVmType(), 7) << body;
        EXPECT_EQ(info.getVmID(), "<NULL>") << body;
    }
}

TEST_F(VmInfo, AKeywordCutByTheLineBufferIsNotFound)
{
    tool("lspci", "dd if=/dev/zero bs=2045 count=1 2>/dev/null | tr '\\000' x; echo vmware");
    EXPECT_EQ(info.getUVmTypeUsingLspciCommand(), 0);
    tool("lspci", "dd if=/dev/zero bs=2047 count=1 2>/dev/null | tr '\\000' x; echo vmware");
    EXPECT_EQ(info.getUVmTypeUsingLspciCommand(), 1);
}
