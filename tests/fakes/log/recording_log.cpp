#include "tests/fakes/log/recording_log.h"

#include "platform/debuglog.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace fakes {

std::ostream& operator<<(std::ostream& stream, const RecordedEntry& entry)
{
    return stream << '<' << entry.level << "> " << entry.context << ": " << entry.text;
}

std::vector<RecordedEntry>& recordedLog()
{
    static std::vector<RecordedEntry> entries;
    return entries;
}

std::size_t countRecorded(int level, const std::string& part)
{
    const std::vector<RecordedEntry>& entries = recordedLog();
    return static_cast<std::size_t>(
        std::count_if(entries.begin(), entries.end(), [&](const RecordedEntry& entry) {
            return (level == 0 || entry.level == level) && entry.text.find(part) != std::string::npos;
        }));
}

namespace {

void record(int level, std::string_view text, const char* context)
{
    recordedLog().push_back({level, std::string(text), context ? context : ""});
}

void recordFormatted(int level, const char* context, const char* format, va_list arguments)
{
    char text[8192];
    std::vsnprintf(text, sizeof text, format, arguments);
    record(level, text, context);
}

} // namespace
} // namespace fakes

int open_debug_log(const char* /*directory*/, const char* /*subdirectory*/, const char* /*program*/,
                   int /*mode*/, int* /*flag*/)
{
    return -1;
}

void logmsg(int level, const char* text, const char* context) noexcept
{
    fakes::record(level, text ? text : "", context);
}

void logmsg(int level, std::string_view text, const char* context) noexcept
{
    fakes::record(level, text, context);
}

void logmsgf(int level, const char* context, const char* format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    fakes::recordFormatted(level, context, format, arguments);
    va_end(arguments);
}

void logmsgvf(int level, int /*flag*/, const char* context, const char* format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    fakes::recordFormatted(level, context, format, arguments);
    va_end(arguments);
}

void LOGMSG_STR_STREAM(int level, const std::ostringstream& stream, const char* context) noexcept
{
    fakes::record(level, stream.str(), context);
}
