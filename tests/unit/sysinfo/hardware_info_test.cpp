#include "sysinfo/hardware_info.h"

#include "tests/unit/long_line.h"
#include "tests/unit/sysinfo/faked_host.h"

#include <gmock/gmock.h>

namespace {

using faked_host::host;
using fakes::LogEntry;
using fakes::platform;
using SYSINFO_NAMESPACE::LinuxHardwareInfo;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr const char* CPU_INFO = "/proc/cpuinfo";
constexpr const char* MEMORY_INFO = "/proc/meminfo";
constexpr const char* COUNTING = "useCpuInfoFile";

constexpr const char* TWO_THREADS = "processor\t: 0\n"
                                    "vendor_id\t: SampleVendor\n"
                                    "cpu family\t: 6\n"
                                    "model\t\t: 79\n"
                                    "model name\t: Sample CPU E5 @ 2.30GHz\n"
                                    "stepping\t: 1\n"
                                    "physical id\t: 0\n"
                                    "core id\t\t: 0\n"
                                    "\n"
                                    "processor\t: 1\n"
                                    "vendor_id\t: OtherVendor\n"
                                    "cpu family\t: 7\n"
                                    "model\t\t: 80\n"
                                    "model name\t: Sample CPU E6\n"
                                    "stepping\t: 2\n"
                                    "physical id\t: 0\n"
                                    "core id\t\t: 0\n"
                                    "\n";

class LinuxHardwareInfoTest : public testing::Test {
protected:
    void SetUp() override { faked_host::reset(); }

    /// The log must be one cat and then these entries.
    static void expectCatAnd(const char* path, int rawStatus, const std::vector<LogEntry>& rest)
    {
        std::vector<LogEntry> expected = faked_host::catEntries(path, rawStatus);
        expected.insert(expected.end(), rest.begin(), rest.end());
        EXPECT_THAT(faked_host::log(), ElementsAreArray(expected));
    }

    LinuxHardwareInfo probe;
};

TEST_F(LinuxHardwareInfoTest, ArchitectureIsTheMachineField)
{
    host().machine = "aarch64";
    EXPECT_EQ(probe.getArchitectureType(), "aarch64");
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{2, "architecture: aarch64", "LinuxHardwareInfo::getArchitectureType"}));
}

TEST_F(LinuxHardwareInfoTest, FailedUnameIsLoggedBeforeTheArchitecture)
{
    host().unameFails = true;
    EXPECT_EQ(probe.getArchitectureType(), "<NULL>");
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{2, "ACE_utsname failed", "LinuxHardwareInfo::getArchitectureType"},
                            LogEntry{2, "architecture: <NULL>", "LinuxHardwareInfo::getArchitectureType"}));
}

TEST_F(LinuxHardwareInfoTest, CpuTypeHoldsTheLastProcessorsIdentity)
{
    faked_host::setFile(CPU_INFO, TWO_THREADS);
    EXPECT_EQ(probe.getCpuType(), "x86_64 (Family:7 Model:80 Stepping:2)");
    std::vector<LogEntry> expected{{2, "architecture: x86_64", "LinuxHardwareInfo::getArchitectureType"}};
    for (const LogEntry& entry : faked_host::catEntries(CPU_INFO, 0))
        expected.push_back(entry);
    expected.push_back(
        {2, "cpuType: x86_64 (Family:7 Model:80 Stepping:2)", "LinuxHardwareInfo::getCpuType"});
    EXPECT_THAT(faked_host::log(), ElementsAreArray(expected));
}

