#include "cmd/tqclntdb_common.h"

#include "cmd/process_values.h"
#include "hostdb/web_service_exception.h"
#include "hostinfo/tqclntdb_hostinfo.h"
#include "platform/status.h"
#include "tests/unit/cmd/command_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using command_run::answer;
using command_run::answerNothing;
using fakes::LogEntry;
using testing::ElementsAre;
using testing::IsEmpty;
using TQCLNTDB::CHostInformation;

class HostOperations : public testing::Test {
protected:
    void SetUp() override
    {
        command_run::reset();
        TQCLNTDB::CmdName = "tqhostdbcmd";
    }

    static fakes::Platform& platform() { return fakes::platform(); }

    static void expectStatus(int status, const std::function<void()>& operation)
    {
        try {
            operation();
            FAIL() << "nothing was thrown";
        } catch (int thrown) {
            EXPECT_EQ(thrown, status);
            EXPECT_EQ(platform().liveClients, 0);
        }
    }

    static std::vector<LogEntry> logOf(const std::string& context) { return platform().entriesOf(context); }

    CHostInformation record_;
    std::vector<CHostInformation> list_;
};

// Read

TEST_F(HostOperations, AReadByIdAndNameAsksByTheIdOnly)
{
    answer(200, R"({"uuid":"42"})");
    TQCLNTDB::readHostFromDB("m1", record_, "h1", "42");
    EXPECT_EQ(record_.hostId, "42");
    ASSERT_EQ(platform().requests.size(), 1U);
    EXPECT_EQ(platform().requests[0].path, "torquenix/config/hosts/42");
}

TEST_F(HostOperations, AReadByNameUsesTheFilter)
{
    answer(200, R"({"hosts":[{"uuid":"42"}]})");
    TQCLNTDB::readHostFromDB("m1", record_, "h1", "");
    EXPECT_EQ(record_.hostId, "42");
    EXPECT_EQ(platform().requests.at(0).path, "torquenix/config/hosts?filter=hostName%20eq%20'h1'");
}

TEST_F(HostOperations, AReadOfNothingReadsThisHost)
{
    answer(200, "{}");
    TQCLNTDB::readHostFromDB("m1", record_, "", "");
    EXPECT_EQ(platform().requests.at(0).path, std::string("torquenix/config/hosts/") + test_host::HOST_ID);
}

TEST_F(HostOperations, AFailedReadIsLoggedAndThrown)
{
    answerNothing(5);
    expectStatus(5, [&] { TQCLNTDB::readHostFromDB("m1", record_, "h1", ""); });
    EXPECT_THAT(logOf("readHostFromDB"),
                ElementsAre(LogEntry{16, "tqhostdbcmdHost read failed with error : 5\n", "readHostFromDB"}));
}

// Delete

TEST_F(HostOperations, ADeletionReturnsWhenItIsDone)
{
    answer(204, "");
    TQCLNTDB::deleteHostFromDB("m1");
    EXPECT_THAT(logOf("deleteHostFromDB"), IsEmpty());
}

TEST_F(HostOperations, AFailedDeletionIsLoggedAndThrown)
{
    answerNothing(5);
    expectStatus(5, [] { TQCLNTDB::deleteHostFromDB("m1"); });
    EXPECT_THAT(
        logOf("deleteHostFromDB"),
        ElementsAre(LogEntry{16, "tqhostdbcmdHost deletion failed with error : 5\n", "deleteHostFromDB"}));
}

// Read all

TEST_F(HostOperations, AllHostsAreAppended)
{
    answer(200, R"({"hosts":[{"uuid":"1"},{"uuid":"2"}]})");
    TQCLNTDB::readAllHostsFromDB("m1", list_);
    ASSERT_EQ(list_.size(), 2U);
    EXPECT_EQ(list_[1].hostId, "2");
}

