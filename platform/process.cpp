#include "platform/process.h"

#include "platform/file_io.h"
#include "platform/running_command.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <linux/close_range.h>
#include <string_view>
#include <sys/prctl.h>
#include <unistd.h>

namespace tq {

namespace {

constexpr const char* FIXED_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

/// Without them the next file that is opened would be taken for standard output or error. Where there is no
/// /dev/null, "/" holds the place: writing there fails.
void openStandardDescriptors()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) != -1 || errno != EBADF)
            continue;
        if (open("/dev/null", O_RDWR) == -1) // NOLINT(android-cloexec-open): commands are to have it
            open("/", O_RDONLY | O_DIRECTORY);
    }
}

/// Whatever else was inherited stays open here and ends at the first exec.
void keepDescriptorsFromCommands()
{
    if (close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC) == 0)
        return;
    // An older kernel, or a sandbox that refuses a call it does not know.
    const DirectoryHandle names(opendir("/proc/self/fd"));
    while (const dirent* entry = names ? readdir(names.get()) : nullptr) {
        const auto descriptor = static_cast<int>(std::strtol(entry->d_name, nullptr, 10)); // 0 for "."
        if (descriptor > STDERR_FILENO)
            fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    }
}

void doNothing(int /*signal*/) {}

void endWithCommand(int signal)
{
    endRunningCommand();
    std::signal(signal, SIG_DFL);
    raise(signal); // arrives when this handler returns
}

void handle(int signal, void (*handler)(int))
{
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigfillset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

bool isIgnored(int signal)
{
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

/// Handlers never reach a command, but an ignored signal does, and SIGCHLD ignored makes system() fail. So
/// nothing stays ignored, except what nohup and a shell's background jobs ignore on purpose.
void prepareSignals()
{
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        const bool onPurpose = signal == SIGHUP || signal == SIGINT || signal == SIGQUIT;
        if (isIgnored(signal) && !onPurpose)
            handle(signal, SIG_DFL);
    }
    for (const int signal : {SIGPIPE, SIGXFSZ})
        handle(signal, doNothing);
    for (const int signal : {SIGTERM, SIGHUP, SIGINT}) {
        if (!isIgnored(signal))
            handle(signal, endWithCommand);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

bool isKept(std::string_view variable)
{
    constexpr std::array<std::string_view, 4> KEPT{"LANG=", "LANGUAGE=", "LC_", "TZ="};
    return std::any_of(KEPT.begin(), KEPT.end(), [variable](std::string_view beginning) {
        return variable.substr(0, beginning.size()) == beginning;
    });
}

void reduceEnvironment()
{
    if (environ) {
        char** end = environ;
        for (char** variable = environ; *variable; ++variable) {
            if (isKept(*variable))
                *end++ = *variable;
        }
        *end = nullptr;
    }
    setenv("PATH", FIXED_PATH, 1);
}

} // namespace

void prepareProcess()
{
    prepareSignals(); // needs no descriptor, and a SIGPIPE may be on its way
    openStandardDescriptors();
    keepDescriptorsFromCommands();
    // A core file would hold the access token. Last of what reads /proc/self, which is then root's alone.
    prctl(PR_SET_DUMPABLE, 0);
    reduceEnvironment();
    // A "*" in a fixed command text would be expanded in the caller's directory.
    [[maybe_unused]] const int result = chdir("/"); // without "/" no command would work either
}

} // namespace tq
