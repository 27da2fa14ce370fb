#include "hostinfo/machine_names.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr std::int64_t LOWEST = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t HIGHEST = std::numeric_limits<std::int64_t>::max();

TEST(HypervisorName, EachCodeHasItsNameAndAnyOtherIsNone)
{
    const std::vector<std::pair<std::int64_t, std::string>> rows{
        {1, "VMWARE"},      {2, "HYPERV"},      {3, "KQVI"},       {4, "ELASTIC_HV"}, {5, "RHV"},
        {6, "NUTANIX_AHV"}, {7, "AZURE_STACK"}, {8, "OPEN_STACK"}, {0, "NONE"},       {9, "NONE"},
        {-1, "NONE"},       {257, "NONE"},      {LOWEST, "NONE"},  {HIGHEST, "NONE"},
    };
    for (const auto& [code, name] : rows)
        EXPECT_EQ(TQCLNTDB::hypervisorName(code), name) << code;
}

TEST(MachineTypeName, ZeroIsPhysicalOneVirtualAndAnyOtherUnknown)
{
    const std::vector<std::pair<std::int64_t, std::string>> rows{
        {0, "PHYSICAL"}, {1, "VIRTUAL"},      {2, "UNKNOWN"},
        {-1, "UNKNOWN"}, {LOWEST, "UNKNOWN"}, {HIGHEST, "UNKNOWN"},
    };
    for (const auto& [code, name] : rows)
        EXPECT_EQ(TQCLNTDB::machineTypeName(code), name) << code;
}

} // namespace
