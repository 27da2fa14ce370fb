#include "cmd/host_update.h"

#include "platform/identity.h"
#include "platform/status.h"
#include "tests/unit/cmd/command_run.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/resource.h>

namespace {

namespace fs = std::filesystem;
using command_run::answer;
using command_run::answerNothing;
using command_run::run;
using fakes::ChildRun;
using fakes::LogEntry;
using testing::ElementsAre;
using testing::IsEmpty;
using TQCLNTDB::fetchMastersAndUpdateHostDB;
using TQCLNTDB::updateHostDBForAllMasters;
using TQCLNTDB::updateHostInDB;
using TQCLNTDB::updateHostInMasterServer;

constexpr const char* STATUS_M1 = "/usr/torqv/var/hostdbupdate.status.m1";
constexpr const char* STATUS_M2 = "/usr/torqv/var/hostdbupdate.status.m2";
constexpr const char* LOCK_M1 = "/usr/torqv/var/hostdbupdate.lock.m1";
constexpr const char* LOCK_M2 = "/usr/torqv/var/hostdbupdate.lock.m2";
constexpr const char* DAEMON_LOCK = "/usr/torqv/var/hostdbupdate.lock.daemon";

class UpdateTest : public testing::Test {
protected:
    void SetUp() override { command_run::reset(); }

    static fakes::Platform& platform() { return fakes::platform(); }

    static std::vector<LogEntry> logOf(const std::string& context) { return platform().entriesOf(context); }

    static void failAttempts(int count, int status)
    {
        for (int i = 0; i < count; ++i)
            answerNothing(status);
    }

    /// The status that an operation throws as an int; anything else fails the test.
    static int thrownStatus(const std::function<void()>& operation)
    {
        try {
            operation();
        } catch (int status) {
            return status;
        }
        ADD_FAILURE() << "no int was thrown";
        return INT32_MIN;
    }
};

// One server

class OneServer : public UpdateTest {
protected:
    static constexpr const char* CONTEXT = "updateHostInMasterServer";

