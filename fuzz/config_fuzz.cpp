/// kx.conf, by both of its readers: the product configuration and the host probe.
#include "fuzz/support/described_host.h"
#include "fuzz/support/target.h"
#include "platform/config.h"
#include "platform/config_text.h"
#include "platform/paths.h"
#include "platform/server_name.h"
#include "sysinfo/host_info.h"
#include "sysinfo/system_info.h"

#include <algorithm>

namespace {

using fuzz::require;

/// Entries written as the documentation asks for them.
std::string written(const tq::ConfigText& config)
{
    std::string text;
    for (const tq::ConfigEntry& entry : config.entries)
        text += entry.key + " = " + entry.value + '\n';
    return text;
}

bool sameEntries(const tq::ConfigText& one, const tq::ConfigText& other)
{
    return std::equal(one.entries.begin(), one.entries.end(), other.entries.begin(), other.entries.end(),
                      [](const tq::ConfigEntry& a, const tq::ConfigEntry& b) {
                          return a.key == b.key && a.value == b.value;
                      });
}

void checkText(std::string_view text)
{
    const tq::ConfigText config = tq::parseConfigText(text);
    const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
    require(config.entries.size() + config.faults.size() <= lines, "a line gives one entry at most");
    for (const tq::ConfigEntry& entry : config.entries) {
        require(entry.line >= 1 && entry.line <= lines, "an entry's line is one of the text");
        require((entry.key + entry.value).find_first_of(std::string_view("\n\0", 2)) == std::string::npos,
                "an entry holds neither line end nor NUL", entry.key);
        require(tq::findConfigEntry(config, entry.key)->line >= entry.line, "the last entry holds");
        tq::parseConfigFlag(entry.value);
    }
    // A key that begins with a byte-order mark would lose it, as the first of a text.
    const bool marked = !config.entries.empty() && config.entries.front().key.rfind("\xEF\xBB\xBF", 0) == 0;
    if (!marked)
        require(sameEntries(tq::parseConfigText(written(config)), config),
                "entries written and read back are the same", written(config));
}

void checkProductReader()
{
    require(TQ_read_master_config() == 0, "a file that is there is read");
    const TQMasterConfig& config = *get_master_config_ptr();
    TQHostConfig host{};
    require(ReadHostConfigExA(TQ_CONFIG_LOCAL_ONLY, &host, 0, 0, 0) == 0, "both reads succeed");
    std::vector<std::string> names;
    for (const TQServerEntry* entry = host.servers; entry; entry = entry->next) {
        names.emplace_back(entry->serverName);
        require(tq::serverNameFault(names.back()) == nullptr, "a server's name is a good one", names.back());
    }
    FreeHostConfigA(&host);
    std::vector<std::string> expected = config.serverNames.value_or(std::vector<std::string>());
    if (!expected.empty() && expected.front().empty()) // the first name was refused
        expected.erase(expected.begin());
    require(names == expected, "both lists name the same servers");
}

void checkSettings()
{
    const tq::PlatformSettings settings = tq::readPlatformSettings();
    require(settings.debugLogLevel >= 0 && settings.debugLogLevel <= 16 && settings.debugLogDays >= 0 &&
                settings.webConnectSeconds >= 1 && settings.webTransferSeconds >= 1 &&
                settings.webMaxReplyMegabytes >= 1 && settings.webMaxReplyMegabytes <= 65536,
            "settings are within their ranges");
}

void checkName(const std::string& name)
{
    require(!name.empty() && name.find_first_of("\n\r\f") == std::string::npos,
            "a configured name is not empty and is of one line", name);
    require(name == SYSINFO_NAMESPACE::NULL_MARKER ||
                std::none_of(name.begin(), name.end(), [](char c) { return c >= 'A' && c <= 'Z'; }),
            "a configured name is in lower case", name);
}

void checkProbe()
{
    const SYSINFO_NAMESPACE::UnixHostInfo probe;
    checkName(probe.getTquClientName());
    checkName(probe.getTquClusterName());
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text = fuzz::textOf(data, size);
    checkText(text);
    fuzz::describeEveryOutput(text);
    fuzz::host().files[TQ_CONFIG_FILE] = text;
    checkProductReader();
    checkSettings();
    checkProbe();
    return 0;
}
