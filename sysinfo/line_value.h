/// Values of "key: value" and "key = value" lines.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace SYSINFO_NAMESPACE {

/// Text that begins two characters behind the last separator, so that one character, normally a blank, is
/// skipped, and ends before the first line feed, carriage return, form feed, NUL or the line's own end. Empty
/// when it would begin beyond that. Absent when the line has no separator, or no end within 2048 characters.
std::optional<std::string> valueAfterLast(char separator, std::string_view line);

/// Whether a part, letter by letter, stands anywhere in a text; the empty one stands in every text.
bool contains(std::string_view text, std::string_view part);

/// What follows the blanks, and no other white space, at the beginning.
std::string withoutLeadingBlanks(const std::string& text);

} // namespace SYSINFO_NAMESPACE
