/// Network names and addresses of this host. One name lookup a process: its answer is kept.
#pragma once

#include <cstddef>
#include <memory>

struct addrinfo;
struct sockaddr;

/// Names of a host: a null-terminated list, names first, then its addresses as text.
struct knet_hostent {
    char** names;
};

/// Addresses of this host's interfaces that are up, IPv4 when `ipv4` and IPv6 when `ipv6`, in the kernel's
/// order, as a chain that the caller releases with knet_freeaddrinfo (null when there is none).
/// Returns 0, or the error number.
int knet_getifaddrs(int ipv4, int ipv6, addrinfo** list);
void knet_freeaddrinfo(addrinfo* list);

/// Numeric text of an IPv4 or IPv6 address. Returns 0, or non-zero when it does not fit or is neither.
int knet_sockAddrNtoP(const sockaddr* address, char* buffer, std::size_t size);

/// Whether a text is a loopback address (127.0.0.0/8, ::1, the IPv4 ones mapped into IPv6): 1 or 0.
int knet_localhost_check(const char* address);

/// Names and addresses of a host name, from the system's resolver; the first answer a process gets for a
/// name is kept for its life. The entry is the caller's, released with knet_free_knet_hostent.
/// Returns 0, or the resolver's error (and `entry` null).
int knet_cached_gethostent(const char* name, knet_hostent** entry);
void knet_free_knet_hostent(knet_hostent* entry);

/// Whether a text is a numeric IPv4 or IPv6 address.
bool knet_is_ip_string(const char* text);

/// The host's 32-bit identifier by the C library's rule: the first four bytes of /etc/hostid, else the
/// first IPv4 address of the host's name with its halves swapped, found by the cached lookup above.
/// 0 when there is neither.
long knet_gethostid();

namespace tq {

struct HostEntryRelease {
    void operator()(knet_hostent* entry) const { knet_free_knet_hostent(entry); }
};

/// An entry of knet_cached_gethostent.
using HostEntry = std::unique_ptr<knet_hostent, HostEntryRelease>;

} // namespace tq