TEST_F(LinuxHardwareInfoTest, CpuTypeGoesOnWithDefaultsAfterAFailedCat)
{
    faked_host::removeFile(CPU_INFO);
    EXPECT_EQ(probe.getCpuType(), "x86_64 (Family:<NULL> Model:<NULL> Stepping:<NULL>)");
    std::vector<LogEntry> expected{{2, "architecture: x86_64", "LinuxHardwareInfo::getArchitectureType"}};
    for (const LogEntry& entry : faked_host::catEntries(CPU_INFO, 256))
        expected.push_back(entry);
    expected.push_back({2, "cat command failed", "LinuxHardwareInfo::getCpuType"});
    expected.push_back(
        {2, "cpuType: x86_64 (Family:<NULL> Model:<NULL> Stepping:<NULL>)", "LinuxHardwareInfo::getCpuType"});
    EXPECT_THAT(faked_host::log(), ElementsAreArray(expected));
}

TEST_F(LinuxHardwareInfoTest, CpuTypeIsCutTo1024Bytes)
{
    faked_host::setFile(CPU_INFO, "cpu family\t: " + std::string(1500, '6') + "\n");
    const std::string cpuType = probe.getCpuType();
    EXPECT_EQ(cpuType, ("x86_64 (Family:" + std::string(1500, '6')).substr(0, 1024));
}

TEST_F(LinuxHardwareInfoTest, ModelNameIsTheLastOne)
{
    faked_host::setFile(CPU_INFO, TWO_THREADS);
    EXPECT_EQ(probe.getModelName(), "Sample CPU E6");
    expectCatAnd(CPU_INFO, 0, {{2, "modelName: Sample CPU E6", "LinuxHardwareInfo::getModelName"}});
}

TEST_F(LinuxHardwareInfoTest, ModelNameAfterAFailedCatIsTheMarker)
{
    faked_host::removeFile(CPU_INFO);
    EXPECT_EQ(probe.getModelName(), "<NULL>");
    expectCatAnd(CPU_INFO, 256,
                 {{2, "cat command failed", "LinuxHardwareInfo::getModelName"},
                  {2, "modelName: <NULL>", "LinuxHardwareInfo::getModelName"}});
}

TEST_F(LinuxHardwareInfoTest, VendorIsTheFirstThatIsNotEmpty)
{
    faked_host::setFile(CPU_INFO, TWO_THREADS);
    EXPECT_EQ(probe.getVendorName(), "SampleVendor");
    expectCatAnd(CPU_INFO, 0, {{2, "vendorName: SampleVendor", "LinuxHardwareInfo::getVendorName"}});

    faked_host::setFile(CPU_INFO, "vendor_id\nvendor_id\t:\nvendor_id       : IBM/S390\nvendor_id\t: x\n");
    EXPECT_EQ(probe.getVendorName(), "IBM/S390");
}

TEST_F(LinuxHardwareInfoTest, HostWithoutAVendorHasTheMarker)
{
    faked_host::setFile(CPU_INFO, "processor\t: 0\nBogoMIPS\t: 48.00\n");
    EXPECT_EQ(probe.getVendorName(), "<NULL>");
    expectCatAnd(CPU_INFO, 0, {{2, "vendorName: <NULL>", "LinuxHardwareInfo::getVendorName"}});
}

TEST_F(LinuxHardwareInfoTest, VendorAfterAFailedCatIsTheMarker)
{
    faked_host::removeFile(CPU_INFO);
    EXPECT_EQ(probe.getVendorName(), "<NULL>");
    expectCatAnd(CPU_INFO, 256,
                 {{2, "cat command failed", "LinuxHardwareInfo::getVendorName"},
                  {2, "vendorName: <NULL>", "LinuxHardwareInfo::getVendorName"}});
}

TEST_F(LinuxHardwareInfoTest, ProcessorCountComesFromTheSystem)
{
    host().processorsOnline = 12;
    EXPECT_EQ(probe.getProcessorCount(), 12);
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{2, "activeCoreCount: 12", "LinuxHardwareInfo::getProcessorCount"}));
}

