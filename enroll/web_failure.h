/// A connection or request that failed, as the end of a run.
#pragma once

#include "platform/http_transport.h"

#include <string>

namespace enroll {

/// Throws the Failure of a transfer that failed; `ending` comes last in its sentence, which names the server
/// as "server master1.example on port 1556".
[[noreturn]] void failTransfer(const std::string& server, int port, const tq::TransferResult& result,
                               const std::string& ending = "");

} // namespace enroll
