#include "cmd/command_line.h"

#include "cmd/process_values.h"
#include "tests/fakes/platform/fake_platform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using fakes::LogEntry;
using testing::ElementsAre;
using testing::IsEmpty;
using TQCLNTDB::CommandLine;
using TQCLNTDB::Operation;

CommandLine parse(std::vector<const char*> arguments)
{
    fakes::reset();
    TQCLNTDB::progname = "tqhostdbcmd";
    TQCLNTDB::CmdName = "tqhostdbcmd";
    arguments.insert(arguments.begin(), "/usr/bin/tqhostdbcmd");
    return TQCLNTDB::parseCommandLine(static_cast<int>(arguments.size()), arguments.data());
}

TEST(CommandLine, WithoutArgumentsNothingIsAsked)
{
    const CommandLine line = parse({});
    EXPECT_EQ(line.operation, Operation::none);
    EXPECT_EQ(line.hostName, "");
    EXPECT_EQ(line.hostId, "");
    EXPECT_FALSE(line.display || line.force || line.security || line.host || line.daemon);
    EXPECT_FALSE(line.error);
    EXPECT_EQ(line.errorStatus, 0);
}

TEST(CommandLine, EachOperationOptionChoosesItsOperation)
{
    const std::pair<const char*, Operation> options[] = {
        {"-localinfo", Operation::localInfo},
        {"-update", Operation::update},
        {"-read", Operation::read},
        {"-delete", Operation::deleteHost},
        {"-readallhosts", Operation::readAllHosts},
        {"-reloadconfig", Operation::reloadConfiguration},
    };
    for (const auto& [option, operation] : options) {
        const CommandLine line = parse({option});
        EXPECT_EQ(line.operation, operation) << option;
        EXPECT_FALSE(line.error) << option;
    }
}

TEST(CommandLine, EachFlagOptionSetsItsFlagOnly)
{
    const std::pair<const char*, bool CommandLine::*> options[] = {
        {"-display", &CommandLine::display},   {"-force", &CommandLine::force},
        {"-security", &CommandLine::security}, {"-host", &CommandLine::host},
        {"-daemon", &CommandLine::daemon},
    };
    for (const auto& [option, flag] : options) {
        const CommandLine line = parse({option});
        EXPECT_TRUE(line.*flag) << option;
        EXPECT_EQ(line.display + line.force + line.security + line.host + line.daemon, 1) << option;
        EXPECT_EQ(line.operation, Operation::none) << option;
        EXPECT_FALSE(line.error) << option;
    }
}

TEST(CommandLine, ValueOptionsTakeTheNextArgument)
{
    const CommandLine line = parse({"-hostname", "h1", "-hostid", "7"});
    EXPECT_EQ(line.hostName, "h1");
    EXPECT_EQ(line.hostId, "7");
    EXPECT_FALSE(line.error);
}

TEST(CommandLine, AnEmptyArgumentIsAValueAndAWord)
{
    const CommandLine line = parse({"", "-hostname", "", "-read"});
    EXPECT_EQ(line.hostName, "");
    EXPECT_EQ(line.operation, Operation::read);
    EXPECT_FALSE(line.error);
}

TEST(CommandLine, TheLastValueOfAnOptionHolds)
{
    EXPECT_EQ(parse({"-hostname", "a", "-hostname", "b"}).hostName, "b");
}

TEST(CommandLine, OptionNamesAreCaseInsensitive)
{
    const CommandLine line = parse({"-READ", "-HostName", "h1"});
    EXPECT_EQ(line.operation, Operation::read);
    EXPECT_EQ(line.hostName, "h1");
    EXPECT_EQ(parse({"-UPDATE"}).operation, Operation::update);
}