TEST_F(LinuxHardwareInfoTest, ProcessorCountBelowOneIsLoggedAndZero)
{
    for (const long answer : {-1L, 0L}) {
        faked_host::reset();
        host().processorsOnline = answer;
        EXPECT_EQ(probe.getProcessorCount(), 0);
        EXPECT_THAT(platform().log,
                    ElementsAre(LogEntry{2, "sysconf(_SC_NPROCESSORS_ONLN) failed",
                                         "LinuxHardwareInfo::getProcessorCount"},
                                LogEntry{2, "activeCoreCount: 0", "LinuxHardwareInfo::getProcessorCount"}));
    }
}

TEST_F(LinuxHardwareInfoTest, TwoThreadsOfOneCoreAreOneSocketAndOneCore)
{
    faked_host::setFile(CPU_INFO, TWO_THREADS);
    EXPECT_EQ(probe.getProcessorSocketCount(), 1);
    expectCatAnd(CPU_INFO, 0,
                 {{2, "processor count = 2", COUNTING},
                  {2, "core count      = 1", COUNTING},
                  {2, "socket count    = 1", COUNTING},
                  {2, "processorSocketCount = 1", "LinuxHardwareInfo::getProcessorSocketCount"}});
}

TEST_F(LinuxHardwareInfoTest, CoreCountRunsTheCountingAgain)
{
    faked_host::setFile(CPU_INFO, TWO_THREADS);
    EXPECT_EQ(probe.getProcessorCoreCount(), 1);
    expectCatAnd(CPU_INFO, 0,
                 {{2, "processor count = 2", COUNTING},
                  {2, "core count      = 1", COUNTING},
                  {2, "socket count    = 1", COUNTING},
                  {2, "processorCoreCount = 1", "LinuxHardwareInfo::getProcessorCoreCount"}});
}

TEST_F(LinuxHardwareInfoTest, WithoutPhysicalIdsSocketsAndCoresEqualTheProcessors)
{
    faked_host::setFile(CPU_INFO,
                        "processor\t: 0\ncore id\t: 0\n\nprocessor\t: 1\ncore id\t: 1\n\nprocessor\t: 2\n");
    EXPECT_EQ(probe.getProcessorSocketCount(), 3);
    expectCatAnd(CPU_INFO, 0,
                 {{2, "processor count = 3", COUNTING},
                  {2, "core count      = 0", COUNTING},
                  {2, "socket count    = 0", COUNTING},
                  {8, "adjusted socket count = 0", COUNTING}, // the count before the adjustment
                  {8, "adjusted core count   = 3", COUNTING},
                  {2, "processorSocketCount = 3", "LinuxHardwareInfo::getProcessorSocketCount"}});
    EXPECT_EQ(probe.getProcessorCoreCount(), 3);
}

TEST_F(LinuxHardwareInfoTest, WithoutCountedCoresTheSocketsStandIn)
{
    faked_host::setFile(CPU_INFO, "processor\t: 0\nphysical id\t: 0\ncore id\t: 16\n\n"
                                  "processor\t: 1\nphysical id\t: 1\ncore id\t: 17\n\nprocessor\t: 2\n");
    EXPECT_EQ(probe.getProcessorCoreCount(), 2);
    EXPECT_TRUE(platform().logged(8, "adjusted core count   = 2", COUNTING));
    EXPECT_EQ(platform().texts(COUNTING, 8).size(), 1U) << "the sockets were not adjusted";
}

TEST_F(LinuxHardwareInfoTest, PhysicalIdOf32IsNotCountedAsASocket)
{
    faked_host::setFile(CPU_INFO, "processor\t: 0\nphysical id\t: 0\ncore id\t: 0\n\n"
                                  "processor\t: 1\nphysical id\t: 32\ncore id\t: 0\n");
    EXPECT_EQ(probe.getProcessorSocketCount(), 1);
}

TEST_F(LinuxHardwareInfoTest, UnexpectedIdLineIsLogged)
{
    faked_host::setFile(CPU_INFO, "processor\t: 0\nphysical id\t: 0 (zero)\r\ncore id\t: 0\n");
    EXPECT_EQ(probe.getProcessorSocketCount(), 1);
    EXPECT_TRUE(platform().logged(8, "Unexpected line: physical id\t: 0 (zero)\r\n", COUNTING));
}

