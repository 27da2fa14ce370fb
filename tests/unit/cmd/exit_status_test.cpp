/// The table of exit statuses, row by row.
#include "tests/unit/cmd/command_run.h"

#include "platform/status.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using command_run::answer;
using command_run::answerNothing;
using command_run::run;
using fakes::ChildRun;
using fakes::LogEntry;
using testing::ElementsAre;

constexpr const char* NAME = "tqhostdbcmd";

class ExitStatus : public testing::Test {
protected:
    void SetUp() override { command_run::reset(); }

    static fakes::Platform& platform() { return fakes::platform(); }

    static bool loggedExitStatus(const ChildRun& result, int status)
    {
        const LogEntry expected{2, "EXIT STATUS " + std::to_string(status) + ": " + getECmsg(status), NAME};
        return std::find(result.log.begin(), result.log.end(), expected) != result.log.end();
    }
};

TEST_F(ExitStatus, OperationDoneIs0WithoutAnExitStatusEntry)
{
    answer(204, "");
    const ChildRun result = run({"-delete"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.returned);
    for (const LogEntry& entry : result.log)
        EXPECT_THAT(entry.text, testing::Not(testing::StartsWith("EXIT STATUS")));
}

TEST_F(ExitStatus, NoOperationIs0AfterTheConfigurationWasRead)
{
    for (const std::vector<std::string>& line : {std::vector<std::string>{}, {"-display"}}) {
        const ChildRun result = run(line);
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.returned);
        EXPECT_EQ(result.count("TQ_read_master_config"), 1U);
        EXPECT_EQ(result.count("TQClientCURL"), 0U);
    }
}

TEST_F(ExitStatus, NoProgramNameIs36)
{
    for (const char* program : {"", "/", "/usr/bin/"}) {
        const ChildRun result = command_run::runAs(program, {"-bogus"});
        EXPECT_EQ(result.status, 36) << program;
        ASSERT_EQ(result.log.size(), 2U) << program;
        EXPECT_EQ(result.log[0], (LogEntry{2, "EXIT STATUS 36: " + getECmsg(36), ""})) << "no context yet";
    }
    const ChildRun none = fakes::runInChild([] {
        char* argv[] = {nullptr};
        return TQCLNTDB::runHostDatabaseCommand(0, argv);
    });
    EXPECT_EQ(none.status, 36);
}

TEST_F(ExitStatus, AnAdministratorsDebugLogThatCannotBeOpenedIs12)
{
    fs::create_directories("/usr/torqv/torquenix/logs/admin");
    platform().debugLogDescriptor = -1;
    platform().debugLogError = ELOOP;
    const ChildRun result = run({"-localinfo"});
    EXPECT_EQ(result.status, 12);
    EXPECT_EQ(result.calls.at(1), "is_user_admin 2");
    EXPECT_EQ(result.count("TQ_read_master_config"), 0U);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "tqhostdbcmd: cannot open the debug log in /usr/torqv/torquenix/logs/admin: "
                          "it is a symbolic link\n");
}

TEST_F(ExitStatus, AnUnknownOptionIs20)
{
    const ChildRun result = run({"-read", "-bogus"});
    EXPECT_EQ(result.status, 20);
    EXPECT_EQ(result.out, "unknown option\n");
    EXPECT_EQ(result.logOf(NAME).at(2), (LogEntry{16, "tqhostdbcmd: unknown option '-bogus'.\n", NAME}));
    EXPECT_EQ(result.count("TQ_read_master_config"), 0U);
}

TEST_F(ExitStatus, AMissingValueIs0AfterUnknownOption)
{
    for (const std::vector<std::string>& line : {std::vector<std::string>{"-read", "-hostname"},
                                                 {"-read", "-hostid"},
                                                 {"-read", "-hostname", "-display"}}) {
        const ChildRun result = run(line);
        EXPECT_EQ(result.status, 0);
        EXPECT_FALSE(result.returned);
        EXPECT_EQ(result.out, "unknown option\n");
        EXPECT_TRUE(loggedExitStatus(result, 0));
        EXPECT_EQ(result.count("TQ_read_master_config"), 0U);
    }
}

