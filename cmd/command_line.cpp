#include "cmd/command_line.h"

#include "cmd/process_values.h"
#include "platform/debuglog.h"
#include "platform/status.h"

#include <ace/Arg_Shifter.h>
#include <new>
#include <vector>

namespace TQCLNTDB {
namespace {

/// An option sets one of the three: the operation, a value (from the next argument), or a flag.
struct Option {
    const char* name;
    Operation operation;
    std::string CommandLine::*value;
    bool CommandLine::*flag;
};

constexpr Option operationOption(const char* name, Operation operation)
{
    return {name, operation, nullptr, nullptr};
}

constexpr Option valueOption(const char* name, std::string CommandLine::*value)
{
    return {name, Operation::none, value, nullptr};
}

constexpr Option flagOption(const char* name, bool CommandLine::*flag)
{
    return {name, Operation::none, nullptr, flag};
}

constexpr Option OPTIONS[] = {
    operationOption("-localinfo", Operation::localInfo),
    operationOption("-update", Operation::update),
    operationOption("-read", Operation::read),
    valueOption("-hostname", &CommandLine::hostName),
    valueOption("-hostid", &CommandLine::hostId),
    operationOption("-delete", Operation::deleteHost),
    operationOption("-readallhosts", Operation::readAllHosts),
    flagOption("-display", &CommandLine::display),
    flagOption("-force", &CommandLine::force),
    operationOption("-reloadconfig", Operation::reloadConfiguration),
    flagOption("-security", &CommandLine::security),
    flagOption("-host", &CommandLine::host),
    flagOption("-daemon", &CommandLine::daemon),
};

const Option* findOption(ACE_Arg_Shifter& arguments)
{
    for (const Option& option : OPTIONS) {
        if (arguments.cur_arg_strncasecmp(option.name) == 0) // 0 only for the whole argument
            return &option;
    }
    return nullptr;
}

void reportUnknownOption(const char* argument, CommandLine& line)
{
    LogLine(LogLevel::error, progname) << CmdName << ": unknown option '" << argument << "'.\n";
    line.error = true;
    line.errorStatus = EC_invalid_argument;
}

/// Takes the next argument as the value. The error status deliberately stays when there is none: such a line
/// ends with 0, which callers of the command rely on.
void takeValue(ACE_Arg_Shifter& arguments, std::string& value, CommandLine& line)
{
    if (arguments.is_parameter_next())
        value = arguments.get_current();
    else
        line.error = true;
    if (arguments.is_anything_left())
        arguments.consume_arg();
}

void takeOption(ACE_Arg_Shifter& arguments, CommandLine& line)
{
    const Option* option = findOption(arguments);
    if (!option)
        reportUnknownOption(arguments.get_current(), line);
    arguments.consume_arg();
    if (!option)
        return;
    if (option->value)
        takeValue(arguments, line.*option->value, line);
    else if (option->flag)
        line.*option->flag = true;
    else
        line.operation = option->operation;
}

} // namespace

CommandLine parseCommandLine(int argc, const char* const* argv)
{
    // The shifter reorders what it walks and counts down what it is given, so it gets copies.
    std::vector<const char*> vector(argv, argv + argc);
    ACE_Arg_Shifter arguments(argc, vector.data());
    if (arguments.is_anything_left() == 0) // not even the program's name: it had no memory to shift in
        throw std::bad_alloc();

    CommandLine line;
    arguments.consume_arg();
    while (arguments.is_anything_left()) {
        if (arguments.is_option_next())
            takeOption(arguments, line);
        else
            arguments.consume_arg();
    }
    return line;
}

} // namespace TQCLNTDB
