/// The debug log: one file a program and day, one write an entry, and the helper that composes entries.
#pragma once

#include <sstream>
#include <string>
#include <string_view>

/// Level of an entry. Entries below the configured DEBUG_LOG_LEVEL are not written.
enum class LogLevel : int {
    progress = 2, ///< progress and information
    notice = 4,   ///< fallbacks, file reads
    warning = 8,  ///< the command survives it
    error = 16,   ///< failures
};

/// Opens directory/subdirectory/<program>.<yyyymmdd>.log for appending, made with `mode` less the process's
/// mask when it is absent, and makes it the log of this process. A link, fifo, device or folder at that path
/// is refused. The first open of a day removes this program's files older than DEBUG_LOG_DAYS. After a
/// failure the log that was open before stays so. `flag` is the product's own and is neither read nor
/// written. Returns the descriptor, or -1 with errno set; without any open log entries are dropped.
int open_debug_log(const char* directory, const char* subdirectory, const char* program, int mode, int* flag);

/// Writes one entry "2026-11-20 08:10:42.123 [pid] <level> context: text". Line ends at the text's end are
/// dropped, a line that follows inside the text begins with a tab, other control characters, direction
/// controls and bytes that are not UTF-8 stand as \xNN, and an entry over 1 MiB is cut with a note of the
/// bytes left out. A null text or context counts as empty. The time is local; another day goes into its own
/// file. Without an open log nothing happens. Never throws, never fails towards the caller, keeps errno.
void logmsg(int level, const char* text, const char* context) noexcept;

/// The same for a text that may hold NUL characters.
void logmsg(int level, std::string_view text, const char* context) noexcept;

/// Formatted entries, printf style. `flag` is the product's own and changes nothing here.
void logmsgf(int level, const char* context, const char* format, ...) noexcept
    __attribute__((format(printf, 3, 4)));
void logmsgvf(int level, int flag, const char* context, const char* format, ...) noexcept
    __attribute__((format(printf, 4, 5)));

/// Hands over the whole text that a stream holds. The stream is not emptied: a caller that goes on writing
/// into it logs the earlier text again as the beginning of the later entry.
void LOGMSG_STR_STREAM(int level, const std::ostringstream& stream, const char* context) noexcept;

/// Composes one entry and hands it over when the statement ends:
///     LogLine(LogLevel::error, CONTEXT) << "Unable to open version file: " << path << '\n';
class LogLine {
public:
    LogLine(LogLevel level, const char* context) : level_(level), context_(context) {}
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;
    ~LogLine() { LOGMSG_STR_STREAM(static_cast<int>(level_), stream_, context_); }

    template <typename Value>
    LogLine& operator<<(const Value& value)
    {
        stream_ << value;
        return *this;
    }

private:
    LogLevel level_;
    const char* context_;
    std::ostringstream stream_;
};