TEST(CommandLine, OptionNamesMatchWholeOnly)
{
    for (const char* argument : {"-upd", "-updateX", "-hostnameX", "-hostname=h1", "-hos", "-readall",
                                 "-read ", "-", "--read", "-h"}) {
        const CommandLine line = parse({argument});
        EXPECT_TRUE(line.error) << argument;
        EXPECT_EQ(line.errorStatus, 20) << argument;
        EXPECT_EQ(line.operation, Operation::none) << argument;
        EXPECT_THAT(fakes::platform().log,
                    ElementsAre(LogEntry{16, std::string("tqhostdbcmd: unknown option '") + argument + "'.\n",
                                         "tqhostdbcmd"}));
    }
}

TEST(CommandLine, HostMatchesNeitherHostnameNorHostid)
{
    const CommandLine line = parse({"-host", "h1"});
    EXPECT_TRUE(line.host);
    EXPECT_EQ(line.hostName, "");
    EXPECT_EQ(line.hostId, "");
}

TEST(CommandLine, ABareWordIsIgnoredSilently)
{
    const CommandLine line = parse({"word", "-read", "another", "update"});
    EXPECT_EQ(line.operation, Operation::read);
    EXPECT_FALSE(line.error);
    EXPECT_THAT(fakes::platform().log, IsEmpty());
}

TEST(CommandLine, TheLastOperationWins)
{
    EXPECT_EQ(parse({"-read", "-delete"}).operation, Operation::deleteHost);
    EXPECT_EQ(parse({"-delete", "-read"}).operation, Operation::read);
}

TEST(CommandLine, EveryUnknownOptionIsLogged)
{
    const CommandLine line = parse({"-bogus", "-read", "-worse"});
    EXPECT_EQ(line.operation, Operation::read) << "parsing goes on";
    EXPECT_EQ(line.errorStatus, 20);
    EXPECT_THAT(fakes::platform().log,
                ElementsAre(LogEntry{16, "tqhostdbcmd: unknown option '-bogus'.\n", "tqhostdbcmd"},
                            LogEntry{16, "tqhostdbcmd: unknown option '-worse'.\n", "tqhostdbcmd"}));
}

TEST(CommandLine, AMissingValueIsAnErrorOfStatus0WithoutAnEntry)
{
    for (const char* option : {"-hostname", "-hostid"}) {
        const CommandLine line = parse({"-read", option});
        EXPECT_TRUE(line.error) << option;
        EXPECT_EQ(line.errorStatus, 0) << option;
        EXPECT_THAT(fakes::platform().log, IsEmpty());
    }
}

TEST(CommandLine, WhatFollowsAMissingValueIsNeitherAValueNorAFlag)
{
    const CommandLine line = parse({"-read", "-hostname", "-display"});
    EXPECT_TRUE(line.error);
    EXPECT_EQ(line.errorStatus, 0);
    EXPECT_FALSE(line.display);
    EXPECT_EQ(line.hostName, "");

    const CommandLine unknown = parse({"-hostid", "-bogus", "-force"});
    EXPECT_EQ(unknown.errorStatus, 0) << "it is not examined";
    EXPECT_TRUE(unknown.force) << "what comes after it is";
    EXPECT_THAT(fakes::platform().log, IsEmpty());
}

TEST(CommandLine, AnUnknownOptionBesideAMissingValueGives20)
{
    EXPECT_EQ(parse({"-bogus", "-hostname"}).errorStatus, 20);
    EXPECT_EQ(parse({"-hostname", "-display", "-bogus"}).errorStatus, 20);
}

TEST(CommandLine, TheCallersArgumentsStayAsTheyAre)
{
    const char* arguments[] = {"program", "word", "-read", "-hostname", "h1"};
    const std::vector<const char*> before(std::begin(arguments), std::end(arguments));
    TQCLNTDB::parseCommandLine(5, arguments);
    EXPECT_TRUE(std::equal(before.begin(), before.end(), arguments));
}

TEST(CommandLine, VeryLongAndManyArgumentsAreRead)
{
    const std::string longValue(1000000, 'x');
    std::vector<const char*> arguments(20000, "word");
    arguments.push_back("-hostid");
    arguments.push_back(longValue.c_str());
    EXPECT_EQ(parse(arguments).hostId, longValue);
}

} // namespace
