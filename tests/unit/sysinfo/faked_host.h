/// The host that the probes see in these tests: the real one, except for what a test sets.
#pragma once

#include "tests/fakes/platform/fake_platform.h"

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace faked_host {

struct Host {
    /// Shell lines that were run, in order.
    std::vector<std::string> shellLines;
    /// Files that stand in for others in shell lines.
    std::map<std::string, std::string> files;
    bool shellFails = false; ///< no shell can be started
    /// Calls of V_tempnam, in order, as "directory prefix".
    std::vector<std::string> temporaryNameCalls;
    /// What V_tempnam gives, call by call, null for none; after the last one the real names follow.
    std::deque<std::optional<std::string>> temporaryNames;
    std::string hostName = "h1.example";
    bool hostNameFails = false;
    bool unameFails = false;
    std::string systemName = "Linux";
    std::string release = "6.1.0-18-amd64";
    std::string machine = "x86_64";
    long processorsOnline = 4;
};

Host& host();

/// A fresh host and platform, an empty product directory.
void reset();

/// Puts a text in the place of a system file that the probes read through the shell.
void setFile(const std::string& path, const std::string& text);

/// Lets a system file be missing.
void removeFile(const std::string& path);

/// Writes the product configuration.
void setConfiguration(const std::string& text);

/// The log so far, names of temporary files replaced by "FILE".
std::vector<fakes::LogEntry> log();

/// The three entries of one successful or failed cat.
std::vector<fakes::LogEntry> catEntries(const std::string& path, int rawStatus);

} // namespace faked_host
