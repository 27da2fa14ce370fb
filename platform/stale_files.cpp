#include "platform/stale_files.h"

#include "platform/file_io.h"
#include "platform/random.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <ctime>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace tq {
namespace {

constexpr std::size_t RANDOM_BYTES = 16;

/// Process id in a name that uniqueFileName made with this prefix; absent for any other name.
std::optional<pid_t> processOfName(std::string_view name, std::string_view prefix)
{
    if (name.substr(0, prefix.size()) != prefix)
        return std::nullopt;
    name.remove_prefix(prefix.size());
    pid_t process = 0;
    const char* end = name.data() + name.size();
    const auto number = std::from_chars(name.data(), end, process);
    if (number.ec != std::errc() || process <= 0 || number.ptr == end || *number.ptr != '.')
        return std::nullopt;
    const std::string_view digits(number.ptr + 1, static_cast<std::size_t>(end - number.ptr - 1));
    if (!isHexText(digits, RANDOM_BYTES))
        return std::nullopt;
    return process;
}

bool processIsGone(pid_t process)
{
    return process == getpid() || (kill(process, 0) != 0 && errno == ESRCH);
}

bool isOldFile(const std::string& path)
{
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           std::time(nullptr) - status.st_mtime > STALE_AFTER_SECONDS;
}

} // namespace

std::string uniqueFileName(std::string_view prefix)
{
    return std::string(prefix) + std::to_string(getpid()) + "." + randomHex(RANDOM_BYTES);
}

void removeStaleFiles(const std::string& directory, std::string_view prefix)
{
    for (const std::string& name : listDirectory(directory)) {
        const std::optional<pid_t> process = processOfName(name, prefix);
        const std::string path = std::string(directory).append("/").append(name);
        if (process && processIsGone(*process) && isOldFile(path))
            unlink(path.c_str());
    }
}

} // namespace tq