TEST_F(ExitStatus, NoMasterServerIs111ForEveryOperationButUpdate)
{
    const char* const options[] = {"-display", "-localinfo",    "-read",
                                   "-delete",  "-readallhosts", "-reloadconfig"};
    platform().masterConfig.serverNames.reset();
    for (const char* option : options) {
        const ChildRun result = run({option});
        EXPECT_EQ(result.status, 111) << option;
        EXPECT_TRUE(loggedExitStatus(result, 111)) << option;
        EXPECT_EQ(result.count("TQClientCURL"), 0U) << option;
    }
}

TEST_F(ExitStatus, NoMasterServerHasItsReasonInTheLog)
{
    const std::pair<std::function<void()>, std::string> reasons[] = {
        {[] { platform().masterConfigStatus = 12; },
         "tqhostdbcmd: Unable to read master config.return value is: 12\n"},
        {[] { platform().masterConfig.serverNames.reset(); }, "tqhostdbcmd: No master server record found\n"},
        {[] { platform().masterConfig.serverNames = std::vector<std::string>(); },
         "tqhostdbcmd: No master server name found\n"},
        {[] {
             platform().masterConfig.serverNames = {"", "m2"};
         },
         "tqhostdbcmd: No master server name found\n"},
    };
    for (const auto& [arrange, text] : reasons) {
        command_run::reset();
        arrange();
        const ChildRun result = run({});
        EXPECT_EQ(result.status, 111) << text;
        EXPECT_THAT(result.logOf("getMasterServerNameFromConfig"),
                    ElementsAre(LogEntry{16, text, "getMasterServerNameFromConfig"}));
    }
}

TEST_F(ExitStatus, AStatusOfAnOperationUpTo255IsThatStatus)
{
    for (const int status : {1, 5, 25, 255}) {
        command_run::reset();
        answerNothing(status);
        const ChildRun result = run({"-delete"});
        EXPECT_EQ(result.status, status);
        EXPECT_TRUE(loggedExitStatus(result, status));
        EXPECT_EQ(result.err, "Requested operation failed with error: " + std::to_string(status) + "\n");
    }
}

TEST_F(ExitStatus, AStatusOfAnOperationAbove255OrBelow0Is252)
{
    for (const int status : {256, 7500, 7621, -1, -7}) {
        command_run::reset();
        answerNothing(status);
        const ChildRun result = run({"-delete"});
        EXPECT_EQ(result.status, 252) << status;
        EXPECT_TRUE(loggedExitStatus(result, status)) << status;
    }
}

TEST_F(ExitStatus, SystemFactsThatCannotBeHadAre252)
{
    fakes::sysinfo().status = -1;
    EXPECT_EQ(run({"-localinfo"}).status, 252);
}

TEST_F(ExitStatus, AWebServiceFailureWithAnEmptyBodyIs252)
{
    answer(503, "");
    const ChildRun result = run({"-readallhosts"});
    EXPECT_EQ(result.status, 252);
    EXPECT_TRUE(loggedExitStatus(result, 7500));
}

TEST_F(ExitStatus, AWebServiceFailureIsItsErrorCode)
{
    const std::pair<const char*, int> bodies[] = {
        {R"({"errorCode":25})", 25},         {R"({"errorCode":255})", 255},  {R"({"errorCode":0})", 0},
        {R"({"errorCode":256})", 252},       {R"({"errorCode":8600})", 252}, {R"({"errorCode":-1})", 252},
        {R"({"errMessage":"x"})", 252},      {R"({"errorCode":"25"})", 252}, {"<html>", 252},
        {R"({"errorCode":4294967321})", 25},
    };
    for (const auto& [body, status] : bodies) {
        command_run::reset();
        answer(500, body);
        const ChildRun result = run({"-readallhosts"});
        EXPECT_EQ(result.status, status) << body;
        EXPECT_FALSE(result.returned) << body;
        EXPECT_EQ(result.err, std::string(body) + "\n");
    }
}

TEST_F(ExitStatus, AnyOtherExceptionIs0)
{
    const std::function<void()> throwers[] = {
        [] { throw std::runtime_error("x"); },
        [] { throw std::bad_alloc(); },
        [] { throw "text"; },
        [] { throw EC_cannot_connect; },
    };
    for (const auto& thrower : throwers) {
        command_run::reset();
        platform().onRequest = [&](const fakes::HttpRequest&) { thrower(); };
        const ChildRun result = run({"-delete"});
        EXPECT_EQ(result.status, 0);
        EXPECT_FALSE(result.returned);
        EXPECT_EQ(result.err, "Requested operation failed with unknown error\n");
        EXPECT_TRUE(loggedExitStatus(result, 0));
    }
}

} // namespace
