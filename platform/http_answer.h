/// Answers of a master server as texts for people.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tq {

/// "HTTP status 403", and behind it in brackets the "errMessage" of the body, cut to 500 bytes, if it has
/// one.
std::string describeAnswer(std::int64_t httpStatus, std::string_view body);

} // namespace tq
