#include "hostinfo/tqclntdb_hostinfo.h"
#include "platform/config.h"
#include "platform/debuglog.h"
#include "platform/portable.h"
#include "utils/tqclntdb_utils_real.h"

namespace TQCLNTDB {
namespace {

constexpr const char* MACHINE_TQU_TYPE_KEY = "MACHINE_TQU_TYPE";

/// Owns what ReadHostConfigExA fills.
class HostConfig {
public:
    HostConfig() = default;
    HostConfig(const HostConfig&) = delete;
    HostConfig& operator=(const HostConfig&) = delete;
    ~HostConfig() { FreeHostConfigA(&config_); }

    [[nodiscard]] int read() { return ReadHostConfigExA(TQ_CONFIG_LOCAL_ONLY, &config_, 0, 0, 0); }
    [[nodiscard]] const TQServerEntry* servers() const { return config_.servers; }

private:
    TQHostConfig config_{};
};

} // namespace

int CHostInformation::loadHostInfoFromKXConf()
{
    constexpr const char* CONTEXT = "CHostInformation::loadHostInfoFromKXConf";
    HostConfig config;
    if (const int status = config.read(); status != 0) {
        LogLine(LogLevel::error, CONTEXT) << "Failed to read kx.conf";
        return status;
    }
    std::size_t count = 0;
    for (const TQServerEntry* entry = config.servers(); entry; entry = entry->next) {
        servers.emplace_back(entry->serverName);
        ++count;
    }
    LogLine(LogLevel::progress, CONTEXT) << "Found " << count << " server entries";
    T::getTQInstalledVersionStr(tquVersion); // a host without a version is described all the same
    return 0;
}

int CHostInformation::getMachineTquType(std::string& out)
{
    constexpr const char* CONTEXT = "CHostInformation::getMachineTquType";
    if (const int status = TQ_read_master_config(); status != 0) {
        LogLine(LogLevel::error, CONTEXT) << "TQ_read_master_config() failed, status = " << status;
        return status;
    }
    char* found = nullptr;
    const int absent = kxconfGetKeyValPair(get_master_config_ptr(), MACHINE_TQU_TYPE_KEY, &found);
    const tq::MallocText value(found);
    if (absent != 0) {
        LogLine(LogLevel::progress, CONTEXT)
            << "No value found for '" << MACHINE_TQU_TYPE_KEY << "' in the Torquenix configuration";
        return 0;
    }
    LogLine(LogLevel::progress, CONTEXT) << "Found " << MACHINE_TQU_TYPE_KEY << " = " << value.get();
    out = value.get();
    return 0;
}

} // namespace TQCLNTDB
