/// The fingerprint by which an administrator names a master server's authority.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace enroll {

/// A SHA-256 fingerprint as people write it (64 hexadecimal digits in either case, with or without colons
/// between the bytes) as 64 lower-case digits; absent for anything else.
std::optional<std::string> parseFingerprint(std::string_view text);

} // namespace enroll
