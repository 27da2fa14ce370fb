#include "cmd/driver.h"

#include "cmd/process_values.h"
#include "hostinfo/tqclntdb_hostinfo.h"
#include "platform/status.h"
#include "tests/unit/cmd/command_run.h"

#include <cerrno>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using command_run::answer;
using command_run::answerNothing;
using command_run::run;
using fakes::ChildRun;
using fakes::LogEntry;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* NAME = "tqhostdbcmd";
constexpr const char* INITIATING = "INITIATING: Torquenix 9.1.0.1 created: 0";
constexpr const char* MASTER = "tqhostdbcmd: MasterServer = m1\n";

std::string argumentsLine(const std::string& arguments)
{
    return std::string(command_run::PROGRAM) + " " + arguments;
}

/// Text of this host's record as the command shows it.
std::string localRecordText()
{
    TQCLNTDB::CHostInformation record("m1", CERT_TYPE_HOST);
    EXPECT_EQ(record.loadHostConfig(), 0);
    return record.getJSON(true, true);
}

std::string recordText(const std::string& hostJson)
{
    TQCLNTDB::CHostInformation record;
    EXPECT_EQ(record.getHostObj("[" + hostJson + "]"), 1);
    return record.getJSON(true, true);
}

class Driver : public testing::Test {
protected:
    void SetUp() override { command_run::reset(); }

    static fakes::Platform& platform() { return fakes::platform(); }

    static void makeLogDirectory() { fs::create_directories("/usr/torqv/torquenix/logs/admin"); }
};

// Start-up

TEST_F(Driver, TheInvocationIsLoggedBeforeAnythingElse)
{
    const ChildRun result = run({"-display", "word"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.returned);
    EXPECT_THAT(result.log,
                ElementsAre(LogEntry{2, INITIATING, NAME}, LogEntry{2, argumentsLine("-display word "), NAME},
                            LogEntry{2, MASTER, NAME}));
}

TEST_F(Driver, TheFileCreationMaskIs022)
{
    const ChildRun result = fakes::runInChild([] {
        umask(0);
        char program[] = "tqhostdbcmd";
        char* argv[] = {program, nullptr};
        TQCLNTDB::runHostDatabaseCommand(1, argv);
        return static_cast<int>(umask(0));
    });
    EXPECT_EQ(result.status, 022);
}

TEST_F(Driver, TheFileCreationMaskIsSetBeforeTheDebugLogIsOpened)
{
    makeLogDirectory();
    const ChildRun result = fakes::runInChild([] {
        umask(0);
        char program[] = "tqhostdbcmd";
        char* argv[] = {program, nullptr};
        TQCLNTDB::runHostDatabaseCommand(1, argv);
        return static_cast<int>(platform().maskAtDebugLogOpen);
    });
    EXPECT_EQ(result.count("open_debug_log"), 1U);
    EXPECT_EQ(result.status, 022);
}

TEST_F(Driver, TheDescriptorOfTheDebugLogIsKept)
{
    makeLogDirectory();
    platform().debugLogDescriptor = 37;
    const ChildRun result = fakes::runInChild([] {
        char program[] = "tqhostdbcmd";
        char* argv[] = {program, nullptr};
        TQCLNTDB::runHostDatabaseCommand(1, argv);
        return TQCLNTDB::debugFD;
    });
    EXPECT_EQ(result.status, 37);
}

TEST_F(Driver, TheProcessValuesAreSet)
{
    const ChildRun result = fakes::runInChild([] {
        clearenv();
        setenv("LANG", "de_DE.UTF-8", 1);
        setenv("LC_TIME", "fr_FR.UTF-8", 1);
        setenv("LC_CTYPE", "C.UTF-8", 1);
        setenv("LC_COLLATE", "sv_SE", 1);
        setenv("LC_NUMERIC", "POSIX", 1);
        char program[] = "/opt/other-name";
        char* argv[] = {program, nullptr};
        TQCLNTDB::runHostDatabaseCommand(1, argv);
        std::cout << TQCLNTDB::progname << ' ' << TQCLNTDB::CmdName << ' ' << TQCLNTDB::MasterServer << ' '
                  << TQCLNTDB::debugFD << ' ' << TQCLNTDB::lc_messages << ' ' << TQCLNTDB::lc_ctype << ' '
                  << TQCLNTDB::lc_time << ' ' << TQCLNTDB::lc_collate << ' ' << TQCLNTDB::lc_numeric;
        return 0;
    });
    EXPECT_EQ(result.out, "other-name other-name m1 -1 de_DE.UTF-8 C.UTF-8 fr_FR.UTF-8 sv_SE POSIX");
}

TEST_F(Driver, TheDebugLogIsOpenedWhenItsDirectoryExists)
{
    makeLogDirectory();
    const ChildRun result = run({});
    EXPECT_EQ(result.calls.at(0), "open_debug_log /usr/torqv/torquenix/logs admin tqhostdbcmd 438 0");
    EXPECT_EQ(result.count("is_user_admin"), 0U);
}

TEST_F(Driver, WithoutALogDirectoryNobodyIsRefused)
{
    platform().debugLogDescriptor = -1;
    const ChildRun result = run({});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.count("open_debug_log"), 0U);
    EXPECT_EQ(result.count("is_user_admin"), 0U);
}

