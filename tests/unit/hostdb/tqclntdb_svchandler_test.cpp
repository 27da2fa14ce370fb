#include "hostdb/tqclntdb_svchandler.h"

#include "hostdb/web_service_exception.h"
#include "hostinfo/tqclntdb_hostinfo.h"
#include "tests/unit/hostdb/test_host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

namespace fs = std::filesystem;
using fakes::HttpReply;
using fakes::HttpRequest;
using fakes::LogEntry;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using TQCLNTDB::CHostInformation;
using TQCLNTDB::CTQHostDBServiceHandler;
using TQCLNTDB::WebServiceException;

constexpr const char* CACHE = "/usr/torqv/var/hostdb.cache.m1";
constexpr const char* OWN_PATH = "torquenix/config/hosts/6f0f0000-0000-4000-8000-000000000001";

class ServiceHandler : public testing::Test {
protected:
    void SetUp() override { test_host::reset(); }

    static fakes::Platform& platform() { return fakes::platform(); }

    static void answer(std::int64_t httpStatus, const std::string& body)
    {
        platform().replies.push_back({0, httpStatus, body});
    }
    static void answerNothing(int result) { platform().replies.push_back({result, 0, ""}); }

    static std::vector<LogEntry> logOf(const std::string& context) { return platform().entriesOf(context); }

    /// What this host's record reads once it is loaded for a server.
    static CHostInformation loadedRecord(const std::string& server = "m1", cert_type type = CERT_TYPE_HOST)
    {
        CHostInformation record(server, type);
        EXPECT_EQ(record.loadHostConfig(), 0);
        platform().log.clear();
        platform().calls.clear();
        return record;
    }

    static void expectFailure(const std::function<void()>& operation, std::int64_t httpStatus,
                              const std::string& body)
    {
        try {
            operation();
            FAIL() << "nothing was thrown";
        } catch (const WebServiceException& failure) {
            EXPECT_EQ(failure.httpStatus(), httpStatus);
            EXPECT_EQ(failure.responseBody(), body);
            EXPECT_EQ(platform().liveClients, 0) << "the client has been released";
        }
    }

    CTQHostDBServiceHandler handler_{"m1", CERT_TYPE_HOST};
};

// Construction and the HTTP client

TEST_F(ServiceHandler, ConstructionMakesARecordForTheServerAndAsksNothing)
{
    CTQHostDBServiceHandler handler("m2", CERT_TYPE_CLUSTER);
    EXPECT_EQ(handler.hostInformation().masterServer, "m2");
    EXPECT_EQ(handler.hostInformation().certType, CERT_TYPE_CLUSTER);
    EXPECT_THAT(platform().calls, IsEmpty());
}

TEST_F(ServiceHandler, EveryOperationMakesItsClientWithTheSameNineteenArguments)
{
    const std::function<void(CTQHostDBServiceHandler&)> operations[] = {
        [](CTQHostDBServiceHandler& handler) {
            CHostInformation out;
            answer(200, R"({"hosts":[{}]})");
            handler.getHost(out, "h1");
        },
        [](CTQHostDBServiceHandler& handler) {
            CHostInformation out;
            answer(200, "{}");
            handler.getHostByHostId(out, "42");
        },
        [](CTQHostDBServiceHandler& handler) {
            std::vector<CHostInformation> list;
            answer(200, "{}");
            handler.getAllHosts(list);
        },
        [](CTQHostDBServiceHandler& handler) {
            answer(201, "");
            handler.insertRecord();
        },
        [](CTQHostDBServiceHandler& handler) {
            answer(200, "");
            handler.updateRecord(true);
        },
        [](CTQHostDBServiceHandler& handler) {
            answer(204, "");
            handler.deleteHost();
        },
        [](CTQHostDBServiceHandler& handler) {
            answer(200, "");
            handler.reloadConfigHost("r");
        },
        [](CTQHostDBServiceHandler& handler) { handler.refreshToken(); },
    };
    CTQHostDBServiceHandler handler("m7.example", CERT_TYPE_CLUSTER);
    for (const auto& operation : operations)
        operation(handler);

    EXPECT_EQ(platform().clients.size(), 9U) << "the update's token renewal has a client of its own";
    EXPECT_EQ(platform().liveClients, 0);
    for (const fakes::HttpClientArguments& arguments : platform().clients) {
        EXPECT_EQ(arguments.sessionType, 1);
        EXPECT_FALSE(arguments.hasTokenManager);
        EXPECT_THAT(arguments.flags, ElementsAre(true, false, false, false, false));
        EXPECT_EQ(arguments.texts, std::vector<std::string>(8));
        EXPECT_EQ(arguments.number, 0);
    }
    for (const HttpRequest& request : platform().requests) {
        EXPECT_EQ(request.server, "m7.example");
        EXPECT_EQ(request.port, 1556);
        EXPECT_EQ(request.certType, CERT_TYPE_CLUSTER);
    }
}

