/// Ending everything that an external command has started, from a signal handler too.
#pragma once

#include <cstddef>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tq {

/// The processes below one thread of this process, less the children that it had before. Finding and ending
/// them uses fixed storage and open, read, close, kill, waitpid and poll alone, so it is fit for a signal
/// handler; the storage is shared, so handlers that use it must not interrupt one another.
///
/// The kernel lists children by thread. What a second thread of a command forked is not found below it, but
/// becomes a child of this process once that command is killed, provided that this process is a subreaper:
/// so passes are repeated until one finds nothing.
class ProcessTree {
public:
    /// Remembers the children that the calling thread has now; they are somebody else's.
    void rememberChildren();

    /// Sends SIGKILL to every process of the tree, those that ended but were not waited for included.
    /// Returns how many there are.
    std::size_t killAll() const noexcept;

    /// Waits for children of the tree that have ended, without waiting for any that has not.
    void reap() const noexcept;

    /// Kills and reaps until nothing is left, for at most `limitMs` milliseconds: a process that is stuck in
    /// the kernel must not hold up the end of this one.
    void killAndReap(int limitMs) const noexcept;

private:
    [[nodiscard]] std::size_t collectChildren() const noexcept;

    std::string childrenPath_;
    std::vector<pid_t> earlierChildren_;
};

} // namespace tq