TEST_F(Driver, ACallerWhoIsNoAdministratorGoesOnWithoutALog)
{
    makeLogDirectory();
    platform().debugLogDescriptor = -1;
    platform().admin = 0;
    const ChildRun result = run({});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.calls.at(1), "is_user_admin 2");
    EXPECT_EQ(result.err, "");
}

TEST_F(Driver, OutdatedCacheFilesAreRemovedWhateverTheOperation)
{
    const std::vector<std::vector<std::string>> lines = {
        {},        {"-display"}, {"-update"},       {"-localinfo"},
        {"-read"}, {"-delete"},  {"-readallhosts"}, {"-reloadconfig"}};
    for (const std::vector<std::string>& line : lines) {
        test_host::write("/usr/torqv/torquenix/bin/hostdb.cache.m1", "old");
        run(line);
        EXPECT_FALSE(fs::exists("/usr/torqv/torquenix/bin/hostdb.cache.m1")) << testing::PrintToString(line);
    }
}

TEST_F(Driver, OutdatedCacheFilesAreRemovedBeforeTheMasterServerIsResolved)
{
    platform().masterConfig.serverNames.reset();
    test_host::write("/usr/torqv/torquenix/bin/hostdb.cache.m1", "old");
    EXPECT_EQ(run({"-read"}).status, 111);
    EXPECT_FALSE(fs::exists("/usr/torqv/torquenix/bin/hostdb.cache.m1"));
}

TEST_F(Driver, OutdatedCacheFilesStayWhenTheCommandLineIsWrong)
{
    test_host::write("/usr/torqv/torquenix/bin/hostdb.cache.m1", "old");
    run({"-bogus"});
    EXPECT_TRUE(fs::exists("/usr/torqv/torquenix/bin/hostdb.cache.m1"));
}

// Master server

TEST_F(Driver, TheFirstConfiguredServerIsTheMasterServer)
{
    platform().masterConfig.serverNames = {"other.example", "m1"};
    answer(204, "");
    const ChildRun result = run({"-delete"});
    EXPECT_EQ(result.count("TQClientCURL other.example 1556 1"), 1U);
    EXPECT_THAT(result.logOf(NAME),
                testing::Contains(LogEntry{2, "tqhostdbcmd: MasterServer = other.example\n", NAME}));
}

TEST_F(Driver, ANameOtherThanTheCommandsOwnStandsInTheTextsThatBeginWithTheCommandName)
{
    platform().masterConfigStatus = 13;
    const ChildRun result = command_run::runAs("/opt/renamed", {});
    EXPECT_THAT(result.logOf("getMasterServerNameFromConfig"),
                ElementsAre(LogEntry{16, "renamed: Unable to read master config.return value is: 13\n",
                                     "getMasterServerNameFromConfig"}));
    platform().masterConfigStatus = 0;
    const ChildRun found = command_run::runAs("/opt/renamed", {});
    EXPECT_THAT(found.logOf("renamed"), testing::Contains(LogEntry{2, MASTER, "renamed"}))
        << "this text holds the fixed name";
}