// getHost

TEST_F(ServiceHandler, AHostIsReadByNameThroughTheFilter)
{
    answer(200, R"({"hosts":[{"uuid":"7","hostName":"h9"}]})");
    CHostInformation out;
    EXPECT_EQ(handler_.getHost(out, "h9"), 0);
    EXPECT_EQ(out.hostId, "7");
    EXPECT_EQ(out.hostName, "h9");
    ASSERT_EQ(platform().requests.size(), 1U);
    EXPECT_EQ(platform().requests[0].method, "GET");
    EXPECT_EQ(platform().requests[0].path, "torquenix/config/hosts?filter=hostName%20eq%20'h9'");
    EXPECT_EQ(platform().count("getHostID"), 0U);
}

TEST_F(ServiceHandler, AHostNameIsPutIntoTheFilterAsItIs)
{
    answer(200, R"({"hosts":[{}]})");
    CHostInformation out;
    handler_.getHost(out, "a b'c\"&%23");
    EXPECT_EQ(platform().requests.at(0).path, "torquenix/config/hosts?filter=hostName%20eq%20'a b'c\"&%23'");
}

TEST_F(ServiceHandler, OfSeveralHostsOfANameTheFirstIsTaken)
{
    answer(200, R"({"hosts":[{"uuid":"1"},{"uuid":"2"}]})");
    CHostInformation out;
    EXPECT_EQ(handler_.getHost(out, "h1"), 0);
    EXPECT_EQ(out.hostId, "1");
}

TEST_F(ServiceHandler, AFilteredReplyWithoutAHostGives114)
{
    for (const char* body : {R"({"hosts":[]})", R"({"hosts":{}})", "{}", "[]", "", "not JSON", "null", "7"}) {
        answer(200, body);
        platform().log.clear();
        CHostInformation out;
        out.hostName = "before";
        EXPECT_EQ(handler_.getHost(out, "h1"), 114) << body;
        EXPECT_EQ(out.hostName, "before") << body;
        EXPECT_THAT(logOf("CTQHostDBServiceHandler::getHost"),
                    ElementsAre(LogEntry{16, "Unable to get host information from server response.\n",
                                         "CTQHostDBServiceHandler::getHost"}))
            << body;
    }
}

TEST_F(ServiceHandler, WithoutANameThisHostIsReadByItsIdentifier)
{
    answer(200, R"({"uuid":"7","hostName":"h1.example"})");
    CHostInformation out;
    EXPECT_EQ(handler_.getHost(out, ""), 0);
    EXPECT_EQ(out.hostId, "7");
    EXPECT_EQ(platform().requests.at(0).path, OWN_PATH);
    EXPECT_EQ(handler_.hostInformation().hostId, test_host::HOST_ID);
    EXPECT_EQ(platform().calls.at(0), "TQClientCURL m1 1556 1") << "the client is made first";
    EXPECT_EQ(platform().calls.at(1), "getHostID 1 m1 64");
}