TEST_F(HostOperations, AFailedReadOfAllHostsIsLoggedAndThrown)
{
    answerNothing(7621);
    expectStatus(7621, [&] { TQCLNTDB::readAllHostsFromDB("m1", list_); });
    EXPECT_THAT(logOf("readAllHostsFromDB"),
                ElementsAre(LogEntry{16, "tqhostdbcmdRead All Hosts failed with error : 7621\n",
                                     "readAllHostsFromDB"}));
}

// Reload

TEST_F(HostOperations, AReloadOfTheHostsAsksForTheirResource)
{
    answer(200, "");
    TQCLNTDB::reloadConfiguration("m1", false, true);
    ASSERT_EQ(platform().requests.size(), 1U);
    EXPECT_EQ(platform().requests[0].path, "torquenix/config/hosts/reloadconfig");
}

TEST_F(HostOperations, AReloadOfTheSecuritySettingsAsksForTheirResource)
{
    answer(200, "");
    TQCLNTDB::reloadConfiguration("m1", true, false);
    ASSERT_EQ(platform().requests.size(), 1U);
    EXPECT_EQ(platform().requests[0].path, "torquenix/security/settings/reloadconfig");
}

TEST_F(HostOperations, AFailedReloadIsLoggedByItsKindAndThrown)
{
    answerNothing(5);
    expectStatus(5, [] { TQCLNTDB::reloadConfiguration("m1", false, true); });
    answerNothing(6);
    expectStatus(6, [] { TQCLNTDB::reloadConfiguration("m1", true, false); });
    EXPECT_THAT(
        logOf("reloadConfiguration"),
        ElementsAre(LogEntry{16, "tqhostdbcmdReloading host configuration failed with error : 5\n",
                             "reloadConfiguration"},
                    LogEntry{16, "tqhostdbcmdReloading security configuration failed with error : 6\n",
                             "reloadConfiguration"}));
}

TEST_F(HostOperations, AReloadWithBothFlagsOrNoneThrowsAnEnumerationValueThatNoIntHandlerCatches)
{
    for (const bool flags : {true, false}) {
        testing::internal::CaptureStderr();
        bool caught = false;
        try {
            TQCLNTDB::reloadConfiguration("m1", flags, flags);
        } catch (int) {
            ADD_FAILURE() << "an int was thrown";
        } catch (ec_status status) {
            caught = true;
            EXPECT_EQ(status, 20);
        }
        EXPECT_TRUE(caught);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "Use '-reloadconfig' options with either the '-security' or the '-host' option.\n");
    }
    EXPECT_THAT(platform().requests, IsEmpty());
    EXPECT_THAT(logOf("reloadConfiguration"), IsEmpty());
    EXPECT_EQ(platform().count("IsNodeClustered"), 2U) << "the identity is chosen first";
}

// Identity

TEST_F(HostOperations, OnAnActiveClusterNodeReadAllAndReloadActUnderTheClustersIdentity)
{
    command_run::beActiveClusterNode();
    TQCLNTDB::readAllHostsFromDB("m1", list_);
    TQCLNTDB::reloadConfiguration("m1", true, false);
    EXPECT_EQ(platform().count("TQClientCURL m1 1556 2"), 2U);
}

TEST_F(HostOperations, OnAPassiveNodeAndOutsideAClusterReadAllAndReloadActUnderTheHostsIdentity)
{
    for (const bool clustered : {true, false}) {
        command_run::reset();
        command_run::beActiveClusterNode();
        (clustered ? platform().active : platform().nodeClustered) = 0;
        TQCLNTDB::readAllHostsFromDB("m1", list_);
        TQCLNTDB::reloadConfiguration("m1", true, false);
        EXPECT_EQ(platform().count("TQClientCURL m1 1556 1"), 2U);
    }
}

TEST_F(HostOperations, ReadAndDeleteAlwaysActUnderTheHostsIdentity)
{
    command_run::beActiveClusterNode();
    answer(200, "{}");
    TQCLNTDB::readHostFromDB("m1", record_, "", "42");
    answer(204, "");
    TQCLNTDB::deleteHostFromDB("m1");
    EXPECT_EQ(platform().count("TQClientCURL m1 1556 1"), 2U);
    EXPECT_EQ(platform().count("IsNodeClustered"), 0U);
}

