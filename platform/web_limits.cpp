#include "platform/web_limits.h"

namespace tq {

WebLimits webLimits(const PlatformSettings& settings)
{
    WebLimits limits;
    limits.connectMs = std::int64_t{settings.webConnectSeconds} * 1000;
    limits.totalMs = std::int64_t{settings.webTransferSeconds} * 1000;
    limits.maxReplyBytes = static_cast<std::uint64_t>(settings.webMaxReplyMegabytes) << 20U;
    return limits;
}

} // namespace tq