TEST_F(ServiceHandler, WithoutANameAndWithoutAnIdentifierNothingIsAsked)
{
    platform().hostId.status = 7612;
    CHostInformation out;
    EXPECT_EQ(handler_.getHost(out, ""), 7612);
    EXPECT_THAT(platform().requests, IsEmpty());
    EXPECT_THAT(logOf("CTQHostDBServiceHandler::getHost"),
                ElementsAre(LogEntry{16, "Failed to get host UUID with error : 7612\n",
                                     "CTQHostDBServiceHandler::getHost"}));
}

TEST_F(ServiceHandler, OfASingleHostOnlyATextThatDoesNotParseGives114)
{
    CHostInformation out;
    for (const char* body : {"not JSON", "{", "\"", "{}]["}) {
        answer(200, body);
        EXPECT_EQ(handler_.getHost(out, ""), 114) << body;
    }
    for (const char* body : {"", "{}", "null", "[]", "7"}) {
        answer(200, body);
        EXPECT_EQ(handler_.getHost(out, ""), 0) << body;
    }
}

TEST_F(ServiceHandler, AStatusOfTheClientIsReturnedAsItIsByGetHost)
{
    answerNothing(25);
    CHostInformation out;
    EXPECT_EQ(handler_.getHost(out, "h1"), 25);
    EXPECT_THAT(logOf("CTQHostDBServiceHandler::getHost"), IsEmpty());
}

TEST_F(ServiceHandler, GetHostThrowsForAnotherStatusThan200)
{
    for (const std::int64_t status : {201, 204, 301, 404, 500}) {
        answer(status, "body");
        CHostInformation out;
        expectFailure([&] { handler_.getHost(out, "h1"); }, status, "body");
    }
}

TEST_F(ServiceHandler, AnExceptionWhileReadingAReplyPasses)
{
    answer(200, R"({"hosts":[{"servers":[1]}]})");
    CHostInformation out;
    EXPECT_THROW(handler_.getHost(out, "h1"), std::logic_error);
    EXPECT_EQ(platform().liveClients, 0);
}

// getHostByHostId

TEST_F(ServiceHandler, AHostIsReadByItsIdentifier)
{
    answer(200, R"({"uuid":"42","hostName":"h42"})");
    CHostInformation out;
    EXPECT_EQ(handler_.getHostByHostId(out, "42"), 0);
    EXPECT_EQ(out.hostName, "h42");
    EXPECT_EQ(platform().requests.at(0).method, "GET");
    EXPECT_EQ(platform().requests.at(0).path, "torquenix/config/hosts/42");
}

TEST_F(ServiceHandler, AStatusOfTheClientIsLoggedByGetHostByHostId)
{
    answerNothing(7620);
    CHostInformation out;
    EXPECT_EQ(handler_.getHostByHostId(out, "42"), 7620);
    EXPECT_THAT(logOf("CTQHostDBServiceHandler::getHostByHostId"),
                ElementsAre(LogEntry{16, "getHostByHostId failed with error : 7620\n",
                                     "CTQHostDBServiceHandler::getHostByHostId"}));
}

TEST_F(ServiceHandler, AHostByIdentifierThatDoesNotParseGives114)
{
    answer(200, "{\"uuid\":");
    CHostInformation out;
    EXPECT_EQ(handler_.getHostByHostId(out, "42"), 114);
    EXPECT_THAT(logOf("CTQHostDBServiceHandler::getHostByHostId"),
                ElementsAre(LogEntry{16, "getHostByHostId, getHostObj returned false : \n",
                                     "CTQHostDBServiceHandler::getHostByHostId"}));
}

TEST_F(ServiceHandler, GetHostByHostIdThrowsForAnotherStatusThan200)
{
    answer(404, R"({"errorCode":8600})");
    CHostInformation out;
    expectFailure([&] { handler_.getHostByHostId(out, "42"); }, 404, R"({"errorCode":8600})");
}

