#include "sysinfo/system_cmd.h"

#include "platform/paths.h"
#include "platform/portable.h"
#include "platform/process.h"
#include "platform/status.h"
#include "sysinfo/log_message.h"

#include <algorithm>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace SYSINFO_NAMESPACE {
namespace {

constexpr const char* EXECUTE = "SystemCmd::Execute";
constexpr int LINE_SIZE = 2048;
constexpr int SHELL_LINE_SIZE = 2048;

/// A path for a temporary file, which the shell's redirection will make.
std::string temporaryPath()
{
    const tq::MallocText path(V_tempnam(TQ_PRODUCT_DIR, "SystemCmd"));
    // Without a name the shell line does not parse, so that the command fails like any other.
    return path ? path.get() : "";
}

} // namespace

SystemCmd::SystemCmd(const char* program, const char* arguments, bool forceCLocale)
    : plainCommand_(std::string(program) + " " + arguments), stdOutPath_(temporaryPath()),
      stdErrPath_(temporaryPath())
{
    char line[SHELL_LINE_SIZE];
    V_snprintf(line, sizeof line, "%s%s %s </dev/null >%s 2>%s", forceCLocale ? "LC_ALL=C " : "", program,
               arguments, stdOutPath_.c_str(), stdErrPath_.c_str());
    redirectedCommand_ = line;
}

SystemCmd::~SystemCmd()
{
    stdOut_.reset();
    unlink(stdOutPath_.c_str());
    stdErr_.reset();
    unlink(stdErrPath_.c_str());
}

int SystemCmd::Execute(std::list<std::string>* errorLines)
{
    logMessage(LogLevel::progress, EXECUTE, "Executing cmd (%s)", plainCommand_.c_str());
    logMessage(LogLevel::progress, EXECUTE, "Executing redirected cmd (%s)", redirectedCommand_.c_str());
    {
        tq::ExternalCommandGuard guard(plainCommand_.c_str(), tq::ExternalCommandGuard::Output::file,
                                       EXECUTE);
        status_ = guard.ended(std::system(redirectedCommand_.c_str()));
    }
    logMessage(LogLevel::progress, EXECUTE, "Command status: %d", status_);
    if (status_ == 0)
        return EC_success;
    if (status_ == -1)
        return EC_unlink_failed;

    status_ = WEXITSTATUS(status_);
    if (!errorLines)
        return EC_success;
    errorLines->push_back(plainCommand_);
    char line[LINE_SIZE] = "";
    while (GetStdErrLine(line, sizeof line))
        errorLines->emplace_back(line);
    return EC_success;
}

char* SystemCmd::readLine(FileHandle& stream, const std::string& path, char* buffer, int size)
{
    if (!stream)
        stream.reset(std::fopen(path.c_str(), "re"));
    return stream ? std::fgets(buffer, size, stream.get()) : nullptr;
}

char* SystemCmd::GetStdOutLine(char* buffer, int size)
{
    return readLine(stdOut_, stdOutPath_, buffer, size);
}

char* SystemCmd::GetStdErrLine(char* buffer, int size)
{
    char* const line = readLine(stdErr_, stdErrPath_, buffer, size);
    if (!stdErr_)
        return nullptr;
    // Also when nothing was read: what an earlier read left in the buffer then has no line end either.
    if (size >= 1) {
        char* const end = buffer + size;
        constexpr char LINE_ENDS[] = {'\r', '\n'};
        if (char* const cut = std::find_first_of(buffer, end, std::begin(LINE_ENDS), std::end(LINE_ENDS));
            cut != end)
            *cut = '\0';
    }
    return line;
}

} // namespace SYSINFO_NAMESPACE