TEST_F(LinuxHardwareInfoTest, FailedCatOfTheCountingIsAnErrorAndBothCountsAreZero)
{
    faked_host::removeFile(CPU_INFO);
    EXPECT_EQ(probe.getProcessorSocketCount(), 0);
    expectCatAnd(CPU_INFO, 256,
                 {{16, "cat command failed: 1", COUNTING},
                  {2, "processorSocketCount = 0", "LinuxHardwareInfo::getProcessorSocketCount"}});
    EXPECT_EQ(probe.getProcessorCoreCount(), 0);
}

TEST_F(LinuxHardwareInfoTest, ModelNameOfBlanksAloneIsEmpty)
{
    faked_host::setFile(CPU_INFO, "model name\t:    \n");
    EXPECT_EQ(probe.getModelName(), "");
    expectCatAnd(CPU_INFO, 0, {{2, "modelName: ", "LinuxHardwareInfo::getModelName"}});
}

TEST_F(LinuxHardwareInfoTest, CatThatCannotBeStartedIsAFailedOne)
{
    host().shellFails = true;
    EXPECT_EQ(probe.getModelName(), "<NULL>");
    expectCatAnd(CPU_INFO, -1,
                 {{2, "cat command failed", "LinuxHardwareInfo::getModelName"},
                  {2, "modelName: <NULL>", "LinuxHardwareInfo::getModelName"}});
    platform().log.clear();
    EXPECT_EQ(probe.getVendorName(), "<NULL>");
    expectCatAnd(CPU_INFO, -1,
                 {{2, "cat command failed", "LinuxHardwareInfo::getVendorName"},
                  {2, "vendorName: <NULL>", "LinuxHardwareInfo::getVendorName"}});
    platform().log.clear();
    EXPECT_EQ(probe.getProcessorSocketCount(), 0);
    expectCatAnd(CPU_INFO, -1,
                 {{16, "cat command failed: -1", COUNTING},
                  {2, "processorSocketCount = 0", "LinuxHardwareInfo::getProcessorSocketCount"}});
    platform().log.clear();
    EXPECT_EQ(probe.getProcessorCoreCount(), 0);
    expectCatAnd(CPU_INFO, -1,
                 {{16, "cat command failed: -1", COUNTING},
                  {2, "processorCoreCount = 0", "LinuxHardwareInfo::getProcessorCoreCount"}});
    EXPECT_EQ(probe.getCpuType(), "x86_64 (Family:<NULL> Model:<NULL> Stepping:<NULL>)");
    EXPECT_TRUE(platform().logged(2, "cat command failed", "LinuxHardwareInfo::getCpuType"));
    EXPECT_EQ(probe.getMemoryInfo("MemTotal"), "");
    EXPECT_EQ(platform().log.back(),
              (LogEntry{16, "cat command failed", "LinuxHardwareInfo::getMemoryInfo"}));
    EXPECT_EQ(probe.getTotalMemory(), 0.0);
}

TEST_F(LinuxHardwareInfoTest, EmptyCpuInfoCountsNothing)
{
    faked_host::setFile(CPU_INFO, "");
    EXPECT_EQ(probe.getProcessorSocketCount(), 0);
    EXPECT_TRUE(platform().logged(8, "adjusted core count   = 0", COUNTING));
}

TEST_F(LinuxHardwareInfoTest, EachPieceOfALongLineIsALine)
{
    // The second piece of the first line begins with the key.
    faked_host::setFile(CPU_INFO,
                        std::string(2047, 'f') + "processor\t: 0\nphysical id\t: 0\ncore id\t: 3\n");
    EXPECT_EQ(probe.getProcessorSocketCount(), 1);
    EXPECT_TRUE(platform().logged(2, "processor count = 1", COUNTING));
}

