/// URLs of requests to a master server.
#pragma once

#include <string>
#include <string_view>

namespace tq {

/// Whether a text can stand as the host of a URL: a name of letters, digits, "-", "_" and ".", or a numeric
/// IPv4 or IPv6 address. Anything else ("user@host", "host:1") would lead a request elsewhere.
bool isUrlHost(std::string_view server);

/// "https://<server>:<port>", an IPv6 address in brackets.
std::string serverUrl(std::string_view server, int port);

/// A path below the service's root as it stands in a URL: every byte that may not stand there, "#" and "+"
/// are percent-encoded. "%" stays, since callers hand over encoded parts, and so do "..", "?" and "//".
std::string encodePath(std::string_view path);

} // namespace tq
