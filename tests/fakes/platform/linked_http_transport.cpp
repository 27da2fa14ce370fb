#include "tests/fakes/platform/linked_http_transport.h"

#include "platform/http_session.h"

#include <utility>

std::function<void()> fakes::whenATransportOpens;

namespace tq {

TransferResult openHttpTransport(const std::string& server, int port, const TlsTrust& trust,
                                 const WebLimits& limits, std::unique_ptr<HttpTransport>& transport)
{
    if (const std::function<void()> action = std::exchange(fakes::whenATransportOpens, nullptr))
        action();
    transport = std::make_unique<HttpSession>(server, port, trust, limits);
    return {};
}

} // namespace tq
