/// The door between a program and the module that carries its requests.
#pragma once

#include "platform/http_transport.h"

namespace tq {

/// What the module offers under the name HTTP_MODULE_SYMBOL. Program and module are built together and share
/// C++ types, so a module that an upgrade has just put in place must not serve a program that started before.
struct HttpModule {
    const char* release; ///< TQ_RELEASE_NUMBER of the module's build
    std::unique_ptr<HttpTransport> (*make)(const std::string& server, int port, const TlsTrust& trust,
                                           const WebLimits& limits);
};

inline constexpr const char* HTTP_MODULE_SYMBOL = "tq_http_module";

} // namespace tq
