/// Values made from an input's bytes, for targets whose input is a structure and no text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzz {

/// Takes values from the front; behind the end every byte is 0.
class ByteSource {
public:
    ByteSource(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

    std::uint8_t byte()
    {
        if (left_ == 0)
            return 0;
        --left_;
        return *data_++;
    }
    bool flag() { return (byte() & 1U) != 0; }
    /// 0 to most.
    std::size_t number(std::size_t most) { return byte() % (most + 1); }

    /// UTF-8 of up to `most` characters, any but NUL and `without`.
    std::string text(std::size_t most, char32_t without = 0);

private:
    char32_t character();

    const std::uint8_t* data_;
    std::size_t left_;
};

/// ASCII three times out of four; else any other code point, surrogates left out.
inline char32_t ByteSource::character()
{
    const std::uint8_t first = byte();
    if (first < 0xc0)
        return first & 0x7fU;
    const char32_t code = ((first & 0x3fU) << 16U | static_cast<char32_t>(byte()) << 8U | byte()) % 0x110000;
    return code >= 0xd800 && code < 0xe000 ? code - 0xd800 + 0xe000 : code;
}

inline std::string ByteSource::text(std::size_t most, char32_t without)
{
    std::string text;
    const auto add = [&](char32_t bits) { text += static_cast<char>(static_cast<unsigned char>(bits)); };
    for (std::size_t left = number(most); left > 0; --left) {
        const char32_t code = character();
        if (code == 0 || code == without)
            continue;
        if (code < 0x80) {
            add(code);
            continue;
        }
        if (code < 0x800) {
            add(0xc0U | code >> 6U);
        } else if (code < 0x10000) {
            add(0xe0U | code >> 12U);
            add(0x80U | (code >> 6U & 0x3fU));
        } else {
            add(0xf0U | code >> 18U);
            add(0x80U | (code >> 12U & 0x3fU));
            add(0x80U | (code >> 6U & 0x3fU));
        }
        add(0x80U | (code & 0x3fU));
    }
    return text;
}

} // namespace fuzz