    static int update(bool force = false) { return updateHostInMasterServer(CERT_TYPE_HOST, "m1", force); }
};

TEST_F(OneServer, ASuccessAtTheFirstAttemptWaitsForNothing)
{
    EXPECT_EQ(update(), 0);
    EXPECT_THAT(fakes::waits(), IsEmpty());
    EXPECT_THAT(logOf(CONTEXT), ElementsAre(LogEntry{2, "Update successful in [1] attempts.\n", CONTEXT}));
}

TEST_F(OneServer, ASuccessAtTheThirdAttemptHasWaitedTwice)
{
    failAttempts(2, 7620);
    EXPECT_EQ(update(), 0);
    EXPECT_THAT(fakes::waits(), ElementsAre(10, 10));
    EXPECT_THAT(logOf(CONTEXT),
                ElementsAre(LogEntry{16, "Update attempt [1] failed with error: 7620\n", CONTEXT},
                            LogEntry{2, "Waiting [10] seconds before next attempt.\n", CONTEXT},
                            LogEntry{16, "Update attempt [2] failed with error: 7620\n", CONTEXT},
                            LogEntry{2, "Waiting [10] seconds before next attempt.\n", CONTEXT},
                            LogEntry{2, "Update successful in [3] attempts.\n", CONTEXT}));
}

TEST_F(OneServer, FiveFailedAttemptsCostFourWaits)
{
    failAttempts(4, 7620);
    answerNothing(25);
    EXPECT_EQ(update(), 25);
    EXPECT_THAT(fakes::waits(), ElementsAre(10, 10, 10, 10));
    EXPECT_EQ(platform().count("PUT"), 5U);
    const std::vector<LogEntry> log = logOf(CONTEXT);
    ASSERT_EQ(log.size(), 10U);
    EXPECT_EQ(log[8], (LogEntry{16, "Update attempt [5] failed with error: 25\n", CONTEXT}));
    EXPECT_EQ(log[9], (LogEntry{16, "Update failed after [5] attempts. Returning error: 25\n", CONTEXT}));
}

TEST_F(OneServer, EveryAttemptSendsTheSameRecord)
{
    failAttempts(2, 25);
    EXPECT_EQ(update(), 0);
    ASSERT_EQ(platform().count("PUT"), 3U);
    EXPECT_EQ(platform().requests[0].body, platform().requests[1].body);
    EXPECT_EQ(platform().requests[0].body, platform().requests[2].body);
}

TEST_F(OneServer, AWebServiceFailureIsRetriedWithItsErrorCode)
{
    answer(500, R"({"errorCode":8600,"errMessage":"x"})");
    EXPECT_EQ(update(), 0);
    const std::vector<LogEntry> log = logOf(CONTEXT);
    ASSERT_EQ(log.size(), 4U);
    EXPECT_EQ(log[0], (LogEntry{16, "Caught WebServiceException, err = 8600, err_msg = x\n", CONTEXT}));
    EXPECT_EQ(log[1], (LogEntry{16, "Update attempt [1] failed with error: 8600\n", CONTEXT}));
}

TEST_F(OneServer, AWebServiceFailureWithoutACodeIs7500)
{
    for (int i = 0; i < 5; ++i)
        answer(502, "<html>");
    EXPECT_EQ(update(), 7500);
    EXPECT_EQ(logOf(CONTEXT).at(0),
              (LogEntry{16, "Caught WebServiceException, err = 7500, err_msg = Error parsing response body\n",
                        CONTEXT}));
}

TEST_F(OneServer, AnErrorCodeIsPrintedUnsignedAndCountsSigned)
{
    for (int i = 0; i < 5; ++i)
        answer(500, R"({"errorCode":-2})");
    EXPECT_EQ(update(), -2);
    EXPECT_EQ(
        logOf(CONTEXT).at(0),
        (LogEntry{16, "Caught WebServiceException, err = 4294967294, err_msg = Error parsing response body\n",
                  CONTEXT}));
}

TEST_F(OneServer, AnErrorCodeOf0IsASuccess)
{
    answer(500, R"({"errorCode":0,"errMessage":"fine"})");
    EXPECT_EQ(update(), 0);
    EXPECT_THAT(fakes::waits(), IsEmpty());
}

TEST_F(OneServer, AThrownStatusIsThatStatus)
{
    int thrown = 0;
    platform().onRequest = [&](const fakes::HttpRequest&) {
        if (thrown++ == 0)
            throw 42;
    };
    EXPECT_EQ(update(), 0);
    const std::vector<LogEntry> log = logOf(CONTEXT);
    ASSERT_EQ(log.size(), 4U);
    EXPECT_EQ(log[0], (LogEntry{16, "updateRecord() failed, error = 42\n", CONTEXT}));
    EXPECT_EQ(log[1], (LogEntry{16, "Update attempt [1] failed with error: 42\n", CONTEXT}));
}

TEST_F(OneServer, AnyOtherExceptionIs114)
{
    const std::function<void()> throwers[] = {
        [] { throw std::out_of_range("x"); },
        [] { throw std::bad_alloc(); },
        [] { throw EC_cannot_connect; },
        [] { throw "text"; },
    };
    for (const auto& thrower : throwers) {
        command_run::reset();
        fakes::sysinfo().onCall = thrower;
        EXPECT_EQ(update(), 114);
        EXPECT_EQ(fakes::waits().size(), 4U);
        EXPECT_EQ(logOf(CONTEXT).at(0),
                  (LogEntry{16, "updateRecord() failed with unknown exception\n", CONTEXT}));
        EXPECT_EQ(logOf(CONTEXT).at(1),
                  (LogEntry{16, "Update attempt [1] failed with error: 114\n", CONTEXT}));
    }
}

TEST_F(OneServer, ForceReachesTheClient)
{
    EXPECT_EQ(update(), 0);
    EXPECT_EQ(update(false), 0);
    EXPECT_EQ(platform().count("PUT"), 1U);
    EXPECT_EQ(update(true), 0);
    EXPECT_EQ(platform().count("PUT"), 2U);
}

TEST_F(OneServer, TheGivenIdentityIsUsed)
{
    EXPECT_EQ(updateHostInMasterServer(CERT_TYPE_CLUSTER, "m9", false), 0);
    EXPECT_EQ(platform().requests.at(0).server, "m9");
    EXPECT_EQ(platform().requests.at(0).certType, CERT_TYPE_CLUSTER);
}

// All servers of an identity

class AllServers : public UpdateTest {
protected:
    static constexpr const char* CONTEXT = "updateHostDBForAllMasters";

