#include "platform/log_entry.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace tq {

namespace {

/// Bytes of a context that are shown: it is a function's or program's name, and whatever a caller chose as
/// the program's name must leave room for the text.
constexpr std::size_t CONTEXT_MAX_BYTES = 1024;

/// Room for the note of the bytes left out and the line end.
constexpr std::size_t NOTE_MAX_BYTES = 64;

/// A character of a text: its code point and its bytes.
struct Character {
    char32_t code = 0;
    std::size_t bytes = 1;
    bool valid = false; ///< false for a byte that is not UTF-8
};

/// The lowest code point that takes this many bytes; a lower one in them is not UTF-8.
constexpr std::array<char32_t, 5> LOWEST_OF_LENGTH{0, 0, 0x80, 0x800, 0x10000};

std::size_t sequenceLength(unsigned char first)
{
    if (first < 0x80)
        return 1;
    if (first >= 0xc2 && first < 0xe0)
        return 2;
    if (first >= 0xe0 && first < 0xf0)
        return 3;
    return first >= 0xf0 && first < 0xf5 ? 4 : 0;
}

/// The first character of a text that is not empty.
Character decode(std::string_view text)
{
    const auto first = static_cast<unsigned char>(text.front());
    const std::size_t length = sequenceLength(first);
    if (length == 0 || length > text.size())
        return {};
    if (length == 1)
        return {first, 1, true};
    char32_t code = first & (0x7fU >> length);
    for (const char byte : text.substr(1, length - 1)) {
        if ((static_cast<unsigned char>(byte) & 0xc0U) != 0x80)
            return {};
        code = (code << 6U) | (static_cast<unsigned char>(byte) & 0x3fU);
    }
    const bool surrogate = code >= 0xd800 && code <= 0xdfff;
    if (code < LOWEST_OF_LENGTH[length] || code > 0x10ffff || surrogate)
        return {};
    return {code, length, true};
}

bool isControl(char32_t code)
{
    return code < 0x20 || (code >= 0x7f && code <= 0x9f);
}

/// Characters that begin a line or turn the direction of what follows in some viewers.
bool isDisguise(char32_t code)
{
    return code == 0x061c || code == 0x200e || code == 0x200f || (code >= 0x2028 && code <= 0x202e) ||
           (code >= 0x2066 && code <= 0x2069);
}

void appendEscaped(std::string& entry, std::string_view bytes)
{
    constexpr const char* DIGITS = "0123456789abcdef";
    for (const char byte : bytes) {
        entry += "\\x";
        entry += DIGITS[static_cast<unsigned char>(byte) >> 4U];
        entry += DIGITS[static_cast<unsigned char>(byte) & 0xfU];
    }
}

/// Appends the first character of a text, as it may be shown. Returns how many bytes of the text it took.
std::size_t appendCharacter(std::string& entry, std::string_view text)
{
    const Character character = decode(text);
    const std::string_view bytes = text.substr(0, character.bytes);
    if (character.valid && !isControl(character.code) && !isDisguise(character.code))
        entry += bytes;
    else
        appendEscaped(entry, bytes);
    return character.bytes;
}

std::string_view withoutLineEnds(std::string_view text)
{
    const std::size_t last = text.find_last_not_of("\r\n");
    return last == std::string_view::npos ? std::string_view() : text.substr(0, last + 1);
}

std::string timeText(std::chrono::system_clock::time_point time)
{
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(time - seconds);
    const time_t clock = std::chrono::system_clock::to_time_t(seconds);
    tm local{};
    localtime_r(&clock, &local);
    std::array<char, 64> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    std::snprintf(text.data() + length, text.size() - length, ".%03d",
                  static_cast<int>(milliseconds.count()));
    return text.data();
}

/// Bytes at the start of a text that are shown as they are: nearly always all of them.
std::size_t plainLength(std::string_view text)
{
    const auto* end =
        std::find_if(text.begin(), text.end(), [](char byte) { return byte < ' ' || byte > '~'; });
    return static_cast<std::size_t>(end - text.begin());
}

/// Appends a context. Returns the bytes left out.
std::size_t appendContext(std::string& entry, std::string_view context)
{
    const std::string_view shown = context.substr(0, CONTEXT_MAX_BYTES);
    std::size_t position = plainLength(shown);
    entry += shown.substr(0, position);
    while (position < shown.size())
        position += appendCharacter(entry, shown.substr(position));
    return context.size() - shown.size();
}

/// Appends a text as far as the entry has room for it, or for it and the note when it has to be cut. Returns
/// the bytes left out.
std::size_t appendText(std::string& entry, std::string_view text)
{
    std::size_t cutLength = entry.size();
    std::size_t cutPosition = 0;
    std::size_t position = 0;
    if (entry.size() + text.size() + NOTE_MAX_BYTES <= LOG_ENTRY_MAX_BYTES) {
        position = plainLength(text);
        entry += text.substr(0, position);
    }
    while (position < text.size()) {
        if (entry.size() + NOTE_MAX_BYTES <= LOG_ENTRY_MAX_BYTES) {
            cutLength = entry.size();
            cutPosition = position;
        }
        if (text[position] == '\n') {
            entry += "\n\t";
            ++position;
        } else {
            position += appendCharacter(entry, text.substr(position));
        }
        if (entry.size() >= LOG_ENTRY_MAX_BYTES) {
            entry.resize(cutLength);
            return text.size() - cutPosition;
        }
    }
    return 0;
}

} // namespace

std::string formatLogEntry(std::chrono::system_clock::time_point time, int level, std::string_view context,
                           std::string_view text)
{
    std::string entry =
        timeText(time) + " [" + std::to_string(getpid()) + "] <" + std::to_string(level) + "> ";
    std::size_t leftOut = appendContext(entry, context);
    entry += ": ";
    leftOut += appendText(entry, withoutLineEnds(text));
    if (leftOut > 0)
        entry += " [" + std::to_string(leftOut) + " bytes left out]";
    entry += '\n';
    return entry;
}

} // namespace tq
