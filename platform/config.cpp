#include "platform/config.h"

#include "platform/config_file.h"
#include "platform/debuglog.h"
#include "platform/file_io.h"
#include "platform/paths.h"
#include "platform/server_name.h"
#include "platform/status.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace {

constexpr std::string_view SERVER_KEY = "SERVER";

/// Characters of a refused name that its log entry shows; a good name is no longer.
constexpr std::size_t SHOWN_NAME_CHARACTERS = 253;

TQMasterConfig& masterConfig()
{
    static TQMasterConfig config;
    return config;
}

int readProductConfig(tq::ConfigText& config, const char* context)
{
    const int status = tq::readConfigFile(TQ_CONFIG_FILE, config, context);
    if (status == EC_file_open_failed)
        LogLine(LogLevel::error, context)
            << "Unable to open " << TQ_CONFIG_FILE << ": " << tq::fileFault(errno);
    return status;
}

/// Whether the entry's value is a good server name; a refused one is logged.
bool hasGoodServerName(const tq::ConfigEntry& entry, const char* context)
{
    const char* fault = tq::serverNameFault(entry.value);
    if (fault) {
        LogLine(LogLevel::error, context)
            << TQ_CONFIG_FILE << ": line " << entry.line << ": server name ["
            << entry.value.substr(0, SHOWN_NAME_CHARACTERS) << "] is refused: " << fault;
    }
    return fault == nullptr;
}

void addServerName(const tq::ConfigEntry& entry, const char* context, TQMasterConfig& config)
{
    const bool first = !config.serverNames.has_value();
    if (first)
        config.serverNames.emplace();
    if (hasGoodServerName(entry, context))
        config.serverNames->push_back(entry.value);
    else if (first)
        config.serverNames->emplace_back();
}

} // namespace

int ReadHostConfigExA(int mode, TQHostConfig* config, int /*reserved1*/, int /*reserved2*/, int /*reserved3*/)
{
    constexpr const char* CONTEXT = "ReadHostConfigExA";
    if (mode != TQ_CONFIG_LOCAL_ONLY || !config)
        return EC_invalid_argument;
    tq::ConfigText text;
    if (const int status = readProductConfig(text, CONTEXT); status != EC_success)
        return status;
    TQServerEntry** end = &config->servers;
    for (const tq::ConfigEntry& entry : text.entries) {
        if (entry.key != SERVER_KEY || !hasGoodServerName(entry, CONTEXT))
            continue;
        auto added = std::make_unique<TQServerEntry>(TQServerEntry{strdup(entry.value.c_str()), nullptr});
        if (!added->serverName)
            throw std::bad_alloc();
        *end = added.release(); // FreeHostConfigA releases it
        end = &(*end)->next;
    }
    return EC_success;
}

void FreeHostConfigA(TQHostConfig* config)
{
    if (!config)
        return;
    while (config->servers) {
        const std::unique_ptr<TQServerEntry> entry(config->servers);
        config->servers = entry->next;
        std::free(entry->serverName);
    }
}

int TQ_read_master_config()
{
    constexpr const char* CONTEXT = "TQ_read_master_config";
    tq::ConfigText text;
    if (const int status = readProductConfig(text, CONTEXT); status != EC_success)
        return status;
    TQMasterConfig config;
    for (tq::ConfigEntry& entry : text.entries) {
        if (entry.key == SERVER_KEY)
            addServerName(entry, CONTEXT, config);
        else
            config.values[entry.key] = std::move(entry.value);
    }
    masterConfig() = std::move(config);
    return EC_success;
}

const TQMasterConfig* get_master_config_ptr()
{
    return &masterConfig();
}

int kxconfGetKeyValPair(const TQMasterConfig* config, const char* key, char** value)
{
    if (!config || !key || !value)
        return EC_invalid_argument;
    const auto found = config->values.find(tq::configUpperCase(key));
    if (found == config->values.end())
        return EC_file_read_failed;
    char* copy = strdup(found->second.c_str());
    if (!copy)
        return EC_file_read_failed;
    *value = copy;
    return EC_success;
}

int kxconfGetKeyValPairAsBool(const TQMasterConfig* config, const char* key, int* flag)
{
    if (!config || !key || !flag)
        return EC_invalid_argument;
    const auto found = config->values.find(tq::configUpperCase(key));
    if (found == config->values.end())
        return EC_file_read_failed;
    const std::optional<bool> value = tq::parseConfigFlag(found->second);
    if (!value)
        return EC_file_read_failed;
    *flag = *value ? 1 : 0;
    return EC_success;
}

int getTQInstallDir(char* buffer, int size)
{
    const std::string_view directory = TQ_INSTALL_DIR;
    if (!buffer || size <= 0 || directory.size() >= static_cast<std::size_t>(size))
        return EC_invalid_argument;
    std::memcpy(buffer, directory.data(), directory.size() + 1);
    return EC_success;
}
