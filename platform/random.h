/// Random values from the kernel's generator, and bytes as digits. They need no library and cannot fail.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tq {

/// Bytes as lower-case hexadecimal digits, two a byte.
std::string hexDigits(const unsigned char* bytes, std::size_t count);

/// That many random bytes, good enough for keys and tokens.
std::string randomBytes(std::size_t count);

/// `bytes` random bytes as lower-case hexadecimal digits, two a byte.
std::string randomHex(std::size_t bytes);

/// Whether a text is what randomHex(bytes) gives.
bool isHexText(std::string_view text, std::size_t bytes);

} // namespace tq
