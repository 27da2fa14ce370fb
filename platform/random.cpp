#include "platform/random.h"

#include <cstdlib>

namespace tq {

std::string hexDigits(const unsigned char* bytes, std::size_t count)
{
    static constexpr const char* DIGITS = "0123456789abcdef";
    std::string text;
    text.reserve(count * 2);
    for (std::size_t i = 0; i < count; ++i) {
        text += DIGITS[bytes[i] >> 4U];
        text += DIGITS[bytes[i] & 0x0FU];
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

} // namespace tq
