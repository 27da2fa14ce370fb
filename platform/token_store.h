/// Access tokens: the file beside the identity store, and the server's reply that brings a new one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tq {

/// An access token and when its server said that it ends.
struct AccessToken {
    std::string text;
    std::int64_t expiresAt = 0; ///< Unix seconds; a hint only, since clocks jump: the server decides
};

/// Largest token file, and largest reply with a token, that is looked at.
inline constexpr std::size_t TOKEN_TEXT_MAX_BYTES = std::size_t{64} * 1024;

/// Whether a text may be sent as a token: 1 to 8192 printable ASCII characters without blanks, so that it can
/// neither end a header line nor begin another.
bool isTokenText(std::string_view text);

/// Parses `{"token": "...", "expiresAt": <Unix seconds>}`; absent for anything else.
std::optional<AccessToken> parseTokenFile(std::string_view text);

/// The same token as a file's text.
std::string formatTokenFile(const AccessToken& token);

/// Parses a reply `{"token": "...", "expiresIn": <seconds>}` that was received at `now` (Unix seconds).
/// Absent for anything else, and for a validity that is negative. One beyond a year counts as a year.
std::optional<AccessToken> parseTokenReply(std::string_view body, std::int64_t now);

/// Reads a token file. Absent when there is none; absent too, with one level-8 entry naming file and cause,
/// when it cannot be read, is larger than TOKEN_TEXT_MAX_BYTES or damaged.
std::optional<AccessToken> readToken(const std::string& path);

/// Replaces a token file whole, mode 0600. False, with one level-16 entry, when it could not; the old file
/// is then untouched.
[[nodiscard]] bool storeToken(const std::string& path, const AccessToken& token);

} // namespace tq
