#include "platform/log_file_sink.h"

#include "platform/debuglog.h"
#include "platform/log_entry.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <dirent.h>
#include <exception>
#include <fcntl.h>
#include <spdlog/details/log_msg.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace tq {

namespace {

constexpr std::size_t DAY_LENGTH = 8;

/// Reading is for the end of what is there.
constexpr int OPEN_FLAGS = O_RDWR | O_APPEND | O_CREAT;

/// A file that has grown at each of so many looks is being written to, and not cut off.
constexpr int MAX_LOOKS_AT_END = 100;

/// Local date of a time, some days earlier, as yyyymmdd.
std::string dayText(LogFileSink::Time time, int daysEarlier)
{
    const time_t clock = std::chrono::system_clock::to_time_t(time);
    tm date{};
    localtime_r(&clock, &date);
    if (daysEarlier != 0) {
        date.tm_mday -= daysEarlier;
        date.tm_hour = 12; // far from the hours that a change to summer time adds or takes
        date.tm_isdst = -1;
        std::mktime(&date);
    }
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y%m%d", &date);
    return text.data();
}

/// The day in the name of one of a program's log files; empty for any other file.
std::string_view dayOfFile(std::string_view name, const std::string& program)
{
    constexpr std::string_view ENDING = ".log";
    if (name.size() != program.size() + 1 + DAY_LENGTH + ENDING.size() ||
        name.substr(0, program.size()) != program || name[program.size()] != '.' ||
        name.substr(name.size() - ENDING.size()) != ENDING)
        return {};
    const std::string_view day = name.substr(program.size() + 1, DAY_LENGTH);
    const bool digits = day.find_first_not_of("0123456789") == std::string_view::npos;
    return digits ? day : std::string_view();
}

/// Nothing was written yet: this run is the first of its day, or one of the first.
bool isEmpty(int file)
{
    struct stat status {};
    return fstat(file, &status) == 0 && status.st_size == 0;
}

/// Size of the file when its last line has no end, else 0.
off_t sizeInsideLine(int file)
{
    struct stat status {};
    char last = '\n';
    const bool read =
        fstat(file, &status) == 0 && status.st_size > 0 && pread(file, &last, 1, status.st_size - 1) == 1;
    return read && last != '\n' ? status.st_size : 0;
}

/// The last line has no end: a full disk cut off the last entry of an earlier run. An entry that another
/// process is writing just now looks the same, but the file has grown once that is done; a write of nothing
/// waits for its turn among the file's writers.
bool endsInsideLine(int file)
{
    off_t size = sizeInsideLine(file);
    for (int looks = 0; size != 0 && looks < MAX_LOOKS_AT_END; ++looks) {
        if (::write(file, "", 0) != 0)
            return true;
        const off_t before = std::exchange(size, sizeInsideLine(file));
        if (size == before)
            return true;
    }
    return false;
}

bool isRegular(int directory, const char* name)
{
    struct stat status {};
    return fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode);
}

} // namespace

LogFileSink::LogFileSink(std::string directory, std::string program, mode_t mode)
    : directory_(std::move(directory)), program_(std::move(program)), mode_(mode)
{
}

std::string LogFileSink::path(const std::string& day) const
{
    return directory_ + "/" + program_ + "." + day + ".log";
}

int LogFileSink::open(Time time)
{
    day_ = dayText(time, 0);
    file_ = openOwnFile(path(day_), OPEN_FLAGS, mode_, nullptr);
    firstOfDay_ = file_ && isEmpty(file_.get());
    lineCutOff_ = file_ && endsInsideLine(file_.get());
    return file_.get();
}

void LogFileSink::keepDays(int days)
{
    daysKept_ = days;
    if (firstOfDay_)
        removeOldFiles(std::chrono::system_clock::now());
}

/// The file of the new day replaces the open one under its descriptor, which others know.
void LogFileSink::changeDay(Time time)
{
    day_ = dayText(time, 0); // after a failure too: one attempt a day
    const FileDescriptor next = openOwnFile(path(day_), OPEN_FLAGS, mode_, nullptr);
    if (next && dup3(next.get(), file_.get(), O_CLOEXEC) != -1) {
        lineCutOff_ = endsInsideLine(file_.get());
        if (isEmpty(file_.get()))
            removeOldFiles(time);
        return;
    }
    const std::string cause = fileFault(errno);
    write(formatLogEntry(time, static_cast<int>(LogLevel::error), "LogFileSink::changeDay",
                         "Unable to open " + path(day_) + ": " + cause + "; the log goes on here"));
}

void LogFileSink::removeOldFiles(Time now) const
{
    if (daysKept_ <= 0)
        return;
    const std::string oldestKept = dayText(now, daysKept_);
    const DirectoryHandle directory(opendir(directory_.c_str()));
    if (!directory)
        return;
    while (const dirent* entry = readdir(directory.get())) {
        const std::string_view day = dayOfFile(entry->d_name, program_);
        if (!day.empty() && day < oldestKept && isRegular(dirfd(directory.get()), entry->d_name))
            unlinkat(dirfd(directory.get()), entry->d_name, 0);
    }
}

void LogFileSink::log(const spdlog::details::log_msg& message)
{
    try {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (dayText(message.time, 0) != day_)
            changeDay(message.time);
        write({message.payload.data(), message.payload.size()});
    } catch (const std::exception&) {
        // Memory is short: the entry is lost, the run is not.
    }
}

/// A full disk costs entries, nothing else. What was cut off must not run into the entry after it.
void LogFileSink::write(std::string_view entry)
{
    const std::string withLineEnd = lineCutOff_ ? "\n" + std::string(entry) : std::string();
    if (lineCutOff_)
        entry = withLineEnd;
    ssize_t written = 0;
    do {
        written = ::write(file_.get(), entry.data(), entry.size());
    } while (written < 0 && errno == EINTR);
    if (written >= 0)
        lineCutOff_ = static_cast<std::size_t>(written) < entry.size();
}

} // namespace tq
