#include "sysinfo/hypervisor_keywords.h"

#include <cstring>
#include <gtest/gtest.h>

using namespace SYSINFO_NAMESPACE;

TEST(GetHypervisorType, EachKeywordHasItsFamily)
{
    EXPECT_EQ(GetHypervisorType("vmware, inc."), 1);
    EXPECT_EQ(GetHypervisorType("microsoft corporation"), 2);
    EXPECT_EQ(GetHypervisorType("red hat"), 5);
    EXPECT_EQ(GetHypervisorType("a rhev hypervisor"), 5);
    EXPECT_EQ(GetHypervisorType("virtualization: kvm"), 5);
    EXPECT_EQ(GetHypervisorType("nutanix"), 6);
    EXPECT_EQ(GetHypervisorType("openstack foundation"), 8);
}

TEST(GetHypervisorType, NoKeywordIsNone)
{
    for (const char* text : {"", "dell inc.", "redhat", "vm ware", "VMware", "xen"})
        EXPECT_EQ(GetHypervisorType(text), 0) << text;
}

TEST(GetHypervisorType, TheFirstKeywordInByteOrderDecides)
{
    EXPECT_EQ(GetHypervisorType("red hat openstack platform"), 8);
    EXPECT_EQ(GetHypervisorType("openstack on kvm"), 5);
    EXPECT_EQ(GetHypervisorType("vmware of microsoft"), 2);
    EXPECT_EQ(GetHypervisorType("rhev by red hat for vmware"), 5);
    EXPECT_EQ(GetHypervisorType("vmware nutanix"), 6);
}

TEST(MapHypervisorType, FillsTheTableWithSevenKeywords)
{
    hypervisorType.clear();
    MapHypervisorType();
    EXPECT_EQ(hypervisorType, (std::map<std::string, int>{{"vmware", 1},
                                                          {"microsoft", 2},
                                                          {"red hat", 5},
                                                          {"rhev", 5},
                                                          {"kvm", 5},
                                                          {"nutanix", 6},
                                                          {"openstack", 8}}));
}

TEST(GetHypervisorType, FillsAnEmptyTableOnFirstUseAndNeverAgain)
{
    hypervisorType.clear();
    EXPECT_EQ(GetHypervisorType("kvm"), 5);
    hypervisorType = {{"only", 3}};
    EXPECT_EQ(GetHypervisorType("kvm only"), 3);
    hypervisorType.clear();
}

TEST(GetUVmTypeFromBuf, TheWholeBufferIsLoweredAlsoBeyondTheText)
{
    char buffer[] = "VMware\0TAIL";
    EXPECT_EQ(getUVmTypeFromBuf(buffer, sizeof buffer), 1);
    EXPECT_EQ(std::memcmp(buffer, "vmware\0tail", sizeof buffer), 0);
}

TEST(GetUVmTypeFromBuf, WhatStandsBeyondTheTextDoesNotCount)
{
    char buffer[] = "Dell\0VMware";
    EXPECT_EQ(getUVmTypeFromBuf(buffer, sizeof buffer), 0);
}

TEST(GetUVmTypeFromBuf, BytesThatAreNoAsciiAreHarmless)
{
    char buffer[] = "\xff\xfe\x80KVM\xe4";
    EXPECT_EQ(getUVmTypeFromBuf(buffer, sizeof buffer), 5);
}
