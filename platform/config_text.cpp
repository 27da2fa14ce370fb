#include "platform/config_text.h"

#include <algorithm>
#include <utility>

namespace tq {
namespace {

constexpr std::string_view BLANKS = " \t\r\v\f";
constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";

std::string_view trimmed(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(BLANKS);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

void parseLine(std::string_view line, std::size_t number, ConfigText& config)
{
    line = trimmed(line);
    if (line.empty() || line.front() == '#')
        return;
    const std::size_t separator = line.find('=');
    if (line.find('\0') != std::string_view::npos)
        config.faults.push_back({number, "holds a NUL character"});
    else if (separator == std::string_view::npos)
        config.faults.push_back({number, "has no '='"});
    else if (separator == 0)
        config.faults.push_back({number, "has no key before the '='"});
    else
        config.entries.push_back({configUpperCase(trimmed(line.substr(0, separator))),
                                  std::string(trimmed(line.substr(separator + 1))), number});
}

} // namespace

ConfigText parseConfigText(std::string_view text)
{
    if (text.substr(0, BYTE_ORDER_MARK.size()) == BYTE_ORDER_MARK)
        text.remove_prefix(BYTE_ORDER_MARK.size());
    ConfigText config;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        parseLine(text.substr(0, end), number, config);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return config;
}

const ConfigEntry* findConfigEntry(const ConfigText& config, std::string_view key)
{
    const auto found = std::find_if(config.entries.rbegin(), config.entries.rend(),
                                    [&](const ConfigEntry& entry) { return entry.key == key; });
    return found == config.entries.rend() ? nullptr : &*found;
}

std::optional<bool> parseConfigFlag(std::string_view value)
{
    static constexpr std::pair<std::string_view, bool> WORDS[] = {
        {"YES", true}, {"TRUE", true},   {"ON", true},   {"1", true},
        {"NO", false}, {"FALSE", false}, {"OFF", false}, {"0", false},
    };
    const std::string upper = configUpperCase(value);
    for (const auto& [word, flag] : WORDS) {
        if (upper == word)
            return flag;
    }
    return std::nullopt;
}

std::string configUpperCase(std::string_view text)
{
    std::string upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    return upper;
}

} // namespace tq
