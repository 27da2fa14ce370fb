#include "cmd/cmd_exit.h"

#include "cmd/process_values.h"
#include "platform/debuglog.h"
#include "platform/status.h"

#include <ace/OS_NS_stdlib.h>
#include <exception>
#include <sstream>

namespace TQCLNTDB {
namespace {

constexpr unsigned LARGEST_EXIT_STATUS = 255;

bool fitsExitStatus(int status)
{
    return static_cast<unsigned>(status) <= LARGEST_EXIT_STATUS;
}

void log(LogLevel level, const std::ostringstream& message)
{
    LOGMSG_STR_STREAM(static_cast<int>(level), message, progname);
}

void logExitStatus(int status)
{
    // The stream is deliberately not emptied in between: the error entry repeats the first one.
    std::ostringstream message;
    message << "EXIT STATUS"
            << " " << status << ": " << getECmsg(status);
    log(LogLevel::progress, message);
    if (status == EC_success)
        return;
    if (fitsExitStatus(status))
        message << getECmsgl(status, lc_messages);
    else
        message << "EXIT STATUS " << status << ": " << getECmsgl(status, lc_messages) << '\n';
    log(LogLevel::error, message);
}

} // namespace

void CmdExit(int status)
{
    try {
        logExitStatus(status);
    } catch (const std::exception&) {
        // Memory is short. The exit status still has to be the right one, and nothing is left to log with.
    }
    ACE_OS::exit(fitsExitStatus(status) ? status : EC_exit_beyond_byte);
}

} // namespace TQCLNTDB
