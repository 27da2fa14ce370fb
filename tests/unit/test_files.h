/// Files of a unit test, below the own /usr/torqv and /tmp of its sandbox.
#pragma once

#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace tests {

inline void writeText(const std::string& path, std::string_view text, mode_t mode = 0644)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file || chmod(path.c_str(), mode) != 0)
        throw std::runtime_error("cannot write " + path);
}

inline std::string readText(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

inline std::set<std::string> namesIn(const std::string& directory)
{
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        names.insert(entry.path().filename());
    return names;
}

inline mode_t modeOf(const std::string& path)
{
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

/// Sets a file's times some seconds back.
inline void makeOlder(const std::string& path, int seconds)
{
    const timespec time{std::time(nullptr) - seconds, 0};
    const timespec times[2] = {time, time};
    if (utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0)
        throw std::runtime_error("cannot set the time of " + path);
}

/// An empty directory that exists for the test.
inline std::string freshDirectory(const std::string& path, mode_t mode = 0755)
{
    std::filesystem::remove_all(path);
    std::filesystem::create_directories(path);
    chmod(path.c_str(), mode);
    return path;
}

} // namespace tests
