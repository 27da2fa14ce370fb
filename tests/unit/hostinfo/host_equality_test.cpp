#include "hostinfo/tqclntdb_hostinfo.h"
#include "tests/fakes/platform/fake_platform.h"

#include <algorithm>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

using fakes::LogEntry;
using fakes::platform;
using testing::ElementsAre;
using testing::IsEmpty;
using TQCLNTDB::CHostInformation;

namespace {

constexpr int PROGRESS = 2;
constexpr const char* CONTEXT = "CHostInformation::operator==";

using Change = std::function<void(CHostInformation&)>;

/// One compared field: how to make it differ, and the line that says so, in the order of comparison.
struct Row {
    std::string field;
    Change change;
    std::string line;
};

std::vector<Row> rows()
{
    using Record = CHostInformation;
    return {
        {"installedHFXs", [](Record& r) { r.installedHFXs = {"H2"}; },
         "Installed HFX H1, H2 and H2 mismatched \n"},
        {"installedPackages", [](Record& r) { r.installedPackages.clear(); },
         "Installed packages P1, P2 and  mismatched \n"},
        {"kqUpdatePlatform", [](Record& r) { r.kqUpdatePlatform = "q"; },
         "KqUpdate platform p and q mismatched \n"},
        {"hostId", [](Record& r) { r.hostId = "2"; }, "UUID 1 and 2 mismatched.\n"},
        {"hostName", [](Record& r) { r.hostName = "H1"; }, "host name h1 and H1 mismatched.\n"},
        {"masterServer", [](Record& r) { r.masterServer = "m2"; }, "master server m1 and m2 mismatched.\n"},
        {"osType", [](Record& r) { r.osType = ""; }, "OS type UNIX and  mismatched \n"},
        {"osVersion", [](Record& r) { r.osVersion = "L 6"; }, "OS version L 5 and L 6 mismatched \n"},
        {"hwDescription", [](Record& r) { r.hwDescription = "V "; },
         "Hardware description V and V  mismatched \n"},
        {"cpuArchitecture", [](Record& r) { r.cpuArchitecture = "arm"; },
         "CPU architecture x86 and arm mismatched \n"},
        {"tquVersion", [](Record& r) { r.tquVersion = "T_2"; }, "TQU version T_1 and T_2 mismatched \n"},
        {"servers",
         [](Record& r) {
             r.servers = {"m2", "m1"};
         },
         "Servers m1, m2 and m2, m1 mismatched \n"},
        {"isSecureEnabled", [](Record& r) { r.isSecureEnabled = false; },
         "isSecureEnabled [1] and [0] mismatched \n"},
        {"trustVersion", [](Record& r) { r.trustVersion = "8"; }, "Trust version 7 and 8 mismatched.\n"},
        {"machineType", [](Record& r) { r.machineType = "VIRTUAL"; },
         "machineType PHYSICAL and VIRTUAL mismatched \n"},
        {"hypervisorType", [](Record& r) { r.hypervisorType = "RHV"; },
         "hypervisorType NONE and RHV mismatched \n"},
        {"machineTquType", [](Record& r) { r.machineTquType = ""; },
         "machineTquType media and  mismatched.\n"},
    };
}

CHostInformation fullRecord()
{
    CHostInformation record("m1", CERT_TYPE_HOST);
    record.hostName = "h1";
    record.hostId = "1";
    record.osType = "UNIX";
    record.osVersion = "L 5";
    record.osReleaseVersion = "8.4";
    record.installedHFXs = {"H1", "H2"};
    record.installedPackages = {"P1", "P2"};
    record.kqUpdatePlatform = "p";
    record.hwDescription = "V";
    record.cpuArchitecture = "x86";
    record.tquVersion = "T_1";
    record.isSecureEnabled = true;
    record.servers = {"m1", "m2"};
    record.clusterSharedNames = {"c1"};
    record.trustVersion = "7";
    record.machineType = "PHYSICAL";
    record.hypervisorType = "NONE";
    record.machineTquType = "media";
    return record;
}

class HostEquality : public testing::Test {
protected:
    void SetUp() override { fakes::reset(); }

    CHostInformation left = fullRecord();
    CHostInformation right = fullRecord();
};

TEST_F(HostEquality, EqualRecordsLogNothing)
{
    EXPECT_TRUE(left == right);
    EXPECT_TRUE(left == left);
    EXPECT_TRUE(CHostInformation() == CHostInformation());
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(HostEquality, EachFieldHasItsOwnLine)
{
    for (const Row& row : rows()) {
        SCOPED_TRACE(row.field);
        platform().log.clear();
        CHostInformation other = fullRecord();
        row.change(other);
        EXPECT_FALSE(left == other);
        EXPECT_THAT(platform().log, ElementsAre(LogEntry{PROGRESS, row.line, CONTEXT}));
    }
}

TEST_F(HostEquality, OnlyTheFirstDifferenceIsLoggedInTheOrderOfTheFields)
{
    const std::vector<Row> all = rows();
    for (auto first = all.begin(); first != all.end(); ++first) {
        SCOPED_TRACE(first->field);
        platform().log.clear();
        CHostInformation other = fullRecord();
        for (auto row = first; row != all.end(); ++row)
            row->change(other);
        EXPECT_FALSE(left == other);
        EXPECT_THAT(platform().log, ElementsAre(LogEntry{PROGRESS, first->line, CONTEXT}));
    }
}

TEST_F(HostEquality, LineShowsThisRecordFirst)
{
    right.isSecureEnabled = false;
    EXPECT_FALSE(right == left);
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{PROGRESS, "isSecureEnabled [0] and [1] mismatched \n", CONTEXT}));
}

TEST_F(HostEquality, ListsInAnotherOrderAreDifferent)
{
    const std::pair<std::vector<std::string> CHostInformation::*, std::string> lists[] = {
        {&CHostInformation::installedHFXs, "Installed HFX H1, H2 and H2, H1 mismatched \n"},
        {&CHostInformation::installedPackages, "Installed packages P1, P2 and P2, P1 mismatched \n"},
        {&CHostInformation::servers, "Servers m1, m2 and m2, m1 mismatched \n"},
    };
    for (const auto& [list, line] : lists) {
        SCOPED_TRACE(line);
        platform().log.clear();
        CHostInformation other = fullRecord();
        std::reverse((other.*list).begin(), (other.*list).end());
        EXPECT_FALSE(left == other);
        EXPECT_THAT(platform().log, ElementsAre(LogEntry{PROGRESS, line, CONTEXT}));
    }
}

TEST_F(HostEquality, ReleaseAndCertificateTypeDeliberatelyDoNotCount)
{
    right.osReleaseVersion = "9";
    right.certType = CERT_TYPE_CLUSTER;
    EXPECT_TRUE(left == right);
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(HostEquality, ClusterSharedNamesDeliberatelyDoNotCountAndTheirLineIsLost)
{
    right.clusterSharedNames = {"c2", "c3"};
    EXPECT_TRUE(left == right);
    EXPECT_THAT(platform().log, IsEmpty());

    right.machineType = "UNKNOWN";
    EXPECT_FALSE(left == right) << "the comparison goes on with the later fields";
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{PROGRESS, "machineType PHYSICAL and UNKNOWN mismatched \n", CONTEXT}));
}

} // namespace
