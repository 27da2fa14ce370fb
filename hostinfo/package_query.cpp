#include "hostinfo/package_query.h"

#include "platform/debuglog.h"
#include "platform/status.h"
#include "utils/tqclntdb_utils_real.h"

namespace TQCLNTDB {

int capture(const char* context, const std::string& command, const FailureText& failure, std::string& output)
{
    int exitStatus = 0;
    if (const int status = T::run_command_and_capture_output(command.c_str(), output, &exitStatus);
        status != 0) {
        // Two blanks: support staff search for the text as it is.
        LogLine(LogLevel::error, context)
            << "The command failed to execute.  run_command_and_capture_output() returned [" << status << "]";
        return status;
    }
    if (exitStatus == 0)
        return EC_success;
    LogLine(LogLevel::error, context) << failure.before << exitStatus << failure.after;
    return EC_package_query_failed;
}

int captureList(const char* context, const std::string& command, std::string& output)
{
    LogLine(LogLevel::progress, context)
        << "Executing command to get list of Torquenix installed packages: [" << command << "]";
    return capture(context, command, {"The command to list the packages failed with status [", "]."}, output);
}

} // namespace TQCLNTDB
