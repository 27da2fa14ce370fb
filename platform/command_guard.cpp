#include "platform/debuglog.h"
#include "platform/file_io.h"
#include "platform/process.h"
#include "platform/process_tree.h"
#include "platform/running_command.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace tq {

namespace {

/// Limits of one command; constants of the build.
constexpr int LIMIT_SECONDS = TQ_COMMAND_SECONDS;
constexpr std::size_t LIMIT_BYTES = TQ_COMMAND_OUTPUT_BYTES;

/// After the limit the command's processes are looked for again at this interval, until the call returns.
constexpr long REPEAT_NS = 100'000'000;

/// How long killed processes are waited for at the end.
constexpr int GONE_WITHIN_MS = 1000;

enum Limit : int { LIMIT_NONE, LIMIT_TIME, LIMIT_OUTPUT };

/// The command under the active guard. Signal handlers read it: all else in it holds while `active` does.
struct RunningCommand {
    std::atomic<bool> active{false};
    std::atomic<int> limitMet{LIMIT_NONE};
    ProcessTree processes;
    timer_t timer{};
    bool hasTimer = false;
    struct sigaction savedTimerAction {};
    sigset_t savedMask{};
    int savedSubreaper = 0;
};

static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "a signal handler can use them");

RunningCommand running;

/// Not SIGALRM, which may be a time limit that whoever started this process has set for it.
int timerSignal()
{
    return SIGRTMIN;
}

void onLimit(int /*signal*/)
{
    const int callersErrno = errno;
    if (running.active) {
        if (running.limitMet == LIMIT_NONE)
            running.limitMet = LIMIT_TIME;
        running.processes.killAll();
    }
    errno = callersErrno;
}

void setTimer(time_t seconds, long nanoseconds)
{
    itimerspec times{};
    times.it_value.tv_sec = seconds;
    times.it_value.tv_nsec = nanoseconds;
    times.it_interval.tv_nsec = REPEAT_NS;
    if (running.hasTimer)
        timer_settime(running.timer, 0, &times, nullptr);
}

void armTimer(const char* context)
{
    struct sigaction action {};
    action.sa_handler = onLimit;
    action.sa_flags = SA_RESTART;
    sigaction(timerSignal(), &action, &running.savedTimerAction);
    sigset_t unblocked;
    sigemptyset(&unblocked);
    sigaddset(&unblocked, timerSignal());
    pthread_sigmask(SIG_UNBLOCK, &unblocked, &running.savedMask);
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = timerSignal();
    running.hasTimer = timer_create(CLOCK_MONOTONIC, &event, &running.timer) == 0;
    if (!running.hasTimer) {
        LogLine(LogLevel::warning, context)
            << "external command runs without a time limit: " << errorText(errno);
    }
    setTimer(LIMIT_SECONDS, 0);
}

void disarmTimer()
{
    if (running.hasTimer)
        timer_delete(running.timer);
    sigaction(timerSignal(), &running.savedTimerAction, nullptr);
    pthread_sigmask(SIG_SETMASK, &running.savedMask, nullptr);
}

/// Whether a raw result of system() says that the command was ended by the file-size limit: it was what the
/// shell has turned into, or what the shell says of its child.
bool endedByFileSize(int rawStatus)
{
    return (WIFSIGNALED(rawStatus) && WTERMSIG(rawStatus) == SIGXFSZ) ||
           (WIFEXITED(rawStatus) && WEXITSTATUS(rawStatus) == 128 + SIGXFSZ);
}

} // namespace

void endRunningCommand() noexcept
{
    if (running.active)
        running.processes.killAndReap(GONE_WITHIN_MS);
}

ExternalCommandGuard::ExternalCommandGuard(const char* command, Output output, const char* context)
    : command_(command ? command : ""), context_(context)
{
    if (running.active)
        return;
    running.processes.rememberChildren();
    running.limitMet = LIMIT_NONE;
    prctl(PR_GET_CHILD_SUBREAPER, &running.savedSubreaper);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    armTimer(context);
    if (output == Output::file)
        limitFileSize();
    active_ = true;
    running.active = true;
}

ExternalCommandGuard::~ExternalCommandGuard()
{
    if (!active_)
        return;
    disarmTimer();
    if (cutShort())
        running.processes.killAndReap(GONE_WITHIN_MS);
    else
        running.processes.reap();
    running.active = false;
    prctl(PR_SET_CHILD_SUBREAPER, running.savedSubreaper);
    if (sizeLimited_)
        setrlimit(RLIMIT_FSIZE, &savedFileSize_);

    if (running.limitMet == LIMIT_TIME)
        LogLine(LogLevel::error, context_)
            << "external command ended after " << LIMIT_SECONDS << " s: " << command_;
    else if (running.limitMet == LIMIT_OUTPUT)
        LogLine(LogLevel::error, context_)
            << "output of external command cut at " << LIMIT_BYTES << " bytes: " << command_;
}

/// Sets the soft limit alone, so that it can be put back. A lower one that is there already stays.
void ExternalCommandGuard::limitFileSize()
{
    if (getrlimit(RLIMIT_FSIZE, &savedFileSize_) != 0 || savedFileSize_.rlim_cur <= LIMIT_BYTES)
        return;
    rlimit limit = savedFileSize_;
    limit.rlim_cur = LIMIT_BYTES;
    sizeLimited_ = setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

bool ExternalCommandGuard::accept(std::size_t bytes)
{
    bytes_ += bytes;
    if (!active_ || bytes_ <= LIMIT_BYTES)
        return true;
    if (running.limitMet == LIMIT_NONE) {
        running.limitMet = LIMIT_OUTPUT;
        setTimer(0, REPEAT_NS);
        raise(timerSignal()); // one place ends commands, so nothing interrupts it half-way
    }
    return false;
}

int ExternalCommandGuard::ended(int rawStatus)
{
    if (!active_ || !sizeLimited_ || running.limitMet != LIMIT_NONE || !endedByFileSize(rawStatus))
        return rawStatus;
    running.limitMet = LIMIT_OUTPUT;
    return SIGXFSZ; // the raw status of a death by a signal is its number
}

bool ExternalCommandGuard::cutShort() const
{
    return active_ && running.limitMet != LIMIT_NONE;
}

} // namespace tq
