#include "platform/process_tree.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string_view>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tq {

namespace {

/// Room for one pass. A larger tree is ended in several passes.
constexpr std::size_t MAX_PROCESSES = 4096;
constexpr int PASS_INTERVAL_MS = 10;

/// Processes of the running pass.
std::array<pid_t, MAX_PROCESSES> foundProcesses;

/// Path of a process's list of children, built without the C library's formatting.
class ChildrenPath {
public:
    explicit ChildrenPath(pid_t pid) noexcept
    {
        add("/proc/");
        add(pid);
        add("/task/");
        add(pid);
        add("/children");
        text_[length_] = '\0';
    }

    [[nodiscard]] const char* text() const noexcept { return text_.data(); }

private:
    void add(std::string_view part) noexcept
    {
        std::memcpy(text_.data() + length_, part.data(), part.size());
        length_ += part.size();
    }

    void add(pid_t number) noexcept
    {
        const std::to_chars_result end =
            std::to_chars(text_.data() + length_, text_.data() + text_.size(), number);
        length_ = static_cast<std::size_t>(end.ptr - text_.data());
    }

    std::array<char, 64> text_{}; // two numbers of up to ten digits and 22 other characters
    std::size_t length_ = 0;
};

/// Appends the process numbers of a list of children to `foundProcesses`. Returns the new count.
std::size_t appendChildren(const char* path, std::size_t count) noexcept
{
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return count;
    std::array<char, 512> buffer;
    pid_t pid = 0;
    ssize_t size = 0;
    while ((size = read(file, buffer.data(), buffer.size())) > 0) {
        for (const char digit : std::string_view(buffer.data(), static_cast<std::size_t>(size))) {
            if (digit >= '0' && digit <= '9') {
                pid = pid * 10 + (digit - '0');
                continue;
            }
            if (pid > 0 && count < foundProcesses.size())
                foundProcesses[count++] = pid;
            pid = 0;
        }
    }
    close(file);
    return count;
}

} // namespace

void ProcessTree::rememberChildren()
{
    // The kernel's own number of this thread: below a /proc of another process namespace the path then
    // leads nowhere, instead of to processes that are not ours.
    childrenPath_ = "/proc/self/task/" + std::to_string(syscall(SYS_gettid)) + "/children";
    earlierChildren_.clear();
    const std::size_t count = collectChildren();
    earlierChildren_.assign(foundProcesses.begin(),
                            foundProcesses.begin() + static_cast<std::ptrdiff_t>(count));
}

std::size_t ProcessTree::collectChildren() const noexcept
{
    const std::size_t count = appendChildren(childrenPath_.c_str(), 0);
    const auto isEarlier = [this](pid_t pid) {
        return std::find(earlierChildren_.begin(), earlierChildren_.end(), pid) != earlierChildren_.end();
    };
    const auto* end = std::remove_if(foundProcesses.begin(),
                                     foundProcesses.begin() + static_cast<std::ptrdiff_t>(count), isEarlier);
    return static_cast<std::size_t>(end - foundProcesses.begin());
}

std::size_t ProcessTree::killAll() const noexcept
{
    std::size_t count = collectChildren();
    for (std::size_t i = 0; i < count; ++i)
        count = appendChildren(ChildrenPath(foundProcesses[i]).text(), count);
    for (std::size_t i = 0; i < count; ++i)
        kill(foundProcesses[i], SIGKILL);
    return count;
}

void ProcessTree::reap() const noexcept
{
    const std::size_t count = collectChildren();
    for (std::size_t i = 0; i < count; ++i)
        waitpid(foundProcesses[i], nullptr, WNOHANG);
}

void ProcessTree::killAndReap(int limitMs) const noexcept
{
    for (int waited = 0; killAll() > 0; waited += PASS_INTERVAL_MS) {
        reap();
        if (waited >= limitMs)
            return;
        poll(nullptr, 0, PASS_INTERVAL_MS);
    }
}

} // namespace tq
