// A program of ours as its caller may start it: prepares itself, then does what its arguments say.
//   report FILE       the state it is in
//   opened FILE       the number of the first descriptor that it opens
//   system COMMAND    runs it, ends with its exit code
//   popen COMMAND     the same through a pipe; what it prints is printed
//   wait FILE         makes the file and waits for ever, no command running
//   thread-fork FILE  unprepared: a second thread forks a child that waits for ever and writes its number
#include "platform/process.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using tq::ExternalCommandGuard;

std::string targetOf(const std::string& link)
{
    std::array<char, 4096> text{};
    return readlink(link.c_str(), text.data(), text.size() - 1) == -1 ? "closed" : text.data();
}

int report(const char* path)
{
    std::ostringstream text;
    for (int descriptor = 0; descriptor < 10; ++descriptor) {
        const int flags = fcntl(descriptor, F_GETFD);
        if (flags != -1 && (flags & FD_CLOEXEC) == 0)
            text << "inheritable " << descriptor << '\n';
        if (descriptor <= 2)
            text << descriptor << ' ' << targetOf("/proc/self/fd/" + std::to_string(descriptor)) << '\n';
    }
    const mode_t mask = umask(0);
    umask(mask);
    text << "dumpable " << prctl(PR_GET_DUMPABLE) << '\n';
    text << "mask " << mask << "\ncwd " << targetOf("/proc/self/cwd") << '\n';
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("Sig", 0) == 0)
            text << line << '\n';
    }
    for (char** variable = environ; *variable; ++variable)
        text << "environment " << *variable << '\n';
    std::ofstream(path) << text.str();
    return 0;
}

int reportOpened(const char* path)
{
    const int descriptor = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    std::ofstream(path) << descriptor;
    return 0;
}

int runSystem(const char* command)
{
    ExternalCommandGuard guard(command, ExternalCommandGuard::Output::file, "probe");
    const int status = guard.ended(std::system(command));
    return status == -1 ? 200 : WEXITSTATUS(status);
}

int runPopen(const char* command)
{
    ExternalCommandGuard guard(command, ExternalCommandGuard::Output::pipe, "probe");
    FILE* stream = popen(command, "re");
    if (!stream)
        return 200;
    std::array<char, 65536> buffer;
    std::size_t size = 0;
    while ((size = fread(buffer.data(), 1, buffer.size(), stream)) > 0 && guard.accept(size))
        fwrite(buffer.data(), 1, size, stdout);
    const int status = pclose(stream);
    return status == -1 ? 200 : WEXITSTATUS(status);
}

int waitForEver(const char* path)
{
    std::ofstream(path) << "waiting";
    for (;;)
        pause();
}

int forkInThread(const char* path)
{
    std::thread([path] {
        const pid_t child = fork();
        if (child == 0) {
            for (;;)
                pause();
        }
        std::ofstream(path) << child << std::endl;
        for (;;)
            pause();
    }).join();
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
        return 99;
    const std::string action = argv[1];
    if (action == "thread-fork")
        return forkInThread(argv[2]);
    tq::prepareProcess();
    if (action == "report")
        return report(argv[2]);
    if (action == "opened")
        return reportOpened(argv[2]);
    if (action == "system")
        return runSystem(argv[2]);
    if (action == "popen")
        return runPopen(argv[2]);
    return action == "wait" ? waitForEver(argv[2]) : 99;
}
