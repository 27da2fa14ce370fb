/// Start-up of a process of ours, and limits for the external commands that it runs.
#pragma once

#include <cstddef>
#include <string>
#include <sys/resource.h>

namespace tq {

/// Called first in every main(): opens descriptors 0 to 2 on /dev/null where they are closed and keeps every
/// other inherited one from external commands, keeps this process (not its commands) from leaving a core
/// file, which would hold tokens, puts signals into a known state (all unblocked, SIGCHLD default, SIGPIPE
/// and SIGXFSZ caught by a handler that does nothing, SIGTERM, SIGHUP and SIGINT ending the running external
/// command before this process; a SIGHUP, SIGINT or SIGQUIT that was ignored on entry stays so, as nohup and
/// shells ask for), changes to "/", and reduces the environment to LANG, LANGUAGE, LC_*, TZ and a fixed PATH.
/// The file-creation mask is not touched. Neither fails nor prints.
void prepareProcess();

/// Limits around one call of system(), or around one popen() to pclose(): after the time limit the shell and
/// everything it started are killed; output is limited to a size. Build constants: 120 s and 64 MiB.
///
///     ExternalCommandGuard guard(command, ExternalCommandGuard::Output::file, CONTEXT);
///     status = guard.ended(system(command));
///
/// Only one guard is active at a time; one made while another lives does nothing. The scope should hold the
/// call, pclose() included, and nothing else: the file-size limit holds for this process too, its log
/// included. The destructor disarms, puts every setting back, reaps, and writes one level-16 entry when a
/// limit was met.
class ExternalCommandGuard {
public:
    /// How the command's output is taken.
    enum class Output {
        file, ///< redirected into files: cut by the kernel's file-size limit
        pipe, ///< read by the caller, who reports each read through accept()
    };

    /// `command` and `context` appear in the entry. `context` must outlive the guard.
    ExternalCommandGuard(const char* command, Output output, const char* context);
    ExternalCommandGuard(const ExternalCommandGuard&) = delete;
    ExternalCommandGuard& operator=(const ExternalCommandGuard&) = delete;
    ~ExternalCommandGuard();

    /// Counts bytes read from a pipe. False once the limit is passed: the caller stops reading; the command
    /// has then been ended, so that closing the pipe does not wait for it.
    [[nodiscard]] bool accept(std::size_t bytes);

    /// Takes the raw result of system(), which shows whether the output was cut at the limit, and hands it
    /// back. For a command that was cut that is always a death by SIGXFSZ, with exit code 0, also where the
    /// shell has waited for it and says exit code 153: the caller goes on with what was printed, as after the
    /// time limit. Not needed for a pipe.
    int ended(int rawStatus);

    /// Whether either limit ended the command: what it printed is not all that it had to say.
    [[nodiscard]] bool cutShort() const;

private:
    void limitFileSize();

    std::string command_;
    const char* context_;
    bool active_ = false;
    bool sizeLimited_ = false;
    std::size_t bytes_ = 0;
    rlimit savedFileSize_{};
};

} // namespace tq
