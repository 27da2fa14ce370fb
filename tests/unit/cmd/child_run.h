/// Runs what may end the process in a child, and brings back all that can be seen of it.
#pragma once

#include "tests/fakes/platform/fake_platform.h"

#include <functional>
#include <string>
#include <vector>

namespace fakes {

struct ChildRun {
    int status = -1;       ///< exit status; -1 when the child did not exit by itself
    bool returned = false; ///< the body came back, with the exit status as its result
    std::string out;       ///< standard output
    std::string err;       ///< standard error
    std::vector<LogEntry> log;
    std::vector<std::string> calls;

    /// Entries of one context.
    std::vector<LogEntry> logOf(const std::string& context) const;
    /// How many calls begin with this text.
    std::size_t count(const std::string& callPrefix) const;
};

/// The child starts as a copy of this process, the fakes' settings included. What it does to files stays;
/// log and calls are collected when it exits, by whatever way.
ChildRun runInChild(const std::function<int()>& body);

} // namespace fakes
