#include "platform/random.h"

#include <cstdlib>

namespace tq {

namespace {

constexpr const char* HEX_DIGITS = "0123456789abcdef";

} // namespace

std::string hexDigits(const unsigned char* bytes, std::size_t count)
{
    std::string text;
    text.reserve(count * 2);
    for (std::size_t i = 0; i < count; ++i) {
        text += HEX_DIGITS[bytes[i] >> 4U];
        text += HEX_DIGITS[bytes[i] & 0x0FU];
    }
    return text;
}

std::string randomBytes(std::size_t count)
{
    std::string bytes(count, '\0');
    arc4random_buf(bytes.data(), bytes.size());
    return bytes;
}

std::string randomHex(std::size_t bytes)
{
    const std::string random = randomBytes(bytes);
    return hexDigits(reinterpret_cast<const unsigned char*>(random.data()), random.size());
}

bool isHexText(std::string_view text, std::size_t bytes)
{
    return text.size() == 2 * bytes && text.find_first_not_of(HEX_DIGITS) == std::string_view::npos;
}

} // namespace tq
