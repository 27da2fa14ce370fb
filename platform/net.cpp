#include "platform/net.h"

#include "platform/file_io.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ifaddrs.h>
#include <map>
#include <memory>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <optional>
#include <string>
#include <strings.h>
#include <unistd.h>
#include <vector>

namespace {

/// What the resolver said of a name. A failure is kept too: asking a dead name server twice doubles the wait.
struct Lookup {
    int error = 0;
    std::vector<std::string> names;
    std::vector<std::string> addresses;
    bool hasIpv4 = false;
    in_addr firstIpv4{};
};

struct AddressListRelease {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
    void operator()(ifaddrs* list) const { freeifaddrs(list); }
};

socklen_t addressLength(int family)
{
    if (family == AF_INET)
        return sizeof(sockaddr_in);
    return family == AF_INET6 ? sizeof(sockaddr_in6) : 0;
}

std::string numericText(const sockaddr* address)
{
    std::array<char, INET6_ADDRSTRLEN> text{};
    return knet_sockAddrNtoP(address, text.data(), text.size()) == 0 ? text.data() : "";
}

/// The canonical name, then the name asked for where that is another one; the addresses in the resolver's
/// order.
Lookup lookUp(const std::string& name)
{
    addrinfo hints{};
    hints.ai_flags = AI_CANONNAME;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM; // each address once, not once for each kind of socket
    addrinfo* answer = nullptr;
    Lookup result;
    result.error = getaddrinfo(name.c_str(), nullptr, &hints, &answer);
    if (result.error != 0)
        return result;
    const std::unique_ptr<addrinfo, AddressListRelease> list(answer);
    if (answer->ai_canonname)
        result.names.emplace_back(answer->ai_canonname);
    if (result.names.empty() || strcasecmp(result.names.front().c_str(), name.c_str()) != 0)
        result.names.push_back(name);
    for (const addrinfo* entry = answer; entry; entry = entry->ai_next) {
        const std::string text = numericText(entry->ai_addr);
        if (!text.empty())
            result.addresses.push_back(text);
        if (entry->ai_family == AF_INET && !result.hasIpv4) {
            result.hasIpv4 = true;
            result.firstIpv4 = reinterpret_cast<const sockaddr_in*>(entry->ai_addr)->sin_addr;
        }
    }
    return result;
}

/// The lookups of this process, one a name.
const Lookup& cachedLookup(const std::string& name)
{
    static std::map<std::string, Lookup> lookups;
    const auto known = lookups.find(name);
    return known != lookups.end() ? known->second : lookups.emplace(name, lookUp(name)).first->second;
}

addrinfo* copyOf(const sockaddr* address)
{
    struct Entry {
        addrinfo info;
        sockaddr_storage address;
    };
    auto* entry = static_cast<Entry*>(std::calloc(1, sizeof(Entry)));
    if (!entry)
        return nullptr;
    const socklen_t length = addressLength(address->sa_family);
    std::memcpy(&entry->address, address, length);
    entry->info.ai_family = address->sa_family;
    entry->info.ai_socktype = SOCK_STREAM;
    entry->info.ai_addrlen = length;
    entry->info.ai_addr = reinterpret_cast<sockaddr*>(&entry->address);
    return &entry->info;
}

bool isWanted(const ifaddrs& interface, int ipv4, int ipv6)
{
    if ((interface.ifa_flags & IFF_UP) == 0 || !interface.ifa_addr)
        return false;
    const int family = interface.ifa_addr->sa_family;
    return (family == AF_INET && ipv4 != 0) || (family == AF_INET6 && ipv6 != 0);
}

bool readHostIdFile(std::int32_t& identifier)
{
    const std::optional<std::string> text = tq::readFileStart("/etc/hostid");
    if (!text || text->size() < sizeof identifier)
        return false;
    std::memcpy(&identifier, text->data(), sizeof identifier);
    return true;
}

} // namespace

