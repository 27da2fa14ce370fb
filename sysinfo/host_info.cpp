#include "sysinfo/host_info.h"

#include "platform/net.h"
#include "platform/paths.h"
#include "platform/portable.h"
#include "sysinfo/cat_file.h"
#include "sysinfo/line_value.h"
#include "sysinfo/log_message.h"
#include "sysinfo/system_info.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <netdb.h>
#include <unistd.h>

namespace SYSINFO_NAMESPACE {
namespace {

/// The first name that the configuration gives under a key; logged as "label: name".
std::string readConfiguredName(const char* key, const char* label, const char* context)
{
    CatFile configuration(TQ_CONFIG_FILE, context);
    if (configuration.status() != 0)
        return NULL_MARKER;
    std::string name = NULL_MARKER;
    for (std::string line; configuration.nextLine(line);) {
        if (const std::optional<std::string> value = configuredName(line, key)) {
            name = *value;
            break;
        }
    }
    logMessage(LogLevel::progress, context, "%s: %s", label, name.c_str());
    return name;
}

} // namespace

std::optional<std::string> configuredName(std::string line, const std::string& key)
{
    std::transform(line.begin(), line.end(), line.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    if (!contains(line, key))
        return std::nullopt;
    std::optional<std::string> value = valueAfterLast('=', line);
    if (value && value->empty())
        value.reset();
    return value;
}

std::string hostIdText(long hostId)
{
    const auto low = static_cast<std::uint32_t>(hostId);
    if (low == 0)
        return NULL_MARKER;
    char text[16];
    V_snprintf(text, sizeof text, "%x", low);
    return text;
}

std::string UnixHostInfo::getHostID() const
{
    std::string id = hostIdText(knet_gethostid());
    logMessage(LogLevel::progress, "UnixHostInfo::getHostID", "hostID: %s", id.c_str());
    return id;
}

std::string UnixHostInfo::getTquClientName() const
{
    return readConfiguredName("client_name", "TquClientName", "UnixHostInfo::getTquClientName");
}

std::string UnixHostInfo::getTquClusterName() const
{
    return readConfiguredName("cluster_name", "TquClusterName", "UnixHostInfo::getTquClusterName");
}

std::list<std::string> UnixHostInfo::getHostIP() const
{
    struct FreeChain {
        void operator()(addrinfo* list) const { knet_freeaddrinfo(list); }
    };
    addrinfo* list = nullptr;
    if (knet_getifaddrs(1, 1, &list) != 0)
        return {NULL_MARKER};
    const std::unique_ptr<addrinfo, FreeChain> chain(list);

    std::list<std::string> addresses;
    for (const addrinfo* address = list; address; address = address->ai_next) {
        char text[46]; // the longest IPv6 text and its terminator
        if (knet_sockAddrNtoP(address->ai_addr, text, sizeof text) == 0 && !knet_localhost_check(text))
            addresses.emplace_back(text);
    }
    return addresses;
}

std::list<std::string> UnixHostInfo::getHostName() const
{
    char hostName[64];
    if (gethostname(hostName, sizeof hostName) != 0)
        return {NULL_MARKER};
    knet_hostent* found = nullptr;
    if (knet_cached_gethostent(hostName, &found) != 0 || !found)
        return {NULL_MARKER};
    const tq::HostEntry entry(found);

    std::list<std::string> names;
    for (char** name = entry->names; *name && !knet_is_ip_string(*name); ++name)
        names.emplace_back(*name);
    return names;
}

} // namespace SYSINFO_NAMESPACE
