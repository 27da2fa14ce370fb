// The debug log of a fuzz target: every entry is composed as the real log would and checked, and none is
// written. So no input of any target may forge an entry.
#include "fuzz/support/target.h"
#include "platform/debuglog.h"
#include "platform/log_entry.h"

#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <unordered_set>

namespace {

/// Whether a text was not among the last ones: most entries come again with every input.
bool isNew(std::string_view text)
{
    constexpr std::size_t MOST_REMEMBERED = 100'000;
    static std::unordered_set<std::size_t> seen;
    if (seen.size() > MOST_REMEMBERED)
        seen.clear();
    return seen.insert(std::hash<std::string_view>()(text)).second;
}

void check(int level, std::string_view text, const char* context)
{
    if (!isNew(text))
        return;
    // One time for all: it says nothing here, and the local time costs more than the rest of an entry.
    static const auto NOW = std::chrono::system_clock::now();
    fuzz::requireLogEntry(tq::formatLogEntry(NOW, level, context ? context : "", text));
}

void checkFormatted(int level, const char* context, const char* format, va_list arguments)
{
    std::array<char, 8192> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    check(level, text.data(), context);
}

} // namespace

int open_debug_log(const char* /*directory*/, const char* /*subdirectory*/, const char* /*program*/,
                   int /*mode*/, int* /*flag*/)
{
    return -1;
}

void logmsg(int level, const char* text, const char* context) noexcept
{
    check(level, text ? text : "", context);
}

void logmsg(int level, std::string_view text, const char* context) noexcept
{
    check(level, text, context);
}

void logmsgf(int level, const char* context, const char* format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    checkFormatted(level, context, format, arguments);
    va_end(arguments);
}

void logmsgvf(int level, int /*flag*/, const char* context, const char* format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    checkFormatted(level, context, format, arguments);
    va_end(arguments);
}

void LOGMSG_STR_STREAM(int level, const std::ostringstream& stream, const char* context) noexcept
{
    check(level, stream.view(), context);
}