// getAllHosts

TEST_F(ServiceHandler, AllHostsAreAppendedInTheServersOrder)
{
    answer(200, R"({"hosts":[{"uuid":"b"},{"uuid":"a"},{"uuid":"c"}]})");
    std::vector<CHostInformation> list(1);
    list[0].hostId = "kept";
    EXPECT_EQ(handler_.getAllHosts(list), 0);
    ASSERT_EQ(list.size(), 4U);
    EXPECT_EQ(list[0].hostId, "kept");
    EXPECT_EQ(list[1].hostId, "b");
    EXPECT_EQ(list[2].hostId, "a");
    EXPECT_EQ(list[3].hostId, "c");
    EXPECT_EQ(platform().requests.at(0).path, "torquenix/config/hosts/") << "with the trailing slash";
}

TEST_F(ServiceHandler, AnEntryThatIsNoHostIsAppendedAllTheSame)
{
    answer(200, R"({"hosts":[7,{"uuid":"a"}]})");
    std::vector<CHostInformation> list;
    EXPECT_EQ(handler_.getAllHosts(list), 0);
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0].hostId, "");
    EXPECT_EQ(list[1].hostId, "a");
}

TEST_F(ServiceHandler, AListThatCannotBeReadAddsNothingAndIsNoFailure)
{
    for (const char* body : {"", "not JSON", "{}", "[]", R"({"hosts":7})", R"({"hosts":[]})"}) {
        answer(200, body);
        std::vector<CHostInformation> list;
        EXPECT_EQ(handler_.getAllHosts(list), 0) << body;
        EXPECT_THAT(list, IsEmpty()) << body;
    }
}

TEST_F(ServiceHandler, AListWithAServerThatIsNoTextThrowsAndTakesItsMemoryWithIt)
{
    answer(200, R"({"hosts":[{"uuid":"a","servers":[7]}]})");
    std::vector<CHostInformation> list;
    EXPECT_THROW(handler_.getAllHosts(list), std::logic_error);
    json_malloc_t take = nullptr;
    json_free_t release = nullptr;
    json_get_alloc_funcs(&take, &release);
    EXPECT_EQ(take, &std::malloc);
    EXPECT_EQ(release, &std::free);
}

TEST_F(ServiceHandler, AStatusOfTheClientIsReturnedByGetAllHosts)
{
    answerNothing(7621);
    std::vector<CHostInformation> list;
    EXPECT_EQ(handler_.getAllHosts(list), 7621);
}

TEST_F(ServiceHandler, GetAllHostsThrowsForAnotherStatusThan200)
{
    answer(403, "");
    std::vector<CHostInformation> list;
    expectFailure([&] { handler_.getAllHosts(list); }, 403, "");
}

// insertRecord

TEST_F(ServiceHandler, AnInsertPostsTheRecordWithoutIdentityKeys)
{
    const std::string json = loadedRecord().getJSON(false, false);
    answer(201, "");
    EXPECT_EQ(handler_.insertRecord(), 0);
    EXPECT_THAT(platform().requests,
                ElementsAre(HttpRequest{"POST", "torquenix/config/hosts", json, "m1", 1556, CERT_TYPE_HOST}))
        << "no token renewal follows";
    EXPECT_FALSE(fs::exists(CACHE)) << "no cache write follows";
    EXPECT_THAT(json, Not(HasSubstr("hostName")));
    // The context has a slip of old that the logs are searched by.
    EXPECT_THAT(
        logOf("CTQHostDBServiceHandler::inertRecord"),
        ElementsAre(LogEntry{2, "Got JSON = [ " + json + " ]\n", "CTQHostDBServiceHandler::inertRecord"}));
    EXPECT_THAT(logOf("CTQHostDBServiceHandler::insertRecord"), IsEmpty());
}

