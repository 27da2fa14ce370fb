/// A connection or request that failed, as the end of a run.
#pragma once

#include "platform/http_transport.h"

#include <string>

namespace enroll {

/// A master server as sentences name it: "server master1.example on port 1556".
std::string serverAndPort(const std::string& server, int port);

/// Throws the Failure of a transfer that failed; `ending` comes last in its sentence.
[[noreturn]] void failTransfer(const std::string& server, int port, const tq::TransferResult& result,
                               const std::string& ending = "");

} // namespace enroll