    int update(const std::vector<const char*>& servers)
    {
        return updateHostDBForAllMasters(CERT_TYPE_HOST, servers.data(), false,
                                         static_cast<int>(servers.size()), successCount_);
    }

    static std::string acquired(const std::string& server, const std::string& lock)
    {
        return "Successfully acquired lock on hostDB update status file for server [" + server +
               "], lockfile : " + lock + "\n";
    }

    int successCount_ = -1;
};

TEST_F(AllServers, ASuccessIsCountedAndLeavesNoStatusFile)
{
    EXPECT_EQ(update({"m1"}), 0);
    EXPECT_EQ(successCount_, 1);
    EXPECT_FALSE(fs::exists(STATUS_M1));
    EXPECT_THAT(
        logOf(CONTEXT),
        ElementsAre(
            LogEntry{2, "Server count [ 1 ]\n", CONTEXT},
            LogEntry{2, "Attempting HostDB update for server [ m1 ]\n", CONTEXT},
            LogEntry{2, "getCAModeByServer retrieved: retval=0, Server:[m1], CAMode:[internal]\n", CONTEXT},
            LogEntry{2, acquired("m1", LOCK_M1), CONTEXT},
            LogEntry{2, "HostDB update succeeded for server [m1]\n", CONTEXT},
            // No removal error: that there is no file is what a server in step looks like.
            LogEntry{2, "Deleting HostDB update status file, as update passed\n", CONTEXT}));
}

TEST_F(AllServers, AFailureLeavesItsStatusInTheFile)
{
    test_host::write(STATUS_M1, "an older and longer status\n");
    failAttempts(5, 7620);
    EXPECT_EQ(update({"m1"}), 7620);
    EXPECT_EQ(successCount_, 0);
    EXPECT_EQ(test_host::contentOf(STATUS_M1), "7620\n");
    EXPECT_THAT(
        logOf(CONTEXT),
        ElementsAre(
            LogEntry{2, "Server count [ 1 ]\n", CONTEXT},
            LogEntry{2, "Attempting HostDB update for server [ m1 ]\n", CONTEXT},
            LogEntry{2, "getCAModeByServer retrieved: retval=0, Server:[m1], CAMode:[internal]\n", CONTEXT},
            LogEntry{2, acquired("m1", LOCK_M1), CONTEXT},
            LogEntry{16, "HostDB update failed for server [m1] with error : 7620\n", CONTEXT},
            LogEntry{2, std::string("Writing HostDB update status:7620 to file :") + STATUS_M1 + "\n",
                     CONTEXT}));
}

TEST_F(AllServers, ALaterSuccessRemovesTheStatusFile)
{
    test_host::write(STATUS_M1, "25\n");
    EXPECT_EQ(update({"m1"}), 0);
    EXPECT_FALSE(fs::exists(STATUS_M1));
}

TEST_F(AllServers, TheFirstUpdatedAtTheThirdAttemptTheSecondFailingFiveTimes)
{
    failAttempts(2, 25);
    answer(200, "");
    failAttempts(5, 25);
    EXPECT_EQ(update({"m1", "m2"}), 25);
    EXPECT_EQ(successCount_, 1);
    EXPECT_EQ(fakes::waits().size(), 6U) << "two for the first server, four for the second";
    EXPECT_FALSE(fs::exists(STATUS_M1));
    EXPECT_EQ(test_host::contentOf(STATUS_M2), "25\n");
}

TEST_F(AllServers, AFailingServerDoesNotStopTheWalk)
{
    failAttempts(5, 25);
    EXPECT_EQ(update({"m1", "m2"}), 25) << "the result is that of the last server that failed";
    EXPECT_EQ(successCount_, 1);
    EXPECT_EQ(test_host::contentOf(STATUS_M1), "25\n");
    EXPECT_FALSE(fs::exists(STATUS_M2));
}

TEST_F(AllServers, TheResultIsThatOfTheLastServerThatFailed)
{
    failAttempts(5, 25);
    failAttempts(5, 7620);
    EXPECT_EQ(update({"m1", "m2"}), 7620);
    EXPECT_EQ(successCount_, 0);
}

TEST_F(AllServers, EachServersLockIsReleasedBeforeTheNextServer)
{
    update({"m1", "m2"});
    std::vector<std::string> locks;
    for (const std::string& call : platform().calls) {
        if (call.starts_with("lock ") || call.starts_with("unlock"))
            locks.push_back(call);
    }
    EXPECT_THAT(locks, ElementsAre(std::string("lock ") + LOCK_M1 + " 10 5",
                                   "lock /usr/torqv/var/hostdbcache.m1.lock 10 5", "unlock (held)",
                                   "unlock (held)", std::string("lock ") + LOCK_M2 + " 10 5",
                                   "lock /usr/torqv/var/hostdbcache.m2.lock 10 5", "unlock (held)",
                                   "unlock (held)"));
}

TEST_F(AllServers, TheStatusFileIsWrittenAndRemovedUnderTheServersLock)
{
    std::vector<std::string> atUnlock;
    platform().onUnlock = [&] { atUnlock.push_back(test_host::contentOf(STATUS_M1)); };
    failAttempts(5, 25);
    update({"m1"});
    EXPECT_THAT(atUnlock, ElementsAre("", "", "", "", "", "25\n")) << "five of the cache, one of the server";
    atUnlock.clear();
    update({"m1"});
    EXPECT_THAT(atUnlock, ElementsAre("25\n", ""));
}

TEST_F(AllServers, ABusyServerIsPassedOverWithoutAResult)
{
    platform().busyLocks = {LOCK_M1};
    test_host::write(STATUS_M1, "25\n");
    EXPECT_EQ(update({"m1"}), 0);
    EXPECT_EQ(successCount_, 0);
    EXPECT_THAT(platform().requests, IsEmpty());
    EXPECT_EQ(test_host::contentOf(STATUS_M1), "25\n");
    EXPECT_EQ(logOf(CONTEXT).back(),
              (LogEntry{16,
                        std::string("Failed to acquire lock on hostDB update status file for server [m1], "
                                    "lockfile : ") +
                            LOCK_M1 + "\n",
                        CONTEXT}));
}

TEST_F(AllServers, ABusyServerKeepsTheResultOfAnEarlierOne)
{
    platform().busyLocks = {LOCK_M2};
    failAttempts(5, 25);
    EXPECT_EQ(update({"m1", "m2"}), 25);
}

TEST_F(AllServers, AServerOfMode3IsSkippedWithTheResultOfItsLookUp)
{
    platform().caMode = [](cert_type, const std::string&, int& mode) {
        mode = CA_USAGE_NONE;
        return 0;
    };
    test_host::write(STATUS_M1, "25\n");
    EXPECT_EQ(update({"m1"}), 0);
    EXPECT_EQ(successCount_, 0);
    EXPECT_EQ(platform().count("lock "), 0U);
    EXPECT_EQ(test_host::contentOf(STATUS_M1), "25\n") << "the status file is left as it was";
    EXPECT_THAT(
        logOf(CONTEXT),
        ElementsAre(
            LogEntry{2, "Server count [ 1 ]\n", CONTEXT},
            LogEntry{2, "Attempting HostDB update for server [ m1 ]\n", CONTEXT},
            LogEntry{2, "getCAModeByServer retrieved: retval=0, Server:[m1], CAMode:[none]\n", CONTEXT},
            LogEntry{16,
                     "Failed to derive the CA Mode of the server. This implies that the certificate "
                     "is not deployed correctly for this server. Skipping update for server [m1 ]\n",
                     CONTEXT}));
}

TEST_F(AllServers, AServerWhoseModeCannotBeHadIsSkippedAndGivesTheResult)
{
    platform().caMode = [](cert_type, const std::string& server, int& mode) {
        mode = CA_USAGE_EXTERNAL;
        return server == "m1" ? 7612 : 0;
    };
    EXPECT_EQ(update({"m1", "m2"}), 7612);
    EXPECT_EQ(successCount_, 1);
    EXPECT_TRUE(platform().logged(
        2, "getCAModeByServer retrieved: retval=7612, Server:[m1], CAMode:[external]\n", CONTEXT));
    EXPECT_EQ(platform().count("getCAModeByServer 1 m1"), 1U);
}

TEST_F(AllServers, ASkippedServerOfMode3SetsTheResultBackTo0)
{
    platform().caMode = [](cert_type, const std::string& server, int& mode) {
        mode = server == "m2" ? CA_USAGE_NONE : CA_USAGE_INTERNAL;
        return 0;
    };
    failAttempts(5, 25);
    EXPECT_EQ(update({"m1", "m2"}), 0);
}

TEST_F(AllServers, WithoutServersNothingHappens)
{
    EXPECT_EQ(update({}), 0);
    EXPECT_EQ(successCount_, 0);
    EXPECT_THAT(platform().log, ElementsAre(LogEntry{2, "Server count [ 0 ]\n", CONTEXT}));
}

TEST_F(AllServers, AStatusFileThatCannotBeOpenedIsLogged)
{
    fs::create_directory(STATUS_M1);
    failAttempts(5, 25);
    EXPECT_EQ(update({"m1"}), 25);
    EXPECT_EQ(logOf(CONTEXT).back(),
              (LogEntry{16, std::string("Unable to open file: ") + STATUS_M1 + "\n", CONTEXT}));
}

TEST_F(AllServers, ALinkInPlaceOfTheStatusFileIsNotWrittenThrough)
{
    test_host::write("/usr/torqv/var/elsewhere", "kept");
    fs::create_symlink("/usr/torqv/var/elsewhere", STATUS_M1);
    failAttempts(5, 25);
    update({"m1"});
    EXPECT_EQ(test_host::contentOf("/usr/torqv/var/elsewhere"), "kept");
    EXPECT_EQ(logOf(CONTEXT).back(),
              (LogEntry{16, std::string("Unable to open file: ") + STATUS_M1 + "\n", CONTEXT}));
}

TEST_F(AllServers, AStatusThatCannotBeWrittenIsLogged)
{
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limited{0, before.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    failAttempts(5, 25);
    setrlimit(RLIMIT_FSIZE, &limited);
    update({"m1"});
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(
        logOf(CONTEXT).back(),
        (LogEntry{16, std::string("Unable to write file: ") + STATUS_M1 + ": File too large\n", CONTEXT}));
}

TEST_F(AllServers, AStatusFileThatCannotBeRemovedIsLoggedWithoutALineEnd)
{
    fs::create_directory(STATUS_M1);
    EXPECT_EQ(update({"m1"}), 0);
    EXPECT_EQ(successCount_, 1);
    EXPECT_EQ(logOf(CONTEXT).back(),
              (LogEntry{16, "Failed to remove the file. retval: [-1] and errno: [21]", CONTEXT}));
}

// One identity

class OnePass : public UpdateTest {
protected:
    static constexpr const char* CONTEXT = "fetchMastersAndUpdateHostDB";

    int successCount_ = -1;
};

TEST_F(OnePass, AllMappedServersAreUpdatedInTheirOrder)
{
    EXPECT_EQ(fetchMastersAndUpdateHostDB(CERT_TYPE_HOST, false, successCount_), 0);
    EXPECT_EQ(successCount_, 2);
    EXPECT_EQ(platform().calls.at(0), "getServersFromMapInfo 1 0");
    EXPECT_EQ(platform().requests.at(0).server, "m1");
    EXPECT_EQ(platform().requests.at(2).server, "m2");
}

TEST_F(OnePass, TheIdentityAndForceReachTheServers)
{
    fetchMastersAndUpdateHostDB(CERT_TYPE_CLUSTER, true, successCount_);
    fetchMastersAndUpdateHostDB(CERT_TYPE_CLUSTER, true, successCount_);
    EXPECT_EQ(platform().count("getServersFromMapInfo 2 0"), 2U);
    EXPECT_EQ(platform().count("getCAModeByServer 2 m1"), 2U);
    EXPECT_EQ(platform().count("PUT"), 2U);
    EXPECT_EQ(platform().requests.at(0).certType, CERT_TYPE_CLUSTER);
}

TEST_F(OnePass, TheResultIsThatOfTheServers)
{
    failAttempts(5, 25);
    EXPECT_EQ(fetchMastersAndUpdateHostDB(CERT_TYPE_HOST, false, successCount_), 25);
    EXPECT_EQ(successCount_, 1);
}

TEST_F(OnePass, AFailedLookUpIsLoggedAndThrown)
{
    platform().mapInfoStatus = 7610;
    EXPECT_EQ(thrownStatus([&] { fetchMastersAndUpdateHostDB(CERT_TYPE_CLUSTER, false, successCount_); }),
              7610);
    EXPECT_THAT(logOf(CONTEXT),
                ElementsAre(LogEntry{16, "getServersFromMapInfo with certType 2 failed with error: 7610\n",
                                     CONTEXT}));
}

TEST_F(OnePass, AListWithoutServersThrowsAnEnumerationValueThatNoIntHandlerCatches)
{
    for (const int count : {0, -3}) {
        command_run::reset();
        platform().mapInfoCountOverride = count;
        bool caught = false;
        try {
            fetchMastersAndUpdateHostDB(CERT_TYPE_HOST, false, successCount_);
        } catch (int) {
            ADD_FAILURE() << "an int was thrown";
        } catch (ec_status status) {
            caught = true;
            EXPECT_EQ(status, 20);
        }
        EXPECT_TRUE(caught);
        EXPECT_THAT(logOf(CONTEXT),
                    ElementsAre(LogEntry{16,
                                         "getServersFromMapInfo with certType 1 returned erroneous server "
                                         "count: " +
                                             std::to_string(count) + "\n",
                                         CONTEXT}));
    }
}

// The whole update

class WholeUpdate : public UpdateTest {
protected:
    static constexpr const char* CONTEXT = "updateHostInDB";

    static constexpr const char* FAILED = "Failed to update hostDB for all masters\n";
    static constexpr const char* ON_ACTIVE_NODE =
        "This command is running on active node of a cluster. It will update virtual host secure status as "
        "well.\n";
};

TEST_F(WholeUpdate, OutsideAClusterThereIsOnlyTheHostPass)
{
    EXPECT_NO_THROW(updateHostInDB(false, false));
    EXPECT_EQ(platform().count("getServersFromMapInfo 1"), 1U);
    EXPECT_EQ(platform().count("getServersFromMapInfo 2"), 0U);
    EXPECT_THAT(logOf(CONTEXT), IsEmpty());
    EXPECT_EQ(platform().count(std::string("lock ") + DAEMON_LOCK), 0U);
}

TEST_F(WholeUpdate, OneUpdatedServerIsASuccessWhateverTheStatus)
{
    failAttempts(5, 25);
    EXPECT_NO_THROW(updateHostInDB(false, false));
    EXPECT_THAT(logOf(CONTEXT),
                ElementsAre(LogEntry{8,
                                     "fetchMastersAndUpdateHostDB with certType CERT_TYPE_HOST failed with "
                                     "error:25\n",
                                     CONTEXT}));
}

TEST_F(WholeUpdate, WithoutAnUpdatedServerTheStatusIsThrown)
{
    failAttempts(5, 25);
    failAttempts(5, 7621);
    EXPECT_EQ(thrownStatus([] { updateHostInDB(false, false); }), 7621);
    EXPECT_THAT(logOf(CONTEXT),
                ElementsAre(LogEntry{8,
                                     "fetchMastersAndUpdateHostDB with certType CERT_TYPE_HOST failed with "
                                     "error:7621\n",
                                     CONTEXT},
                            LogEntry{16, FAILED, CONTEXT}));
}

TEST_F(WholeUpdate, OnlySkippedServersThrowAStatusOf0)
{
    platform().mappedServers[CERT_TYPE_HOST] = {"m1"};
    platform().caMode = [](cert_type, const std::string&, int& mode) {
        mode = CA_USAGE_NONE;
        return 0;
    };
    const ChildRun result = run({"-update"});
    EXPECT_EQ(result.status, 0);
    EXPECT_FALSE(result.returned);
    EXPECT_EQ(result.err, "Requested operation failed with error: 0\n");
    EXPECT_THAT(result.logOf(CONTEXT), ElementsAre(LogEntry{16, FAILED, CONTEXT}));
}

TEST_F(WholeUpdate, OnlyBusyServersThrowAStatusOf0)
{
    platform().busyLocks = {LOCK_M1, LOCK_M2};
    EXPECT_EQ(thrownStatus([] { updateHostInDB(false, false); }), 0);
}

TEST_F(WholeUpdate, OnAnActiveClusterNodeBothPassesRun)
{
    command_run::beActiveClusterNode();
    EXPECT_NO_THROW(updateHostInDB(false, false));
    EXPECT_EQ(platform().count("getServersFromMapInfo 1"), 1U);
    EXPECT_EQ(platform().count("getServersFromMapInfo 2"), 1U);
    EXPECT_THAT(logOf(CONTEXT), ElementsAre(LogEntry{2, ON_ACTIVE_NODE, CONTEXT}));
}

TEST_F(WholeUpdate, TheClusterIsAskedForAfterTheHostPass)
{
    command_run::beActiveClusterNode();
    updateHostInDB(true, false);
    std::vector<std::string> order;
    for (const std::string& call : platform().calls) {
        if (call.starts_with("PUT ") || call.starts_with("Is") || call.starts_with("getServersFromMapInfo"))
            order.push_back(call.substr(0, call.find(' ')));
    }
    EXPECT_THAT(order, ElementsAre("getServersFromMapInfo", "PUT", "PUT", "IsNodeClustered", "IsClustered",
                                   "IsActive", "getServersFromMapInfo", "PUT"));
}

TEST_F(WholeUpdate, AClusterPassWithoutAnUpdatedServerFailsTheUpdateWithItsResult)
{
    command_run::beActiveClusterNode();
    platform().mappedServers[CERT_TYPE_HOST] = {"m1"};
    platform().mappedServers[CERT_TYPE_CLUSTER] = {"m2"};
    answer(200, "");
    failAttempts(5, 7622);
    EXPECT_EQ(thrownStatus([] { updateHostInDB(false, false); }), 7622);
    EXPECT_THAT(
        logOf(CONTEXT),
        ElementsAre(LogEntry{2, ON_ACTIVE_NODE, CONTEXT},
                    LogEntry{8,
                             "fetchMastersAndUpdateHostDB with certType CERT_TYPE_CLUSTER failed with "
                             "error:7622\n",
                             CONTEXT},
                    LogEntry{16, FAILED, CONTEXT}));
}

TEST_F(WholeUpdate, AHostPassWithoutAnUpdatedServerThrowsTheClusterPassesResult)
{
    command_run::beActiveClusterNode();
    platform().mappedServers[CERT_TYPE_HOST] = {"m1"};
    platform().mappedServers[CERT_TYPE_CLUSTER] = {"m2"};
    failAttempts(5, 25);
    answer(200, "");
    EXPECT_EQ(thrownStatus([] { updateHostInDB(false, false); }), 0);
}

TEST_F(WholeUpdate, TwoPassesToOneServerSendBothInEveryRun)
{
    command_run::beActiveClusterNode();
    platform().mappedServers[CERT_TYPE_HOST] = {"m1"};
    platform().mappedServers[CERT_TYPE_CLUSTER] = {"m1"};
    int asked = 0;
    platform().onRequest = [&](const fakes::HttpRequest&) { ++asked; };
    fakes::sysinfo().onCall = [] {
        const bool clusterPass = platform().count("getServersFromMapInfo 2") != 0;
        platform().hostId.text = clusterPass ? "cluster" : "host";
    };
    for (int i = 0; i < 2; ++i) {
        platform().calls.clear();
        platform().requests.clear();
        updateHostInDB(false, false);
        EXPECT_EQ(platform().count("PUT"), 2U);
    }
}

TEST_F(WholeUpdate, AFailedLookUpEndsTheUpdate)
{
    command_run::beActiveClusterNode();
    platform().mapInfoStatus = 7611;
    EXPECT_EQ(thrownStatus([] { updateHostInDB(false, false); }), 7611);
    EXPECT_EQ(platform().count("getServersFromMapInfo"), 1U) << "there is no cluster pass";
    EXPECT_EQ(platform().count("IsNodeClustered"), 0U);
    EXPECT_THAT(logOf(CONTEXT), IsEmpty());
}

TEST_F(WholeUpdate, AListWithoutServersEndsTheCommandWith0AndAnUnknownError)
{
    platform().mappedServers.clear();
    const ChildRun result = run({"-update"});
    EXPECT_EQ(result.status, 0);
    EXPECT_FALSE(result.returned);
    EXPECT_EQ(result.err, "Requested operation failed with unknown error\n");
}

TEST_F(WholeUpdate, ThreeAttemptsAndFiveFailuresEndTheCommandWith0)
{
    failAttempts(2, 25);
    answer(200, "");
    failAttempts(5, 25);
    const ChildRun result = run({"-update"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.returned);
    EXPECT_EQ(test_host::contentOf(STATUS_M2), "25\n");
}

TEST_F(WholeUpdate, AnUnknownExceptionInEveryAttemptEndsTheCommandWith114)
{
    fakes::sysinfo().onCall = [] { throw std::out_of_range("no value"); };
    EXPECT_EQ(run({"-update"}).status, 114);
    EXPECT_EQ(test_host::contentOf(STATUS_M1), "114\n");
}

// The daemon lock

TEST_F(WholeUpdate, ADaemonsUpdateHoldsTheDaemonLockUntilItsEnd)
{
    EXPECT_NO_THROW(updateHostInDB(false, true));
    EXPECT_EQ(platform().calls.front(), std::string("lock ") + DAEMON_LOCK + " 10 5");
    EXPECT_EQ(platform().calls.back(), "unlock (held)");
    EXPECT_EQ(platform().count("lock "), platform().count("unlock (held)"));
    EXPECT_THAT(
        logOf(CONTEXT),
        ElementsAre(LogEntry{2,
                             std::string("Successfully acquired the daemon lock for hostdb update : ") +
                                 DAEMON_LOCK + "\n",
                             CONTEXT},
                    LogEntry{2, "Releasing daemon lock for hostdb update. \n", CONTEXT}));
}

TEST_F(WholeUpdate, ASecondDaemonsUpdateIsDroppedQuietly)
{
    platform().busyLocks = {DAEMON_LOCK};
    const ChildRun result = run({"-update", "-daemon"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.returned);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.count("getServersFromMapInfo"), 0U);
    EXPECT_EQ(result.calls.back(), "unlock (not held)") << "the lock object is gone";
    EXPECT_THAT(
        result.logOf(CONTEXT),
        ElementsAre(
            LogEntry{16,
                     std::string("Failed to acquire the daemon lock for hostdb update : ") + DAEMON_LOCK +
                         "\n",
                     CONTEXT},
            LogEntry{16,
                     "Not processing this update request from the daemon, as one update from the daemon is "
                     "already in proress.\n",
                     CONTEXT}));
    EXPECT_EQ(result.log.back().text, "Host update completed successfully");
}

TEST_F(WholeUpdate, AFailedDaemonsUpdateHoldsTheDaemonLockUntilTheProcessEnds)
{
    platform().mappedServers[CERT_TYPE_HOST] = {"m1"};
    failAttempts(5, 25);
    const ChildRun result = run({"-update", "-daemon"});
    EXPECT_EQ(result.status, 25);
    EXPECT_EQ(result.count("lock "), result.count("unlock") + 1) << "still held at exit";
    for (const LogEntry& entry : result.logOf(CONTEXT))
        EXPECT_NE(entry.text, "Releasing daemon lock for hostdb update. \n");
}

TEST_F(WholeUpdate, AnExceptionOfAPassLeavesTheDaemonLockToTheProcessesEnd)
{
    platform().mapInfoStatus = 7610;
    const ChildRun result = run({"-update", "-daemon"});
    EXPECT_EQ(result.status, 252);
    EXPECT_EQ(result.count("lock "), 1U);
    EXPECT_EQ(result.count("unlock"), 0U);
}

TEST_F(WholeUpdate, AnUpdateByHandDoesNotTakeTheDaemonLock)
{
    platform().busyLocks = {DAEMON_LOCK};
    EXPECT_NO_THROW(updateHostInDB(false, false));
    EXPECT_EQ(platform().count("PUT"), 2U);
}

} // namespace
