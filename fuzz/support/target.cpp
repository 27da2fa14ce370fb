#include "fuzz/support/target.h"

#include "platform/json.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace fuzz {

void require(bool holds, const char* property, std::string_view shown)
{
    if (holds)
        return;
    std::fprintf(stderr, "fuzz: this does not hold: %s\n", property);
    std::fwrite(shown.data(), 1, shown.size(), stderr);
    std::fputc('\n', stderr);
    std::abort();
}

std::string_view textOf(const std::uint8_t* data, std::size_t size)
{
    return {reinterpret_cast<const char*>(data), size};
}

bool isUtf8(std::string_view text)
{
    return tq::JsonRef(json_stringn(text.data(), text.size())) != nullptr;
}

bool isJson(std::string_view text)
{
    return tq::JsonRef(json_loadb(text.data(), text.size(), JSON_ALLOW_NUL, nullptr)) != nullptr;
}

bool isControl(char byte)
{
    const auto value = static_cast<unsigned char>(byte);
    return value < 0x20 || value == 0x7f;
}

bool holdsDisguise(std::string_view text)
{
    const auto byteAt = [&](std::size_t at) {
        return at < text.size() ? static_cast<unsigned char>(text[at]) : static_cast<unsigned char>(0);
    };
    const auto isWithin = [](unsigned byte, unsigned first, unsigned last) {
        return byte >= first && byte <= last;
    };
    for (std::size_t at = 0; at < text.size(); ++at) {
        const unsigned second = byteAt(at + 1);
        const unsigned third = byteAt(at + 2);
        const bool isControl = byteAt(at) == 0xc2 && isWithin(second, 0x80, 0x9f);
        const bool isArabicMark = byteAt(at) == 0xd8 && second == 0x9c;
        const bool isLineOrDirection = byteAt(at) == 0xe2 && second == 0x80 &&
                                       (isWithin(third, 0x8e, 0x8f) || isWithin(third, 0xa8, 0xae));
        const bool isIsolate = byteAt(at) == 0xe2 && second == 0x81 && isWithin(third, 0xa6, 0xa9);
        if (isControl || isArabicMark || isLineOrDirection || isIsolate)
            return true;
    }
    return false;
}

void requireLogEntry(std::string_view entry)
{
    require(!entry.empty() && entry.back() == '\n', "an entry ends with its line end", entry);
    require(isUtf8(entry), "an entry is UTF-8", entry);
    require(!holdsDisguise(entry), "an entry turns no direction and begins no line in a viewer", entry);
    Parts lines(entry.substr(0, entry.size() - 1), '\n');
    const std::string_view head = lines.next();
    // "2026-11-20 08:10:42.123 [pid] <level> "
    require(head.size() > 24 && head[4] == '-' && head[23] == ' ' && head[24] == '[' &&
                std::none_of(head.begin(), head.end(), isControl),
            "an entry begins with its time and holds no control character", entry);
    while (!lines.isAtEnd()) {
        const std::string_view line = lines.next();
        require(!line.empty() && line.front() == '\t' &&
                    std::none_of(line.begin() + 1, line.end(), isControl),
                "a line inside an entry begins with a tab and holds no control character", entry);
    }
}

std::string_view Parts::next()
{
    const std::size_t end = rest_.find(separator_);
    const std::string_view part = rest_.substr(0, end);
    atEnd_ = end == std::string_view::npos;
    rest_ = atEnd_ ? std::string_view() : rest_.substr(end + 1);
    return part;
}

} // namespace fuzz