TEST_F(ServiceHandler, AnInsertWhoseLoadFailsSendsNothing)
{
    platform().hostConfigStatus = 12;
    EXPECT_EQ(handler_.insertRecord(), 12);
    EXPECT_THAT(platform().requests, IsEmpty());
    EXPECT_THAT(logOf("CTQHostDBServiceHandler::inertRecord"),
                ElementsAre(LogEntry{16, "Get host configuration failed with error : 12\n",
                                     "CTQHostDBServiceHandler::inertRecord"}));
    EXPECT_EQ(platform().calls.at(0), "TQClientCURL m1 1556 1") << "the client is made before the load";
}

TEST_F(ServiceHandler, AnInsertReturnsTheClientsStatus)
{
    answerNothing(7624);
    EXPECT_EQ(handler_.insertRecord(), 7624);
}

TEST_F(ServiceHandler, AnInsertThrowsForAnotherStatusThan201)
{
    for (const std::int64_t status : {200, 204, 409}) {
        answer(status, "body");
        expectFailure([&] { handler_.insertRecord(); }, status, "body");
    }
}

TEST_F(ServiceHandler, ASecondInsertSendsTheSameRecord)
{
    answer(201, "");
    answer(201, "");
    handler_.insertRecord();
    handler_.insertRecord();
    EXPECT_EQ(platform().requests.at(0).body, platform().requests.at(1).body);
}

// updateRecord

TEST_F(ServiceHandler, AnUpdatePutsTheRecordThenWritesTheCacheThenRenewsTheToken)
{
    const CHostInformation record = loadedRecord();
    const std::string json = record.getJSON(false, false);
    answer(200, "{}");
    bool cachedBeforeAnswer = true;
    platform().onRequest = [&](const HttpRequest&) { cachedBeforeAnswer = fs::exists(CACHE); };
    EXPECT_EQ(handler_.updateRecord(false), 0);

    EXPECT_THAT(platform().requests,
                ElementsAre(HttpRequest{"PUT", OWN_PATH, json, "m1", 1556, CERT_TYPE_HOST},
                            HttpRequest{"refreshToken", "", "", "m1", 1556, CERT_TYPE_HOST}));
    EXPECT_FALSE(cachedBeforeAnswer);
    EXPECT_EQ(test_host::contentOf(CACHE), record.getJSON(true, false) + "\n");
    EXPECT_THAT(json, Not(HasSubstr("uuid")));
    const char* const context = "CTQHostDBServiceHandler::updateRecord";
    EXPECT_THAT(logOf(context), ElementsAre(LogEntry{2, "Got JSON = [ " + json + " ]\n", context},
                                            LogEntry{2, "Recreate the token...\n", context}));
}

TEST_F(ServiceHandler, AnUpdateTakesTheCacheLockThenMakesTheClientThenLoads)
{
    answer(200, "");
    handler_.updateRecord(true);
    const std::vector<std::string>& calls = platform().calls;
    EXPECT_EQ(calls.at(0), "lock /usr/torqv/var/hostdbcache.m1.lock 10 5");
    EXPECT_EQ(calls.at(1), "TQClientCURL m1 1556 1");
    EXPECT_THAT(calls.at(2), testing::StartsWith("ReadHostConfigExA"));
    EXPECT_EQ(calls.back(), "unlock (held)") << "the lock lasts until the operation's end";
}

TEST_F(ServiceHandler, AnUnchangedHostSendsNothing)
{
    answer(200, "");
    ASSERT_EQ(handler_.updateRecord(false), 0);
    platform().requests.clear();
    platform().log.clear();
    EXPECT_EQ(handler_.updateRecord(false), 0);
    EXPECT_THAT(platform().requests, IsEmpty());
    EXPECT_THAT(logOf("CTQHostDBServiceHandler::updateRecord"),
                ElementsAre(LogEntry{2, "No need to update host information into host DB\n",
                                     "CTQHostDBServiceHandler::updateRecord"}));
}

