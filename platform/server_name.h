/// The rule for server names that come from files and end up in paths and URLs.
#pragma once

#include <string_view>

namespace tq {

/// Why a server name is refused, as a short English text for the log; null for a good name. Refused: empty,
/// longer than 253 bytes, beginning with ".", holding "/", white space or a control character, and "daemon",
/// which would share a lock file with the daemon.
const char* serverNameFault(std::string_view name);

} // namespace tq
