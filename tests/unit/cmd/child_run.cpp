#include "tests/unit/cmd/child_run.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace fakes {
namespace {

constexpr const char* OUT_FILE = "/tmp/child.out";
constexpr const char* ERR_FILE = "/tmp/child.err";
constexpr const char* TRACE_FILE = "/tmp/child.trace";

bool bodyReturned = false;

/// Fields of the trace end with a NUL; the first one of a record tells its kind.
void writeTrace()
{
    std::ofstream trace(TRACE_FILE, std::ios::binary);
    for (const LogEntry& entry : platform().log)
        trace << "log" << '\0' << entry.level << '\0' << entry.text << '\0' << entry.context << '\0';
    for (const std::string& call : platform().calls)
        trace << "call" << '\0' << call << '\0';
    if (bodyReturned)
        trace << "returned" << '\0';
}

std::string contentOf(const char* path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void readTrace(ChildRun& run)
{
    std::istringstream trace(contentOf(TRACE_FILE));
    const auto field = [&trace] {
        std::string text;
        std::getline(trace, text, '\0');
        return text;
    };
    for (std::string kind = field(); !kind.empty(); kind = field()) {
        if (kind == "returned") {
            run.returned = true;
        } else if (kind == "call") {
            run.calls.push_back(field());
        } else {
            LogEntry entry;
            entry.level = std::stoi(field());
            entry.text = field();
            entry.context = field();
            run.log.push_back(entry);
        }
    }
}

[[noreturn]] void beChild(const std::function<int()>& body)
{
    if (!std::freopen(OUT_FILE, "w", stdout) || !std::freopen(ERR_FILE, "w", stderr))
        std::abort();
    platform().log.clear();
    platform().calls.clear();
    if (std::atexit(writeTrace) != 0)
        std::abort();
    const int result = body();
    bodyReturned = true;
    std::exit(result);
}

} // namespace

std::vector<LogEntry> ChildRun::logOf(const std::string& context) const
{
    std::vector<LogEntry> found;
    std::copy_if(log.begin(), log.end(), std::back_inserter(found),
                 [&](const LogEntry& entry) { return entry.context == context; });
    return found;
}

std::size_t ChildRun::count(const std::string& callPrefix) const
{
    return static_cast<std::size_t>(std::count_if(
        calls.begin(), calls.end(), [&](const std::string& call) { return call.starts_with(callPrefix); }));
}

ChildRun runInChild(const std::function<int()>& body)
{
    std::remove(TRACE_FILE);
    std::cout.flush();
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
        beChild(body);
    int waitStatus = 0;
    ChildRun run;
    if (child > 0 && waitpid(child, &waitStatus, 0) == child && WIFEXITED(waitStatus))
        run.status = WEXITSTATUS(waitStatus);
    run.out = contentOf(OUT_FILE);
    run.err = contentOf(ERR_FILE);
    readTrace(run);
    return run;
}

} // namespace fakes
