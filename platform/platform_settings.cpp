// Apart from config.cpp: programs take their settings from here even where a test fakes the rest of config.h.
#include "platform/config.h"
#include "platform/config_file.h"
#include "platform/debuglog.h"
#include "platform/paths.h"

#include <charconv>
#include <optional>
#include <string_view>

namespace tq {
namespace {

struct Setting {
    const char* key;
    int PlatformSettings::*value;
    int least;
    int most;
};

constexpr Setting SETTINGS[] = {
    {"DEBUG_LOG_LEVEL", &PlatformSettings::debugLogLevel, 0, 16}, // errors are always written
    {"DEBUG_LOG_DAYS", &PlatformSettings::debugLogDays, 0, 36500},
    {"WEB_CONNECT_SECONDS", &PlatformSettings::webConnectSeconds, 1, 3600},
    {"WEB_TRANSFER_SECONDS", &PlatformSettings::webTransferSeconds, 1, 86400},
    {"WEB_MAX_REPLY_MB", &PlatformSettings::webMaxReplyMegabytes, 1, 65536},
};

/// Characters of a refused value that its log entry shows.
constexpr std::size_t SHOWN_CHARACTERS = 64;

std::optional<int> parseNumber(std::string_view text, int least, int most)
{
    int number = 0;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    if (parsed.ec != std::errc() || parsed.ptr != end || number < least || number > most)
        return std::nullopt;
    return number;
}

} // namespace

PlatformSettings readPlatformSettings()
{
    constexpr const char* CONTEXT = "readPlatformSettings";
    PlatformSettings settings;
    ConfigText config;
    if (readConfigFile(TQ_CONFIG_FILE, config, CONTEXT) != 0)
        return settings;
    for (const Setting& setting : SETTINGS) {
        const ConfigEntry* entry = findConfigEntry(config, setting.key);
        if (!entry)
            continue;
        if (const std::optional<int> number = parseNumber(entry->value, setting.least, setting.most)) {
            settings.*setting.value = *number;
        } else {
            LogLine(LogLevel::warning, CONTEXT)
                << TQ_CONFIG_FILE << ": line " << entry->line << ": " << setting.key << " = ["
                << entry->value.substr(0, SHOWN_CHARACTERS) << "] is not a number from " << setting.least
                << " to " << setting.most << "; " << settings.*setting.value << " is used";
        }
    }
    return settings;
}

} // namespace tq