TEST_F(ServiceHandler, AForcedUpdateOfAnUnchangedHostIsSent)
{
    answer(200, "");
    answer(200, "");
    ASSERT_EQ(handler_.updateRecord(false), 0);
    platform().requests.clear();
    platform().log.clear();
    EXPECT_EQ(handler_.updateRecord(true), 0);
    EXPECT_EQ(platform().requests.at(0).method, "PUT");
    EXPECT_THAT(platform().texts("TQHostDBCacheHandler::isPresentInCache"), IsEmpty()) << "nobody asks";
}

TEST_F(ServiceHandler, AChangedHostIsSent)
{
    answer(200, "");
    answer(200, "");
    ASSERT_EQ(handler_.updateRecord(false), 0);
    fakes::sysinfo().record.modelName = "Bigger box";
    EXPECT_EQ(handler_.updateRecord(false), 0);
    EXPECT_EQ(platform().count("PUT"), 2U);
}

TEST_F(ServiceHandler, AnUpdateWhoseLoadFailsSendsNothing)
{
    fakes::sysinfo().status = -1;
    EXPECT_EQ(handler_.updateRecord(true), -1);
    EXPECT_THAT(platform().requests, IsEmpty());
    EXPECT_THAT(logOf("CTQHostDBServiceHandler::updateRecord"),
                ElementsAre(LogEntry{16, "Get host configuration failed with error : -1\n",
                                     "CTQHostDBServiceHandler::updateRecord"}));
}

TEST_F(ServiceHandler, AStatusOfTheClientEndsAnUpdateWithoutCacheAndToken)
{
    answerNothing(7620);
    EXPECT_EQ(handler_.updateRecord(false), 7620);
    EXPECT_FALSE(fs::exists(CACHE));
    EXPECT_EQ(platform().count("refreshToken"), 0U);
}

TEST_F(ServiceHandler, AnUpdateThrowsForAnotherStatusThan200)
{
    for (const std::int64_t status : {201, 204, 400, 403, 500}) {
        answer(status, "body");
        expectFailure([&] { handler_.updateRecord(false); }, status, "body");
        EXPECT_FALSE(fs::exists(CACHE));
        EXPECT_EQ(platform().count("refreshToken"), 0U);
        EXPECT_EQ(platform().calls.back(), "unlock (held)") << "the lock is free again";
    }
}

TEST_F(ServiceHandler, AFailedCacheWriteStillRenewsTheTokenAndReturnsItsStatus)
{
    fs::create_directory(CACHE);
    answer(200, "");
    platform().refreshResults = {7625};
    EXPECT_EQ(handler_.updateRecord(true), 7625);
    const char* const context = "CTQHostDBServiceHandler::updateRecord";
    const std::vector<LogEntry> log = logOf(context);
    ASSERT_EQ(log.size(), 4U);
    EXPECT_EQ(log[1], (LogEntry{16, "Unable to write host information in cache file: \n", context}));
    EXPECT_EQ(log[2], (LogEntry{2, "Recreate the token...\n", context}));
    EXPECT_EQ(log[3],
              (LogEntry{2,
                        "Failed to update token post Master server configuration update. Returning error: "
                        "7625\n",
                        context}));
}

TEST_F(ServiceHandler, AFailedTokenRenewalKeepsTheCache)
{
    answer(200, "");
    platform().refreshResults = {25};
    EXPECT_EQ(handler_.updateRecord(false), 25);
    EXPECT_TRUE(fs::exists(CACHE));
    EXPECT_EQ(handler_.updateRecord(false), 0) << "the record was sent: the next update finds it unchanged";
}

