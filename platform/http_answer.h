/// Answers of a master server: their HTTP statuses, and what they say as texts for people.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tq {

inline constexpr std::int64_t HTTP_OK = 200;
inline constexpr std::int64_t HTTP_CREATED = 201;
inline constexpr std::int64_t HTTP_NO_CONTENT = 204;
inline constexpr std::int64_t HTTP_UNAUTHORIZED = 401;
inline constexpr std::int64_t HTTP_FORBIDDEN = 403;

/// "HTTP status 403", and behind it in brackets the "errMessage" of the body, cut to 500 bytes, if it has
/// one.
std::string describeAnswer(std::int64_t httpStatus, std::string_view body);

} // namespace tq
