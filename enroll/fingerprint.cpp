#include "enroll/fingerprint.h"

namespace enroll {

namespace {

constexpr std::size_t DIGITS = 64;
constexpr std::size_t DIGITS_WITH_COLONS = DIGITS + DIGITS / 2 - 1;

std::optional<char> lowerHexDigit(char digit)
{
    if ((digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f'))
        return digit;
    if (digit >= 'A' && digit <= 'F')
        return static_cast<char>(digit - 'A' + 'a');
    return std::nullopt;
}

} // namespace

std::optional<std::string> parseFingerprint(std::string_view text)
{
    const bool hasColons = text.size() == DIGITS_WITH_COLONS;
    if (!hasColons && text.size() != DIGITS)
        return std::nullopt;
    std::string digits;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (hasColons && i % 3 == 2) {
            if (text[i] != ':')
                return std::nullopt;
            continue;
        }
        const std::optional<char> digit = lowerHexDigit(text[i]);
        if (!digit)
            return std::nullopt;
        digits += *digit;
    }
    return digits;
}

} // namespace enroll
