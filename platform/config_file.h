/// Reading a file in the configuration's syntax.
#pragma once

#include "platform/config_text.h"

#include <cstddef>
#include <string>

namespace tq {

/// Largest configuration or cluster state file that is read.
inline constexpr std::size_t CONFIG_MAX_BYTES = std::size_t{1} << 20;

/// Reads and parses a file (links are followed). Each of the first lines that are skipped as faulty gets a
/// level-8 entry with its number, the rest one entry together.
/// Returns 0; 12 when it cannot be opened, with errno set and no entry, since some files may be absent;
/// 13 with a level-16 entry when it cannot be read or is larger than CONFIG_MAX_BYTES.
int readConfigFile(const std::string& path, ConfigText& config, const char* context);

} // namespace tq
