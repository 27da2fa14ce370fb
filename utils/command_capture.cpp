#include "utils/tqclntdb_utils.h"

#include "platform/debuglog.h"
#include "platform/process.h"
#include "platform/status.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sys/wait.h>
#include <thread>

namespace tqclntdb_utils {
namespace {

constexpr const char* CONTEXT = "tqclntdb_utils::run_command_and_capture_output";

/// Bytes taken from the pipe at a time, with room for a terminator.
constexpr std::size_t CHUNK_SIZE = 128;

struct ClosePipe {
    void operator()(FILE* pipe) const { pclose(pipe); }
};

/// The reading end of a command's pipe. Closing it waits for the command, so it has to happen under the
/// guard.
using CommandPipe = std::unique_ptr<FILE, ClosePipe>;

/// Appends what a pipe delivers until its end. False when reading stopped before that: a read error, more
/// output than the limit, or a command that was ended at the time limit.
bool readToEnd(FILE* pipe, std::string& output, tq::ExternalCommandGuard& guard)
{
    std::array<char, CHUNK_SIZE> buffer;
    while (const std::size_t length = std::fread(buffer.data(), 1, buffer.size() - 1, pipe)) {
        if (!guard.accept(length))
            return false;
        output.append(buffer.data(), length);
    }
    return std::feof(pipe) != 0 && !guard.cutShort();
}

int outputLost(int* status)
{
    LogLine(LogLevel::error, CONTEXT) << "Unable to successfully finish command execution.";
    *status = -1;
    return EC_command_output_lost;
}

/// One run of the command: 0, 7247 or 7250.
int runOnce(const char* command, std::string& output, int* status)
{
    tq::ExternalCommandGuard guard(command, tq::ExternalCommandGuard::Output::pipe, CONTEXT);
    // Close-on-exec: a command that runs at the same time must not hold this pipe open.
    CommandPipe pipe(popen(command, "re"));
    if (!pipe) {
        *status = -1;
        return EC_command_not_started;
    }
    if (!readToEnd(pipe.get(), output, guard))
        return outputLost(status);
    LogLine(LogLevel::progress, CONTEXT) << "Command execution finished.";
    const int waitStatus = pclose(pipe.release());
    if (guard.cutShort()) // it closed its output and then hung
        return outputLost(status);
    if (waitStatus != -1)
        *status = WEXITSTATUS(waitStatus);
    return EC_success;
}

} // namespace

int run_command_and_capture_output(const char* command, std::string& output, int* status, int retries,
                                   int waitMs)
{
    if (!command || !status)
        return EC_invalid_argument;
    output.clear();
    if (std::strlen(command) > MAX_COMMAND_LENGTH) {
        LogLine(LogLevel::error, CONTEXT)
            << "Command line exceeds maximum allowed length of [" << MAX_COMMAND_LENGTH << "] characters.";
        return EC_command_too_long;
    }
    if (retries < 0)
        return EC_success;
    const std::chrono::milliseconds step(waitMs);
    std::chrono::milliseconds wait = step;
    for (int attempt = 0;; ++attempt) {
        if (const int result = runOnce(command, output, status); result != EC_success)
            return result;
        // A command that still fails after its last retry is the caller's to judge, by the status alone.
        if (*status == 0 || attempt >= retries)
            return EC_success;
        LogLine(LogLevel::progress, CONTEXT) << "Command [" << command << "] failed. Retrying...";
        std::this_thread::sleep_for(wait);
        wait += step;
    }
}

} // namespace tqclntdb_utils
