/// The `KEY = value` syntax that the product configuration and the cluster state share.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tq {

/// One `KEY = value` line.
struct ConfigEntry {
    std::string key;   ///< in upper case (ASCII letters), not empty
    std::string value; ///< without the blanks around it; may be empty
    std::size_t line;  ///< counted from 1
};

/// A line that is skipped.
struct ConfigFault {
    std::size_t line;
    const char* reason; ///< ends a sentence that begins with the line's number
};

struct ConfigText {
    std::vector<ConfigEntry> entries; ///< in file order
    std::vector<ConfigFault> faults;
};

/// Reads one `KEY = value` a line. Blanks (also tabs and carriage returns) around key and value are dropped,
/// empty lines and those that begin with "#" skipped, and so is a byte-order mark at the start. The first
/// "=" separates. A line without one, without a key, or with a NUL is a fault and skipped. Any bytes give
/// a result.
ConfigText parseConfigText(std::string_view text);

/// The last entry of a key (in upper case); null when there is none.
const ConfigEntry* findConfigEntry(const ConfigText& config, std::string_view key);

/// YES, TRUE, ON, 1 and NO, FALSE, OFF, 0, without regard to case; absent for any other text.
std::optional<bool> parseConfigFlag(std::string_view value);

/// A text with its ASCII letters in upper case, as keys are compared.
std::string configUpperCase(std::string_view text);

} // namespace tq
