/// The service's settings: a small JSON file in its data folder, read at start and on request.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace masterd {

/// Every key may be absent; its default then holds.
struct Settings {
    std::int64_t tokenLifetimeSeconds = 3600; ///< "tokenLifetimeSeconds", 1 to 604800 (a week)
    int certificateDays = 730; ///< "certificateDays", 1 to 3650: of certificates issued from now on
};

/// Settings of a JSON text. Throws std::runtime_error, saying which key or line is wrong, for a text that is
/// no JSON object, an unknown key (a misspelt one would change nothing, unseen) and a value out of its range.
Settings parseSettings(std::string_view text);

/// The text that init() writes: all keys with their defaults.
std::string defaultSettingsText();

/// The settings in force. Safe for use by several threads.
class SettingsFile {
public:
    /// Reads the file; one that is absent means the defaults. Throws std::runtime_error, naming the file,
    /// when it cannot be read or holds a fault.
    explicit SettingsFile(std::string path);

    /// Reads the file again. Throws as the constructor does; the settings in force then stay.
    void reload();

    [[nodiscard]] Settings current() const;

private:
    std::string path_;
    mutable std::mutex mutex_;
    Settings settings_;
};

} // namespace masterd
