#include "cmd/driver.h"

#include "cmd/cmd_exit.h"
#include "cmd/command_line.h"
#include "cmd/operation.h"
#include "cmd/process_values.h"
#include "hostdb/error_body.h"
#include "hostdb/tqhost_cachehandler.h"
#include "hostdb/web_service_exception.h"
#include "platform/config.h"
#include "platform/debuglog.h"
#include "platform/file_io.h"
#include "platform/paths.h"
#include "platform/portable.h"
#include "platform/release.h"
#include "platform/status.h"
#include "platform/user.h"

#include <cerrno>
#include <clocale>
#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace TQCLNTDB {
namespace {

// Start-up

void readLocaleNames()
{
    V_locale_name(LC_MESSAGES, lc_messages, sizeof lc_messages);
    V_locale_name(LC_CTYPE, lc_ctype, sizeof lc_ctype);
    V_locale_name(LC_TIME, lc_time, sizeof lc_time);
    V_locale_name(LC_COLLATE, lc_collate, sizeof lc_collate);
    V_locale_name(LC_NUMERIC, lc_numeric, sizeof lc_numeric);
}

void takeProgramName(const char* path)
{
    progname = V_basename(path);
    if (!progname)
        CmdExit(EC_invalid_program_name);
    CmdName = progname;
}

/// A missing log directory refuses nobody; a log that cannot be opened in it refuses administrators only.
void openDebugLog()
{
    const std::string directory = std::string(TQ_LOG_DIR) + "/" + TQ_LOG_SUBDIR;
    if (access(directory.c_str(), F_OK) != 0)
        return;
    int flag = 0;
    debugFD = open_debug_log(TQ_LOG_DIR, TQ_LOG_SUBDIR, progname, 0666, &flag);
    const int error = errno;
    if (debugFD < 0 && is_user_admin(2) != 0) {
        // There is no log that could say it.
        std::cerr << CmdName << ": cannot open the debug log in " << directory << ": " << tq::fileFault(error)
                  << '\n';
        CmdExit(EC_file_open_failed);
    }
}

void logInvocation(int argc, const char* const* argv)
{
    LogLine(LogLevel::progress, progname)
        << "INITIATING: " << TQ_RELEASE_NAME << " created: " << TQ_BUILD_CREATED;
    LogLine arguments(LogLevel::progress, progname);
    for (int i = 0; i < argc; ++i)
        arguments << argv[i] << " ";
}

void startUp(int argc, const char* const* argv)
{
    constexpr mode_t OWNER_WRITES_ONLY = 022;
    umask(OWNER_WRITES_ONLY);
    readLocaleNames();
    takeProgramName(argv[0]);
    openDebugLog();
    logInvocation(argc, argv);
}

CommandLine parseOrExit(int argc, const char* const* argv)
{
    CommandLine line = parseCommandLine(argc, argv);
    if (line.error) {
        std::cout << "unknown option\n";
        CmdExit(line.errorStatus);
    }
    return line;
}

// Master server

/// Name of the configured master server; empty, with the reason in the log, when there is none.
std::string getMasterServerNameFromConfig()
{
    constexpr const char* CONTEXT = "getMasterServerNameFromConfig";
    if (const int status = TQ_read_master_config(); status != 0) {
        // No blank stands between the two sentences: the line is searched for as it has always been.
        LogLine(LogLevel::error, CONTEXT) << CmdName << ": Unable to read master config."
                                          << "return value is: " << status << '\n';
        return "";
    }
    const TQMasterConfig* const config = get_master_config_ptr();
    if (!config->serverNames) {
        LogLine(LogLevel::error, CONTEXT) << CmdName << ": No master server record found\n";
        return "";
    }
    if (config->serverNames->empty() || config->serverNames->front().empty()) {
        LogLine(LogLevel::error, CONTEXT) << CmdName << ": No master server name found\n";
        return "";
    }
    return config->serverNames->front();
}

void resolveMasterServer(std::ostringstream& messages)
{
    MasterServer = getMasterServerNameFromConfig();
    if (MasterServer.empty())
        CmdExit(EC_no_master_server);
    messages << "tqhostdbcmd: MasterServer = " << MasterServer << '\n';
    LOGMSG_STR_STREAM(static_cast<int>(LogLevel::progress), messages, progname);
}

// Failures

[[noreturn]] void exitAfter(const WebServiceException& failure)
{
    if (failure.responseBody().empty()) {
        std::cerr << "Unknown webservice exception encountered\n";
        CmdExit(WEB_FAILURE_WITHOUT_CODE);
    }
    const std::int32_t code = failure.getTquErrorCode();
    LogLine(LogLevel::progress, progname)
        << "HTTP status = " << failure.httpStatus() << ", HTTP response body = " << failure.responseBody()
        << ", TQU Error code = " << static_cast<std::uint32_t>(code)
        << ", TQU Error Msg = " << readErrorBody(failure.responseBody()).errMessage << '\n';
    std::cerr << failure.responseBody() << '\n';
    CmdExit(code);
}

[[noreturn]] void exitAfterUnknownException()
{
    std::cerr << "Requested operation failed with unknown error\n";
    CmdExit(EC_success); // on purpose: the value that such an exception carries is not looked at
}

/// Runs the operation; whatever it throws ends the process.
void performGuarded(OperationRun& run)
{
    try {
        performOperation(run);
    } catch (const WebServiceException& failure) {
        exitAfter(failure);
    } catch (int status) {
        std::cerr << "Requested operation failed with error: " << status << '\n';
        CmdExit(status);
    } catch (...) { // an ec_status too: it is no int
        exitAfterUnknownException();
    }
}

/// A result that did not get out would otherwise be lost without a word.
void flushStandardOutput()
{
    errno = 0;
    std::cout.flush();
    const int cause = errno; // 0 when an earlier write has failed already
    if (!std::cout)
        LogLine(LogLevel::warning, progname) << "Unable to write to standard output"
                                             << (cause != 0 ? ": " + tq::errorText(cause) : "") << '\n';
}

} // namespace

int runHostDatabaseCommand(int argc, char** argv)
{
    try {
        startUp(argc, argv);
        const CommandLine line = parseOrExit(argc, argv);
        cleanupOldCacheFile();
        OperationRun run{line, {}, {}, {}};
        if (run.line.operation != Operation::update) // the update finds its master servers itself
            resolveMasterServer(run.messages);
        performGuarded(run);
        flushStandardOutput();
        return EC_success;
    } catch (...) {
        exitAfterUnknownException();
    }
}

} // namespace TQCLNTDB
