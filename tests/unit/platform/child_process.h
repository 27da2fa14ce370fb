/// Starting programs under odd conditions, and waiting for processes to be gone.
#pragma once

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace tests {

/// Long enough for a busy machine; no test waits that long when all is well.
inline constexpr std::chrono::seconds PATIENCE{20};

/// Waits until a condition holds. False when it never did.
inline bool eventually(const std::function<bool()>& condition)
{
    const auto end = std::chrono::steady_clock::now() + PATIENCE;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

/// State letter of a process in /proc; 0 when there is no such process.
inline char stateOf(pid_t pid)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    std::getline(file, text);
    const std::size_t name = text.rfind(") ");
    return name == std::string::npos ? '\0' : text[name + 2];
}

/// Whether a process has ended, waited for or not.
inline bool hasEnded(pid_t pid)
{
    const char state = stateOf(pid);
    return state == '\0' || state == 'Z';
}

/// Starts a program with an empty environment but for `environment`. `prepare` runs in the new process first.
inline pid_t start(const std::vector<std::string>& arguments,
                   const std::vector<std::string>& environment = {},
                   const std::function<void()>& prepare = {})
{
    const pid_t child = fork();
    if (child != 0)
        return child;
    const auto pointers = [](const std::vector<std::string>& texts) {
        std::vector<char*> list(texts.size() + 1, nullptr);
        for (std::size_t i = 0; i < texts.size(); ++i)
            list[i] = const_cast<char*>(texts[i].c_str());
        return list;
    };
    const std::vector<char*> argv = pointers(arguments);
    const std::vector<char*> envp = pointers(environment);
    if (prepare)
        prepare();
    execve(argv[0], argv.data(), envp.data());
    _exit(98);
}

/// Raw status of a child that ends in time; -1, and the child is killed, for one that does not.
inline int statusOf(pid_t child)
{
    int status = -1;
    if (eventually([&] { return waitpid(child, &status, WNOHANG) == child; }))
        return status;
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return -1;
}

/// The process numbers that a file holds once there are `count` of them.
inline std::vector<pid_t> numbersIn(const std::string& path, std::size_t count)
{
    std::vector<pid_t> numbers;
    eventually([&] {
        numbers.clear();
        std::ifstream file(path);
        for (pid_t number = 0; file >> number;)
            numbers.push_back(number);
        return numbers.size() >= count;
    });
    return numbers;
}

} // namespace tests