int knet_getifaddrs(int ipv4, int ipv6, addrinfo** list)
{
    ifaddrs* interfaces = nullptr;
    if (getifaddrs(&interfaces) != 0)
        return errno;
    const std::unique_ptr<ifaddrs, AddressListRelease> release(interfaces);
    addrinfo* first = nullptr;
    addrinfo** end = &first;
    for (const ifaddrs* interface = interfaces; interface; interface = interface->ifa_next) {
        if (!isWanted(*interface, ipv4, ipv6))
            continue;
        *end = copyOf(interface->ifa_addr);
        if (!*end) {
            knet_freeaddrinfo(first);
            return ENOMEM;
        }
        end = &(*end)->ai_next;
    }
    *list = first;
    return 0;
}

void knet_freeaddrinfo(addrinfo* list)
{
    while (list) {
        addrinfo* next = list->ai_next;
        std::free(list); // its address lies in the same block
        list = next;
    }
}

int knet_sockAddrNtoP(const sockaddr* address, char* buffer, std::size_t size)
{
    if (!address || addressLength(address->sa_family) == 0)
        return EAFNOSUPPORT;
    const void* bytes =
        address->sa_family == AF_INET
            ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in*>(address)->sin_addr)
            : &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr;
    return inet_ntop(address->sa_family, bytes, buffer, static_cast<socklen_t>(size)) ? 0 : errno;
}

int knet_localhost_check(const char* address)
{
    constexpr std::uint8_t LOOPBACK_NET = 127;
    if (!address)
        return 0;
    std::array<std::uint8_t, sizeof(in_addr)> ipv4{};
    if (inet_pton(AF_INET, address, ipv4.data()) == 1)
        return ipv4[0] == LOOPBACK_NET ? 1 : 0;
    in6_addr ipv6{};
    if (inet_pton(AF_INET6, address, &ipv6) != 1)
        return 0;
    if (IN6_IS_ADDR_V4MAPPED(&ipv6))
        return ipv6.s6_addr[12] == LOOPBACK_NET ? 1 : 0;
    return IN6_IS_ADDR_LOOPBACK(&ipv6) ? 1 : 0;
}

int knet_cached_gethostent(const char* name, knet_hostent** entry)
{
    *entry = nullptr;
    if (!name)
        return EAI_NONAME;
    const Lookup& lookup = cachedLookup(name);
    if (lookup.error != 0)
        return lookup.error;
    std::vector<std::string> texts = lookup.names;
    texts.insert(texts.end(), lookup.addresses.begin(), lookup.addresses.end());
    auto made = std::make_unique<knet_hostent>();
    made->names = static_cast<char**>(std::calloc(texts.size() + 1, sizeof(char*)));
    if (!made->names)
        return EAI_MEMORY;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        made->names[i] = strdup(texts[i].c_str());
        if (!made->names[i]) {
            knet_free_knet_hostent(made.release());
            return EAI_MEMORY;
        }
    }
    *entry = made.release();
    return 0;
}

void knet_free_knet_hostent(knet_hostent* entry)
{
    const std::unique_ptr<knet_hostent> owned(entry);
    if (!entry)
        return;
    for (char** name = entry->names; *name; ++name)
        std::free(*name);
    std::free(static_cast<void*>(entry->names));
}

bool knet_is_ip_string(const char* text)
{
    std::array<std::uint8_t, sizeof(in6_addr)> bytes{};
    return text &&
           (inet_pton(AF_INET, text, bytes.data()) == 1 || inet_pton(AF_INET6, text, bytes.data()) == 1);
}

long knet_gethostid()
{
    std::int32_t identifier = 0;
    if (readHostIdFile(identifier))
        return identifier;
    std::array<char, HOST_NAME_MAX + 1> name{};
    if (gethostname(name.data(), name.size() - 1) != 0 || name.front() == '\0')
        return 0;
    const Lookup& lookup = cachedLookup(name.data());
    if (lookup.error != 0 || !lookup.hasIpv4)
        return 0;
    const std::uint32_t address = lookup.firstIpv4.s_addr;
    return static_cast<std::int32_t>((address << 16U) | (address >> 16U));
}
