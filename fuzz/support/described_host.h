/// A host that the input describes: what its files hold and what external commands print. No shell is
/// started.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

/// What one external command prints, and how it ends.
struct CommandOutput {
    std::string text;
    int exitStatus = 0;
};

struct DescribedHost {
    /// Files that the readers of release files and of configurations find; no other is there for them.
    std::map<std::string, std::string> files;
    /// One for each command, in order. A command beyond the last prints nothing and ends with 1.
    std::deque<CommandOutput> outputs;
    /// What every command prints instead.
    std::optional<std::string> everyOutput;
    /// Command lines that were run.
    std::vector<std::string> commands;
};

/// The one host of this process.
DescribedHost& host();

/// A fresh host. Each part of the text is the output of a command; one that begins with "!" ends with 1.
void describeOutputs(std::string_view text);

/// A fresh host, every command of which prints the text.
void describeEveryOutput(std::string_view text);

/// Runs a command of the host.
CommandOutput run(const std::string& command);

/// Answers of the master server to the host's HTTP client.
struct ScriptedAnswer {
    int status = 0;
    std::int64_t httpStatus = 200;
    std::string body;
};
ScriptedAnswer& serverAnswer();

} // namespace fuzz
