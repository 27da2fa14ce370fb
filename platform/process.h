/// Start-up of a process of ours, and limits for the external commands that it runs.
#pragma once

#include <cstddef>
#include <string>

namespace tq {

/// Called first in every main(): opens descriptors 0 to 2 on /dev/null where they are closed, puts signals
/// into a known state (all unblocked, SIGCHLD default, SIGPIPE and SIGXFSZ caught by a handler that does
/// nothing, SIGTERM and SIGHUP ending the running external command before this process), changes to "/",
/// and reduces the environment to LANG, LANGUAGE, LC_*, TZ and a fixed PATH. Neither fails nor prints.
void prepareProcess();

/// Limits around one call of system(), or around one popen() to pclose(): after the time limit the shell and
/// everything it started are killed; output is limited to a size. Build constants: 120 s and 64 MiB.
/// Only one guard may be active at a time. Its destructor disarms it, puts every setting back and writes one
/// level-16 entry when a limit was met.
class ExternalCommandGuard {
public:
    /// How the command's output is taken.
    enum class Output {
        file, ///< redirected into files: cut by the kernel's file-size limit
        pipe, ///< read by the caller, who reports each read through accept()
    };

    /// `command` and `context` appear in the entry; both must outlive the guard.
    ExternalCommandGuard(const char* command, Output output, const char* context);
    ExternalCommandGuard(const ExternalCommandGuard&) = delete;
    ExternalCommandGuard& operator=(const ExternalCommandGuard&) = delete;
    ~ExternalCommandGuard();

    /// Counts bytes read from a pipe. False once the limit is passed: the caller stops reading; the command
    /// has then been ended, so that closing the pipe does not wait for it.
    [[nodiscard]] bool accept(std::size_t bytes);

    /// Whether the time limit ended the command.
    [[nodiscard]] bool timedOut() const;

private:
    void endCommand();

    const char* command_;
    const char* context_;
    Output output_;
    std::size_t bytes_ = 0;
    bool overflow_ = false;
    std::string savedState_;
};

} // namespace tq
