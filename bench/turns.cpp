// Times whole processes, several rows in turn (A B C B C A ...), so that drift of the machine hits all alike.
//
// usage: turns <REQUEST
// REQUEST: {"rounds": N, "warmUp": N, "rows": [{"label": TEXT, "argv": [TEXT ...], "remove": [PATH ...],
//           "link": {"path": PATH, "target": PATH}} ...]}
// Before a row runs, outside its time, what it names is removed and the link is made anew. Standard output
// and error of the rows go to /dev/null. Prints for each label {"wall": [ms ...], "cpu": [ms ...], "peak":
// KiB, "status": N}: CPU time and peak are those of the process with all that it waited for, the status is
// the first that is not 0.
//
// A program of its own since a process's peak never falls below that of the process that started it.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <jansson.h>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace {

struct Row {
    std::string label;
    std::vector<std::string> argv;
    std::vector<std::string> removed;
    std::string linkPath;
    std::string linkTarget;

    json_t* wall = json_array();
    json_t* cpu = json_array();
    long peakKib = 0;
    int status = 0;
};

double nowMs()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

double milliseconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

std::vector<std::string> texts(const json_t* array)
{
    std::vector<std::string> list;
    for (std::size_t i = 0; i < json_array_size(array); ++i)
        list.emplace_back(json_string_value(json_array_get(array, i)));
    return list;
}

std::string textOf(const json_t* object, const char* key)
{
    const char* text = json_string_value(json_object_get(object, key));
    return text != nullptr ? text : "";
}

Row readRow(const json_t* request)
{
    Row row;
    row.label = textOf(request, "label");
    row.argv = texts(json_object_get(request, "argv"));
    row.removed = texts(json_object_get(request, "remove"));
    row.linkPath = textOf(json_object_get(request, "link"), "path");
    row.linkTarget = textOf(json_object_get(request, "link"), "target");
    return row;
}

void prepare(const Row& row)
{
    for (const std::string& path : row.removed)
        unlink(path.c_str());
    if (row.linkPath.empty())
        return;
    unlink(row.linkPath.c_str());
    if (symlink(row.linkTarget.c_str(), row.linkPath.c_str()) != 0)
        std::fprintf(stderr, "turns: cannot link %s: %s\n", row.linkPath.c_str(), std::strerror(errno));
}

/// Starts a row's program; -1 when it cannot be started.
pid_t start(Row& row, posix_spawn_file_actions_t& actions)
{
    std::vector<char*> argv;
    for (std::string& argument : row.argv)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    pid_t pid = -1;
    const int fault = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    if (fault != 0)
        std::fprintf(stderr, "turns: cannot start %s: %s\n", argv[0], std::strerror(fault));
    return fault == 0 ? pid : -1;
}

void run(Row& row, posix_spawn_file_actions_t& actions, bool counts)
{
    prepare(row);
    const double begin = nowMs();
    const pid_t pid = start(row, actions);
    int status = -1;
    rusage usage{};
    while (pid != -1 && wait4(pid, &status, 0, &usage) == -1 && errno == EINTR) {
    }
    const double wall = nowMs() - begin;
    if (row.status == 0 && status != 0)
        row.status = WIFEXITED(status) ? WEXITSTATUS(status) : status;
    if (!counts)
        return;
    row.peakKib = usage.ru_maxrss > row.peakKib ? usage.ru_maxrss : row.peakKib;
    json_array_append_new(row.wall, json_real(wall));
    json_array_append_new(row.cpu, json_real(milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime)));
}

void takeTurns(std::vector<Row>& rows, long warmUp, long rounds)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    for (const int descriptor : {1, 2})
        posix_spawn_file_actions_addopen(&actions, descriptor, "/dev/null", O_WRONLY, 0);
    for (long round = -warmUp; round < rounds; ++round) {
        // Each round begins with another row, since a run bears something of the one before it.
        for (std::size_t i = 0; i < rows.size(); ++i)
            run(rows[(i + static_cast<std::size_t>(round + warmUp)) % rows.size()], actions, round >= 0);
    }
    posix_spawn_file_actions_destroy(&actions);
}

void print(const std::vector<Row>& rows)
{
    json_t* results = json_object();
    for (const Row& row : rows) {
        json_object_set_new(results, row.label.c_str(),
                            json_pack("{s:o, s:o, s:I, s:i}", "wall", row.wall, "cpu", row.cpu, "peak",
                                      static_cast<json_int_t>(row.peakKib), "status", row.status));
    }
    json_dumpf(results, stdout, JSON_COMPACT);
    json_decref(results);
}

} // namespace

int main()
{
    json_error_t error;
    json_t* request = json_loadf(stdin, 0, &error);
    if (request == nullptr) {
        std::fprintf(stderr, "turns: %s\n", error.text);
        return 2;
    }
    std::vector<Row> rows;
    const json_t* list = json_object_get(request, "rows");
    for (std::size_t i = 0; i < json_array_size(list); ++i)
        rows.push_back(readRow(json_array_get(list, i)));
    takeTurns(rows, static_cast<long>(json_integer_value(json_object_get(request, "warmUp"))),
              static_cast<long>(json_integer_value(json_object_get(request, "rounds"))));
    print(rows);
    json_decref(request);
    return 0;
}
