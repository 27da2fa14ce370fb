#include "platform/http_module.h"
#include "platform/http_session.h"
#include "platform/release.h"

namespace {

std::unique_ptr<tq::HttpTransport> makeSession(const std::string& server, int port, const tq::TlsTrust& trust,
                                               const tq::WebLimits& limits)
{
    return std::make_unique<tq::HttpSession>(server, port, trust, limits);
}

} // namespace

/// The module's one visible name.
extern "C" [[gnu::visibility("default")]] const tq::HttpModule tq_http_module;
extern "C" const tq::HttpModule tq_http_module = {TQ_RELEASE_NUMBER, &makeSession};
