#include "platform/config_file.h"

#include "platform/debuglog.h"
#include "platform/file_io.h"
#include "platform/status.h"

#include <algorithm>
#include <cerrno>
#include <optional>

namespace tq {
namespace {

/// Entries about single lines; a binary file must not flood the log.
constexpr std::size_t MAX_FAULTS_NAMED = 10;

void noteFaults(const std::string& path, const ConfigText& config, const char* context)
{
    const std::size_t named = std::min(config.faults.size(), MAX_FAULTS_NAMED);
    for (std::size_t i = 0; i < named; ++i) {
        LogLine(LogLevel::warning, context) << path << ": line " << config.faults[i].line << " "
                                            << config.faults[i].reason << " and is skipped";
    }
    if (named < config.faults.size()) {
        LogLine(LogLevel::warning, context)
            << path << ": " << config.faults.size() - named << " more lines are skipped";
    }
}

} // namespace

int readConfigFile(const std::string& path, ConfigText& config, const char* context)
{
    bool readFailed = false;
    const std::optional<std::string> text = readFile(path, CONFIG_MAX_BYTES, &readFailed);
    if (!text) {
        if (!readFailed && errno != EFBIG)
            return EC_file_open_failed;
        LogLine(LogLevel::error, context) << "Unable to read " << path << ": " << fileFault(errno);
        return EC_file_read_failed;
    }
    config = parseConfigText(*text);
    noteFaults(path, config, context);
    return EC_success;
}

} // namespace tq
