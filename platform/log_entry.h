/// The text of one debug log entry.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace tq {

/// Largest entry, its line end included.
inline constexpr std::size_t LOG_ENTRY_MAX_BYTES = std::size_t{1} << 20;

/// "2026-11-20 08:10:42.123 [pid] <level> context: text" with its line end, in local time. Line ends at the
/// text's end are dropped; a line that follows inside the text begins with a tab. Every other byte that could
/// forge or disguise an entry stands as \xNN: control characters (those of C1 too), Unicode's line separators
/// and direction controls, and what is not UTF-8. A larger entry ends with a note of the bytes left out.
std::string formatLogEntry(std::chrono::system_clock::time_point time, int level, std::string_view context,
                           std::string_view text);

} // namespace tq
