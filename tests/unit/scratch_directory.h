/// A directory of a test's own, and lines of texts.
#pragma once

#include "tests/unit/test_files.h"

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace tests {

/// A new directory below /tmp that goes with this object.
class ScratchDirectory {
public:
    ScratchDirectory()
    {
        std::string name = "/tmp/unit-test.XXXXXX";
        path_ = mkdtemp(name.data());
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;
    ~ScratchDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

/// The lines of a text, without their ends; a last one that has no end counts.
inline std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

} // namespace tests