TEST_F(ServiceHandler, EveryLoadStartsFromAFreshRecordSoThatARetrySendsTheSameServers)
{
    answer(500, "");
    answer(200, "");
    handler_.hostInformation().servers = {"left over"};
    handler_.hostInformation().hwDescription = "left over";
    EXPECT_THROW(handler_.updateRecord(false), WebServiceException);
    EXPECT_EQ(handler_.updateRecord(false), 0);
    EXPECT_EQ(platform().requests.at(0).body, platform().requests.at(1).body);
    EXPECT_THAT(handler_.hostInformation().servers, ElementsAre("m1", "m2"));
    EXPECT_EQ(handler_.hostInformation().masterServer, "m1");
    EXPECT_EQ(handler_.hostInformation().certType, CERT_TYPE_HOST);
}

TEST_F(ServiceHandler, AnExceptionOfTheLoadPasses)
{
    fakes::sysinfo().onCall = [] { throw std::out_of_range("no value"); };
    EXPECT_THROW(handler_.updateRecord(false), std::out_of_range);
    EXPECT_EQ(platform().liveClients, 0);
    EXPECT_EQ(platform().calls.back(), "unlock (held)");
}

TEST_F(ServiceHandler, TwoIdentitiesOfAServerShareOneCacheAndBothSendInEveryRun)
{
    CTQHostDBServiceHandler cluster("m1", CERT_TYPE_CLUSTER);
    for (int run = 0; run < 2; ++run) {
        answer(200, "");
        answer(200, "");
        platform().hostId.text = "host-id";
        EXPECT_EQ(handler_.updateRecord(false), 0);
        platform().hostId.text = "cluster-id";
        EXPECT_EQ(cluster.updateRecord(false), 0);
    }
    EXPECT_EQ(platform().count("PUT"), 4U);
}

// deleteHost

TEST_F(ServiceHandler, ADeleteNamesThisHost)
{
    answer(204, "");
    EXPECT_EQ(handler_.deleteHost(), 0);
    EXPECT_EQ(platform().requests.at(0).method, "DELETE");
    EXPECT_EQ(platform().requests.at(0).path, OWN_PATH);
}

TEST_F(ServiceHandler, ADeleteWithoutAnIdentifierAsksNothing)
{
    platform().hostId.status = 7610;
    EXPECT_EQ(handler_.deleteHost(), 7610);
    EXPECT_THAT(platform().requests, IsEmpty());
    EXPECT_THAT(logOf("CTQHostDBServiceHandler::deleteHost"),
                ElementsAre(LogEntry{16, "Failed to get host UUID with error : 7610\n",
                                     "CTQHostDBServiceHandler::deleteHost"}));
}

TEST_F(ServiceHandler, ADeleteReturnsTheClientsStatus)
{
    answerNothing(25);
    EXPECT_EQ(handler_.deleteHost(), 25);
}

TEST_F(ServiceHandler, ADeleteThrowsForAnotherStatusThan204)
{
    for (const std::int64_t status : {200, 202, 404}) {
        answer(status, "body");
        expectFailure([&] { handler_.deleteHost(); }, status, "body");
    }
}

// reloadConfigHost and refreshToken

TEST_F(ServiceHandler, AReloadIsAskedOfTheResource)
{
    for (const char* resource : {"torquenix/config/hosts", "torquenix/security/settings"}) {
        answer(200, "");
        EXPECT_EQ(handler_.reloadConfigHost(resource), 0);
        EXPECT_EQ(platform().requests.back().method, "GET");
        EXPECT_EQ(platform().requests.back().path, std::string(resource) + "/reloadconfig");
    }
}

TEST_F(ServiceHandler, AReloadReturnsTheClientsStatusOrThrows)
{
    answerNothing(7622);
    EXPECT_EQ(handler_.reloadConfigHost("r"), 7622);
    answer(204, "");
    expectFailure([&] { handler_.reloadConfigHost("r"); }, 204, "");
}

TEST_F(ServiceHandler, ATokenRenewalReturnsTheClientsStatus)
{
    platform().refreshResults = {0, 7625};
    EXPECT_EQ(handler_.refreshToken(), 0);
    EXPECT_EQ(handler_.refreshToken(), 7625);
    EXPECT_EQ(platform().liveClients, 0);
}

} // namespace
