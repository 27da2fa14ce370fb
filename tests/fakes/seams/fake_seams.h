/// The seams of the utilities as unit tests see them: every answer is set by the test.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace fakes {

struct Seams {
    std::vector<std::string> calls; ///< in order, as "name argument ..."

    int installedVersionStatus = 0;
    std::string installedVersion = "Torquenix_9.1.0.1";
    std::function<void()> onInstalledVersion; ///< called when the installed version is asked for
    bool debianUbuntu = false;
    bool unixClient = true;
    std::map<std::string, std::pair<int, std::string>> versionFiles; ///< by path; absent ones give 7501
    std::pair<int, std::string> binVersionFile{7501, ""};
    /// Result of the runner, command by command; without a hook every command prints nothing and ends with 0.
    std::function<int(const std::string& command, std::string& output, int& status)> command;
    std::map<int, std::string> platformNames{{10, "linux_x86"}, {20, "linux_debian"}};
    std::set<int> validPlatforms{10, 20};
    std::string binaryVersion = "Torquenix_9.1.0.1";
    std::map<std::string, unsigned> files; ///< paths that exist, with their mode; stat fails for all others
};

Seams& seams();
void resetSeams();

} // namespace fakes
