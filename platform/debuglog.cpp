#include "platform/debuglog.h"

#include "platform/config.h"
#include "platform/log_entry.h"
#include "platform/log_file_sink.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <spdlog/logger.h>

namespace {

/// The log of this process.
struct DebugLog {
    std::shared_ptr<spdlog::logger> logger;
    int lowestLevel = tq::PlatformSettings().debugLogLevel;
};

/// Keeps the log from being destroyed: objects that live to the end of the process write their last entries.
union EternalLog {
    DebugLog log;
    EternalLog() : log() {}
    EternalLog(const EternalLog&) = delete;
    EternalLog& operator=(const EternalLog&) = delete;
    ~EternalLog() {} // NOLINT(modernize-use-equals-default): a defaulted one would be deleted
};

DebugLog& debugLog()
{
    static EternalLog eternal;
    return eternal.log;
}

/// An entry between a failed call and a look at its errno must not change it.
class KeptErrno {
public:
    KeptErrno() = default;
    KeptErrno(const KeptErrno&) = delete;
    KeptErrno& operator=(const KeptErrno&) = delete;
    ~KeptErrno() { errno = value_; }

private:
    int value_ = errno;
};

/// The logging library's own level; only the numbers of this log decide what is written.
spdlog::level::level_enum libraryLevel(int level)
{
    if (level >= static_cast<int>(LogLevel::error))
        return spdlog::level::err;
    return level >= static_cast<int>(LogLevel::warning) ? spdlog::level::warn : spdlog::level::info;
}

void writeEntry(int level, std::string_view text, const char* context) noexcept
{
    const DebugLog& log = debugLog();
    if (!log.logger || level < log.lowestLevel)
        return;
    const KeptErrno keptErrno;
    try {
        const auto now = spdlog::log_clock::now();
        const std::string entry = tq::formatLogEntry(now, level, context ? context : "", text);
        log.logger->log(now, {}, libraryLevel(level), entry);
    } catch (const std::exception&) {
        // Memory is short: the entry is lost, the run is not.
    }
}

void writeFormatted(int level, const char* context, const char* format, va_list arguments) noexcept
{
    if (!format)
        return writeEntry(level, "", context);
    const KeptErrno keptErrno;
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0)
        return writeEntry(level, format, context); // a text that cannot be formatted is better than none
    try {
        std::string text(static_cast<std::size_t>(length), '\0');
        std::vsnprintf(text.data(), text.size() + 1, format, arguments);
        writeEntry(level, text, context);
    } catch (const std::exception&) {
        // As in writeEntry.
    }
}

bool isFileName(const char* name)
{
    return name && *name != '\0' && !std::strchr(name, '/');
}

int openLog(const std::string& directory, const char* program, mode_t mode)
{
    const auto sink = std::make_shared<tq::LogFileSink>(directory, program, mode);
    const int descriptor = sink->open(std::chrono::system_clock::now());
    if (descriptor == -1)
        return -1;
    DebugLog& log = debugLog();
    log.logger = std::make_shared<spdlog::logger>(program, sink);
    // The settings are read with the log open: what is wrong with them is to stand in it.
    const tq::PlatformSettings settings = tq::readPlatformSettings();
    log.lowestLevel = settings.debugLogLevel;
    sink->keepDays(settings.debugLogDays);
    return descriptor;
}

} // namespace

int open_debug_log(const char* directory, const char* subdirectory, const char* program, int mode,
                   int* /*flag*/)
{
    if (!directory || !subdirectory || !isFileName(program)) {
        errno = EINVAL;
        return -1;
    }
    try {
        return openLog(std::string(directory) + "/" + subdirectory, program, static_cast<mode_t>(mode));
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return -1;
    }
}

void logmsg(int level, const char* text, const char* context) noexcept
{
    writeEntry(level, text ? text : "", context);
}

void logmsg(int level, std::string_view text, const char* context) noexcept
{
    writeEntry(level, text, context);
}

void logmsgf(int level, const char* context, const char* format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    writeFormatted(level, context, format, arguments);
    va_end(arguments);
}

void logmsgvf(int level, int /*flag*/, const char* context, const char* format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    writeFormatted(level, context, format, arguments);
    va_end(arguments);
}

void LOGMSG_STR_STREAM(int level, const std::ostringstream& stream, const char* context) noexcept
{
    writeEntry(level, stream.view(), context);
}
