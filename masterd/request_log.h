/// One line for each request: who asked for what, and what came of it.
#pragma once

#include "platform/file_io.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace masterd {

struct LoggedRequest {
    std::string client; ///< address
    std::string method; ///< empty, as are the next ones, when the request could not be read
    std::string target; ///< as sent
    int status = 0;
    std::string identity;    ///< "<host name>/<host id>"
    std::string certificate; ///< SHA-256 of the client's certificate
    std::string fault = {};  ///< why a connection was refused before any request
};

/// The line, without its end: time (UTC), client, "method target", status, identity, certificate; "-" for
/// what is empty; then a fault, if there is one. Quotes, backslashes and bytes that are no printable ASCII
/// stand as \xNN, and a target over 512 bytes is cut, so that no text can forge a line. Bodies and tokens are
/// not in it.
std::string formatRequestLine(const LoggedRequest& request, std::int64_t now);

/// Where the lines go. Safe for use by several threads: each line is one write.
class RequestLog {
public:
    /// Writes nothing.
    RequestLog() = default;
    /// Writes to a descriptor that stays the caller's.
    explicit RequestLog(int descriptor) : descriptor_(descriptor) {}
    /// Writes to an open file.
    explicit RequestLog(tq::FileDescriptor file) : file_(std::move(file)), descriptor_(file_.get()) {}

    void write(const LoggedRequest& request) const;

private:
    tq::FileDescriptor file_;
    int descriptor_ = -1;
};

} // namespace masterd
