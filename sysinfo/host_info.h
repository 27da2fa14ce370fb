/// Identity, configured names and network names of this host.
#pragma once

#include <list>
#include <optional>
#include <string>

namespace SYSINFO_NAMESPACE {

/// Value of a configuration line that holds `key` (lower case) anywhere, in lower case: what stands behind
/// the last "=" and one more character, trailing blanks included. Absent for any other line and for one
/// without a value. A commented line counts like any other.
std::optional<std::string> configuredName(std::string line, const std::string& key);

/// Every call probes afresh. A text that cannot be found is NULL_MARKER. Texts are logged; the lists of
/// getHostIP and getHostName are not.
class UnixHostInfo {
public:
    /// 32-bit identifier of the host in lower-case hexadecimal without leading zeros.
    std::string getHostID() const;

    /// Client name that kx.conf gives this host, in lower case.
    std::string getTquClientName() const;

    /// Cluster name that kx.conf gives this host, in lower case.
    std::string getTquClusterName() const;

    /// Addresses of the host's interfaces as texts, without loopback ones; the one entry NULL_MARKER when
    /// they cannot be had.
    std::list<std::string> getHostIP() const;

    /// Names that the resolver gives this host; the one entry NULL_MARKER when they cannot be had.
    std::list<std::string> getHostName() const;
};

/// Low 32 bits of a host identifier in lower-case hexadecimal; "<NULL>" when they are all 0.
std::string hostIdText(long hostId);

} // namespace SYSINFO_NAMESPACE
