#include "platform/http_session.h"

namespace tq {

TransferResult openHttpTransport(const std::string& server, int port, const TlsTrust& trust,
                                 const WebLimits& limits, std::unique_ptr<HttpTransport>& transport)
{
    transport = std::make_unique<HttpSession>(server, port, trust, limits);
    return {};
}

} // namespace tq
