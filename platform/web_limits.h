/// How long and how much one request may take.
#pragma once

#include "platform/config.h"

#include <cstdint>

namespace tq {

/// Limits of one request.
struct WebLimits {
    std::int64_t connectMs = 30'000;                         ///< name look-up, connect and TLS handshake
    std::int64_t totalMs = 120'000;                          ///< the request from its start to its end
    std::int64_t stallSeconds = 60;                          ///< without a byte in either direction
    std::uint64_t maxReplyBytes = std::uint64_t{1024} << 20; ///< decoded body
};

/// The limits that the configuration sets.
WebLimits webLimits(const PlatformSettings& settings);

} // namespace tq
