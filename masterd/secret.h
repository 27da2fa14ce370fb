/// Invitations and access tokens: what the client holds, and what the store keeps of it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace masterd {

/// A secret in two parts. The store finds it by `id`, which tells nothing, and keeps only the hash of
/// `secret`, so that neither a look-up's duration nor a stolen database gives a usable text away.
struct Secret {
    std::string id;     ///< 16 hexadecimal digits
    std::string secret; ///< 64 hexadecimal digits (256 random bits)

    /// What is handed to the client: "id.secret".
    [[nodiscard]] std::string text() const;
    /// What the store keeps: SHA-256 of `secret` in hexadecimal digits.
    [[nodiscard]] std::string hash() const;
    /// Whether `storedHash` is this secret's, compared in constant time.
    [[nodiscard]] bool matches(std::string_view storedHash) const;
};

/// A new random secret. Throws std::runtime_error when there is no randomness to be had.
Secret makeSecret();

/// Takes a client's text apart; absent when it has not the form of text().
std::optional<Secret> parseSecret(std::string_view text);

} // namespace masterd