TEST_F(HostOperations, AnActiveNodeNeedsAllThreeAnswersAskedInOrder)
{
    command_run::beActiveClusterNode();
    EXPECT_TRUE(TQCLNTDB::isClusteredandActiveNode());
    EXPECT_THAT(platform().calls, ElementsAre("IsNodeClustered 0", "IsClustered 0", "IsActive 0 0"));

    platform().calls.clear();
    platform().active = 0;
    EXPECT_FALSE(TQCLNTDB::isClusteredandActiveNode());
    EXPECT_THAT(platform().calls, ElementsAre("IsNodeClustered 0", "IsClustered 0", "IsActive 0 0"));

    platform().calls.clear();
    platform().clustered = 0;
    EXPECT_FALSE(TQCLNTDB::isClusteredandActiveNode());
    EXPECT_THAT(platform().calls, ElementsAre("IsNodeClustered 0", "IsClustered 0"));

    platform().calls.clear();
    platform().nodeClustered = 0;
    EXPECT_FALSE(TQCLNTDB::isClusteredandActiveNode());
    EXPECT_THAT(platform().calls, ElementsAre("IsNodeClustered 0"));
}

TEST_F(HostOperations, AWebServiceFailurePassesUntouched)
{
    const std::function<void()> operations[] = {
        [this] { TQCLNTDB::readHostFromDB("m1", record_, "h1", ""); },
        [] { TQCLNTDB::deleteHostFromDB("m1"); },
        [this] { TQCLNTDB::readAllHostsFromDB("m1", list_); },
        [] { TQCLNTDB::reloadConfiguration("m1", true, false); },
    };
    for (const auto& operation : operations) {
        answer(500, "body");
        try {
            operation();
            ADD_FAILURE() << "nothing was thrown";
        } catch (const TQCLNTDB::WebServiceException& failure) {
            EXPECT_EQ(failure.httpStatus(), 500);
            EXPECT_EQ(failure.responseBody(), "body");
        }
        EXPECT_EQ(platform().liveClients, 0);
    }
    for (const LogEntry& entry : platform().log)
        EXPECT_NE(entry.level, 16) << entry;
}

// Local information

TEST_F(HostOperations, LocalInformationIsPrintedAndLogged)
{
    CHostInformation expected("m1", CERT_TYPE_HOST);
    ASSERT_EQ(expected.loadHostConfig(), 0);
    const std::string text = expected.getJSON(true, true);
    testing::internal::CaptureStdout();
    EXPECT_EQ(TQCLNTDB::getLocalHostInfo("m1"), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), text + "\n");
    EXPECT_THAT(logOf("getLocalHostInfo"),
                ElementsAre(LogEntry{2, "Got localinfo JSON = [ " + text + " ]\n", "getLocalHostInfo"}));
    EXPECT_EQ(platform().count("getHostID 1 m1"), 2U) << "this load and the expected one";
    EXPECT_THAT(platform().clients, IsEmpty());
}

TEST_F(HostOperations, LocalInformationIsTheHostsOwnOnAnActiveClusterNodeToo)
{
    command_run::beActiveClusterNode();
    testing::internal::CaptureStdout();
    EXPECT_EQ(TQCLNTDB::getLocalHostInfo("m1"), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(platform().count("getHostID 1 m1"), 1U);
    EXPECT_EQ(platform().count("getHostID"), 1U);
}

TEST_F(HostOperations, LocalInformationThatCannotBeLoadedIsLoggedAndReturned)
{
    platform().hostId.status = 7612;
    testing::internal::CaptureStdout();
    EXPECT_EQ(TQCLNTDB::getLocalHostInfo("m1"), 7612);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_THAT(
        logOf("getLocalHostInfo"),
        ElementsAre(LogEntry{16, "Get host configuration failed with error : 7612\n", "getLocalHostInfo"}));
}

} // namespace