TEST_F(LinuxHardwareInfoTest, DamagedCpuInfoDoesNoHarm)
{
    const std::string texts[] = {longLine('m'), "model name\t: x" + std::string(5000, 'y'),
                                 std::string("vendor\0: x\nmodel\0: y\n", 21), "\xff\xfe\r\n\r\n"};
    for (const std::string& text : texts) {
        faked_host::setFile(CPU_INFO, text);
        EXPECT_EQ(probe.getVendorName(), "<NULL>");
        EXPECT_EQ(probe.getProcessorCoreCount(), 0);
        EXPECT_EQ(probe.getCpuType(), "x86_64 (Family:<NULL> Model:<NULL> Stepping:<NULL>)");
    }
}

TEST_F(LinuxHardwareInfoTest, MemoryValueIsTheNumberABlankAndItsUnit)
{
    faked_host::setFile(MEMORY_INFO, "MemTotal:        4036680 kB\nMemFree:         3547792 kB\n");
    EXPECT_EQ(probe.getMemoryInfo("MemTotal"), "4036680 kB");
    std::vector<LogEntry> expected{{2, "logparams - memKey: MemTotal", "LinuxHardwareInfo::getMemoryInfo"}};
    for (const LogEntry& entry : faked_host::catEntries(MEMORY_INFO, 0))
        expected.push_back(entry);
    expected.push_back({2, "memInfo XML: 4036680 kB", "LinuxHardwareInfo::getMemoryInfo"});
    EXPECT_THAT(faked_host::log(), ElementsAreArray(expected));
    EXPECT_EQ(probe.getMemoryInfo("MemFree"), "3547792 kB");
}

TEST_F(LinuxHardwareInfoTest, FirstLineThatHoldsTheMemoryKeyAnywhereDecides)
{
    faked_host::setFile(MEMORY_INFO, "HighMemTotal\nMemTotal: 7 kB\n");
    EXPECT_EQ(probe.getMemoryInfo("MemTotal"), "") << "that line has no value, and the search is over";
    EXPECT_EQ(platform().log.back(), (LogEntry{2, "memInfo XML: ", "LinuxHardwareInfo::getMemoryInfo"}));
}

TEST_F(LinuxHardwareInfoTest, MissingMemoryKeyGivesAnEmptyText)
{
    faked_host::setFile(MEMORY_INFO, "MemFree:         3547792 kB\n");
    EXPECT_EQ(probe.getMemoryInfo("MemTotal"), "");
    EXPECT_EQ(platform().log.back(), (LogEntry{2, "memInfo XML: ", "LinuxHardwareInfo::getMemoryInfo"}));
}

TEST_F(LinuxHardwareInfoTest, FailedCatOfTheMemoryFileIsAnErrorAndEndsAtOnce)
{
    faked_host::removeFile(MEMORY_INFO);
    EXPECT_EQ(probe.getMemoryInfo("MemTotal"), "");
    EXPECT_EQ(platform().log.back(),
              (LogEntry{16, "cat command failed", "LinuxHardwareInfo::getMemoryInfo"}));
    EXPECT_EQ(probe.getTotalMemory(), 0.0);
}

TEST_F(LinuxHardwareInfoTest, TotalMemoryIsInMebibytes)
{
    const std::pair<const char*, double> texts[] = {{"MemTotal:        4036680 kB\n", 4036680.0 / 1024},
                                                    {"MemTotal: 1024 kB", 1.0},
                                                    {"MemTotal: 512 kB\r\n", 0.5},
                                                    {"MemTotal:\n", 0.0},
                                                    {"MemTotal: kB\n", 0.0},
                                                    {"", 0.0},
                                                    {"MemTotal: -1024 kB\n", -1.0}};
    for (const auto& [text, mebibytes] : texts) {
        faked_host::setFile(MEMORY_INFO, text);
        EXPECT_EQ(probe.getTotalMemory(), mebibytes) << text;
    }
    EXPECT_THAT(platform().texts("LinuxHardwareInfo::getTotalMemory"), IsEmpty());
}

} // namespace
