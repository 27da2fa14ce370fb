/// Queries of package managers: run, and told in the log under the caller's context.
#pragma once

#include <string>

namespace TQCLNTDB {

/// What is logged around the exit status of a command that fails.
struct FailureText {
    std::string before;
    const char* after;
};

/// Runs a command and takes its output. 0, the runner's status, or 7282 when it ends with a failure.
int capture(const char* context, const std::string& command, const FailureText& failure, std::string& output);

/// The same for the command that lists the packages, which is told before it runs.
int captureList(const char* context, const std::string& command, std::string& output);

} // namespace TQCLNTDB
