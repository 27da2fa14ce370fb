#include "masterd/settings.h"

#include "platform/file_io.h"
#include "platform/json.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace masterd {

namespace {

constexpr std::size_t MAX_BYTES = std::size_t{64} * 1024;
constexpr const char* TOKEN_LIFETIME_KEY = "tokenLifetimeSeconds";
constexpr const char* CERTIFICATE_DAYS_KEY = "certificateDays";
constexpr std::int64_t TOKEN_LIFETIME_MAX = 604800;
constexpr int CERTIFICATE_DAYS_MAX = 3650;

std::int64_t readNumber(const char* key, const json_t* value, std::int64_t most)
{
    if (!json_is_integer(value) || json_integer_value(value) < 1 || json_integer_value(value) > most)
        throw std::runtime_error("\"" + std::string(key) + "\" is not a whole number from 1 to " +
                                 std::to_string(most));
    return json_integer_value(value);
}

Settings readSettingsFile(const std::string& path)
{
    bool readFailed = false;
    const std::optional<std::string> text = tq::readFile(path, MAX_BYTES, &readFailed);
    if (!text && !readFailed && errno == ENOENT)
        return {};
    if (!text)
        throw std::runtime_error("cannot read " + path + ": " + tq::fileFault(errno));
    try {
        return parseSettings(*text);
    } catch (const std::runtime_error& fault) {
        throw std::runtime_error(path + ": " + fault.what());
    }
}

} // namespace

Settings parseSettings(std::string_view text)
{
    json_error_t error{};
    const tq::JsonRef document(json_loadb(text.data(), text.size(), JSON_REJECT_DUPLICATES, &error));
    if (!document)
        throw std::runtime_error("line " + std::to_string(error.line) + ": " + error.text);
    if (!json_is_object(document.get()))
        throw std::runtime_error("it is not a JSON object");
    Settings settings;
    const char* key = nullptr;
    json_t* value = nullptr;
    json_object_foreach(document.get(), key, value)
    {
        if (std::strcmp(key, TOKEN_LIFETIME_KEY) == 0)
            settings.tokenLifetimeSeconds = readNumber(key, value, TOKEN_LIFETIME_MAX);
        else if (std::strcmp(key, CERTIFICATE_DAYS_KEY) == 0)
            settings.certificateDays = static_cast<int>(readNumber(key, value, CERTIFICATE_DAYS_MAX));
        else
            throw std::runtime_error("unknown key \"" + std::string(key) + "\"");
    }
    return settings;
}

std::string defaultSettingsText()
{
    const Settings defaults;
    return std::string("{\n  \"") + TOKEN_LIFETIME_KEY +
           "\": " + std::to_string(defaults.tokenLifetimeSeconds) + ",\n  \"" + CERTIFICATE_DAYS_KEY +
           "\": " + std::to_string(defaults.certificateDays) + "\n}\n";
}

SettingsFile::SettingsFile(std::string path) : path_(std::move(path)), settings_(readSettingsFile(path_)) {}

void SettingsFile::reload()
{
    const Settings settings = readSettingsFile(path_);
    const std::lock_guard lock(mutex_);
    settings_ = settings;
}

Settings SettingsFile::current() const
{
    const std::lock_guard lock(mutex_);
    return settings_;
}

} // namespace masterd