TEST_F(Driver, AnUpdateAsksForNoMasterServer)
{
    platform().masterConfig.serverNames.reset();
    const ChildRun result = run({"-update"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.logOf("getMasterServerNameFromConfig").size(), 0U);
}

// Operations

TEST_F(Driver, AnUpdateIsLoggedFromItsBeginningToItsEnd)
{
    const ChildRun result = run({"-update"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.returned);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.logOf(NAME),
                ElementsAre(LogEntry{2, INITIATING, NAME}, LogEntry{2, argumentsLine("-update "), NAME},
                            LogEntry{2, "Performing UPDATE HOST operation...", NAME},
                            LogEntry{2, "Host update completed successfully", NAME}));
    EXPECT_EQ(result.count("PUT"), 2U);
}

TEST_F(Driver, ForceAndDaemonReachTheUpdate)
{
    run({"-update"});
    EXPECT_EQ(run({"-update"}).count("PUT"), 0U);
    EXPECT_EQ(run({"-update", "-force"}).count("PUT"), 2U);
    EXPECT_EQ(run({"-update", "-daemon"}).count("lock /usr/torqv/var/hostdbupdate.lock.daemon 10 5"), 1U);
}

TEST_F(Driver, LocalInfoPrintsTheRecordAndContactsNoServer)
{
    const std::string text = localRecordText();
    const ChildRun result = run({"-localinfo"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, text + "\n");
    EXPECT_EQ(result.count("TQClientCURL"), 0U);
    EXPECT_THAT(result.logOf(NAME),
                ElementsAre(LogEntry{2, INITIATING, NAME}, LogEntry{2, argumentsLine("-localinfo "), NAME},
                            LogEntry{2, MASTER, NAME}, LogEntry{2, "Getting local host information...", NAME},
                            LogEntry{2, "Retrieved local host information successfully", NAME}));
}

TEST_F(Driver, ARecordThatCannotBeLoadedPrintsNothingAndEndsWithTheLoadersStatus)
{
    platform().hostConfigStatus = 12;
    const ChildRun result = run({"-localinfo"});
    EXPECT_EQ(result.status, 12);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "Requested operation failed with error: 12\n");
    const std::string exitText = "EXIT STATUS 12: " + getECmsg(12);
    EXPECT_THAT(
        result.logOf(NAME),
        ElementsAre(LogEntry{2, INITIATING, NAME}, LogEntry{2, argumentsLine("-localinfo "), NAME},
                    LogEntry{2, MASTER, NAME}, LogEntry{2, "Getting local host information...", NAME},
                    // The driver's buffer is not emptied: the entry begins with the earlier text.
                    LogEntry{16,
                             std::string(MASTER) + "Failed to get local host information with error : 12\n",
                             NAME},
                    LogEntry{2, exitText, NAME}, LogEntry{16, exitText + getECmsgl(12, ""), NAME}));
}

TEST_F(Driver, AReadIsLoggedAndShownOnlyWithDisplay)
{
    const std::string host = R"({"uuid":"7","hostName":"h9"})";
    answer(200, R"({"hosts":[)" + host + "]}");
    const ChildRun silent = run({"-read", "-hostname", "h9"});
    EXPECT_EQ(silent.status, 0);
    EXPECT_EQ(silent.out, "");
    EXPECT_THAT(silent.logOf(NAME),
                ElementsAre(LogEntry{2, INITIATING, NAME},
                            LogEntry{2, argumentsLine("-read -hostname h9 "), NAME},
                            LogEntry{2, MASTER, NAME}, LogEntry{2, "Performing READ HOST operation...", NAME},
                            LogEntry{2, "Host read completed successfully", NAME}));
    const ChildRun shown = run({"-read", "-hostname", "h9", "-display"});
    EXPECT_EQ(shown.out, recordText(host) + "\n");
}

TEST_F(Driver, OptionNamesAreReadWithoutRegardToCase)
{
    answer(200, R"({"hosts":[{}]})");
    const ChildRun result = run({"-READ", "-HostName", "h1"});
    EXPECT_EQ(result.count("GET torquenix/config/hosts?filter=hostName%20eq%20'h1'"), 1U);
}

TEST_F(Driver, TheHostIdWinsOverTheHostName)
{
    answer(200, "{}");
    const ChildRun result = run({"-read", "-hostname", "a", "-hostid", "7"});
    EXPECT_EQ(result.count("GET "), 1U);
    EXPECT_EQ(result.count("GET torquenix/config/hosts/7"), 1U);
}

TEST_F(Driver, TheLastOperationWins)
{
    answer(204, "");
    const ChildRun result = run({"-read", "-delete"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.count("DELETE"), 1U);
    EXPECT_EQ(result.count("GET"), 0U);
}

TEST_F(Driver, ABareWordBeforeTheOperationIsIgnored)
{
    answer(200, R"({"hosts":[{}]})");
    EXPECT_EQ(run({"word", "-read", "-hostname", "h1"}).status, 0);
}

TEST_F(Driver, ADeletionIsLogged)
{
    answer(204, "");
    const ChildRun result = run({"-delete", "-display"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.logOf(NAME),
                ElementsAre(LogEntry{2, INITIATING, NAME},
                            LogEntry{2, argumentsLine("-delete -display "), NAME}, LogEntry{2, MASTER, NAME},
                            LogEntry{2, "Performing DELETE HOST operation...", NAME},
                            LogEntry{2, "Host deletion completed successfully", NAME}));
}

TEST_F(Driver, AllHostsAreShownAsOneObject)
{
    const std::string first = R"({"uuid":"1","hostName":"a"})";
    const std::string second = R"({"uuid":"2","hostName":"b"})";
    answer(200, R"({"hosts":[)" + first + "," + second + "]}");
    const ChildRun result = run({"-readallhosts", "-display"});
    EXPECT_EQ(result.out, "{\"hosts\":[" + recordText(first) + "\n, " + recordText(second) + "\n]}\n");
    EXPECT_THAT(result.logOf(NAME), ElementsAre(LogEntry{2, INITIATING, NAME},
                                                LogEntry{2, argumentsLine("-readallhosts -display "), NAME},
                                                LogEntry{2, MASTER, NAME},
                                                LogEntry{2, "Performing READ ALL HOSTS operation...", NAME},
                                                LogEntry{2, "Read All Hosts completed successfully", NAME}));
}

TEST_F(Driver, AnEmptyListShowsItsOpeningAndClosingOnly)
{
    answer(200, R"({"hosts":[]})");
    EXPECT_EQ(run({"-readallhosts", "-display"}).out, "{\"hosts\":[]}\n");
}

TEST_F(Driver, AllHostsAreNotShownWithoutDisplay)
{
    answer(200, R"({"hosts":[{}]})");
    EXPECT_EQ(run({"-readallhosts"}).out, "");
}

TEST_F(Driver, AReloadIsLogged)
{
    answer(200, "");
    const ChildRun result = run({"-reloadconfig", "-host"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.count("GET torquenix/config/hosts/reloadconfig"), 1U);
    EXPECT_THAT(result.logOf(NAME),
                ElementsAre(LogEntry{2, INITIATING, NAME},
                            LogEntry{2, argumentsLine("-reloadconfig -host "), NAME},
                            LogEntry{2, MASTER, NAME}, LogEntry{2, "Reloading configuration...", NAME},
                            LogEntry{2, "Reloaded configuration successfully", NAME}));
}

TEST_F(Driver, AReloadWithBothFlagsOrNoneSaysHowItIsUsedAndEndsWith0)
{
    for (const std::vector<std::string>& line :
         {std::vector<std::string>{"-reloadconfig"}, {"-reloadconfig", "-host", "-security"}}) {
        const ChildRun result = run(line);
        EXPECT_EQ(result.status, 0);
        EXPECT_FALSE(result.returned);
        EXPECT_EQ(result.err,
                  "Use '-reloadconfig' options with either the '-security' or the '-host' option.\n"
                  "Requested operation failed with unknown error\n");
        EXPECT_EQ(result.count("GET"), 0U);
    }
}

TEST_F(Driver, AResultThatCannotBePrintedIsLoggedWithItsCause)
{
    const ChildRun result = fakes::runInChild([] {
        if (!std::freopen("/dev/full", "w", stdout))
            return 1;
        std::string program = "tqhostdbcmd";
        std::string option = "-localinfo";
        char* argv[] = {program.data(), option.data(), nullptr};
        return TQCLNTDB::runHostDatabaseCommand(2, argv);
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.log.back(),
              (LogEntry{8, "Unable to write to standard output: No space left on device\n", NAME}));
}

TEST_F(Driver, AResultThatWasLostEarlierIsLoggedWithoutACause)
{
    const ChildRun result = fakes::runInChild([] {
        std::cout.setstate(std::ios::badbit);
        errno = EACCES; // of something else
        std::string program = "tqhostdbcmd";
        std::string option = "-localinfo";
        char* argv[] = {program.data(), option.data(), nullptr};
        return TQCLNTDB::runHostDatabaseCommand(2, argv);
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.log.back(), (LogEntry{8, "Unable to write to standard output\n", NAME}));
}

// Failures

TEST_F(Driver, AWebServiceFailureWithABodyIsLoggedAndWrittenToStandardError)
{
    const std::string body = R"({"errorCode":8600,"errMessage":"x"})";
    answer(404, body);
    const ChildRun result = run({"-read", "-hostname", "h1"});
    EXPECT_EQ(result.status, 252);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, body + "\n");
    const std::string exitText = "EXIT STATUS 8600: " + getECmsg(8600);
    const std::vector<LogEntry> log = result.logOf(NAME);
    ASSERT_EQ(log.size(), 7U);
    EXPECT_EQ(log[4], (LogEntry{2,
                                "HTTP status = 404, HTTP response body = " + body +
                                    ", TQU Error code = 8600, TQU Error Msg = x\n",
                                NAME}));
    EXPECT_EQ(log[5], (LogEntry{2, exitText, NAME}));
    EXPECT_EQ(log[6], (LogEntry{16, exitText + "EXIT STATUS 8600: " + getECmsgl(8600, "") + "\n", NAME}));
}

TEST_F(Driver, AWebServiceFailureWithAnEmptyBodyIsUnknown)
{
    answer(500, "");
    const ChildRun result = run({"-delete"});
    EXPECT_EQ(result.status, 252);
    EXPECT_EQ(result.err, "Unknown webservice exception encountered\n");
    EXPECT_THAT(result.log, testing::Contains(LogEntry{2, "EXIT STATUS 7500: " + getECmsg(7500), NAME}));
    for (const LogEntry& entry : result.log)
        EXPECT_THAT(entry.text, testing::Not(HasSubstr("HTTP status")));
}

TEST_F(Driver, AnErrorCodeIsPrintedUnsigned)
{
    answer(500, R"({"errorCode":-1})");
    const ChildRun result = run({"-delete"});
    EXPECT_EQ(result.status, 252);
    EXPECT_THAT(result.log,
                testing::Contains(LogEntry{2,
                                           "HTTP status = 500, HTTP response body = {\"errorCode\":-1}, TQU "
                                           "Error code = 4294967295, TQU Error Msg = Error parsing response "
                                           "body\n",
                                           NAME}));
}

TEST_F(Driver, AFailedDeletionIsNamedWithoutASeparator)
{
    answerNothing(25);
    const ChildRun result = run({"-delete"});
    EXPECT_EQ(result.status, 25);
    EXPECT_EQ(result.err, "Requested operation failed with error: 25\n");
    EXPECT_THAT(
        result.logOf("deleteHostFromDB"),
        ElementsAre(LogEntry{16, "tqhostdbcmdHost deletion failed with error : 25\n", "deleteHostFromDB"}));
}

TEST_F(Driver, AnExceptionOfTheLoadEndsLocalInfoWith0)
{
    fakes::sysinfo().onCall = [] { throw std::out_of_range("no value"); };
    const ChildRun result = run({"-localinfo"});
    EXPECT_EQ(result.status, 0);
    EXPECT_FALSE(result.returned);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "Requested operation failed with unknown error\n");
    EXPECT_EQ(result.log.back(), (LogEntry{2, "EXIT STATUS 0: " + getECmsg(0), NAME}));
}

TEST_F(Driver, AnExceptionOutsideTheOperationHasTheSameOutcome)
{
    const ChildRun result = fakes::runInChild([] {
        std::string program = "tqhostdbcmd";
        char* argv[] = {program.data(), nullptr};
        // Nothing can be allocated for a vector of so many arguments.
        return TQCLNTDB::runHostDatabaseCommand(-1, argv);
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_FALSE(result.returned);
    EXPECT_EQ(result.err, "Requested operation failed with unknown error\n");
}

} // namespace
