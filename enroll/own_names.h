/// By which names this host is known.
#pragma once

#include <string>
#include <vector>

namespace enroll {

/// CLIENT_NAME of kx.conf, the host name, and what the resolver knows this host name as, without doubles.
/// Empty when there is none of them.
std::vector<std::string> readOwnNames();

/// Whether a host name is one of these, without regard to case. A name without a domain also stands for all
/// that begin with it and a dot, and the other way round: hosts go by either form.
bool isOneOf(const std::vector<std::string>& names, const std::string& hostName);

} // namespace enroll
