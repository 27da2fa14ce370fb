#include "enroll/own_names.h"

#include "platform/config.h"
#include "platform/net.h"
#include "platform/portable.h"

#include <algorithm>
#include <array>
#include <climits>
#include <strings.h>
#include <unistd.h>

namespace enroll {

namespace {

void addName(std::vector<std::string>& names, const std::string& name)
{
    if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end())
        names.push_back(name);
}

std::string clientName()
{
    char* value = nullptr;
    if (TQ_read_master_config() != 0 ||
        kxconfGetKeyValPair(get_master_config_ptr(), "CLIENT_NAME", &value) != 0)
        return "";
    return tq::MallocText(value).get();
}

std::string systemHostName()
{
    std::array<char, HOST_NAME_MAX + 1> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

bool equalWithoutCase(const std::string& one, const std::string& other)
{
    return strcasecmp(one.c_str(), other.c_str()) == 0;
}

/// The name before its domain.
std::string shortName(const std::string& name)
{
    return name.substr(0, name.find('.'));
}

bool isSameHost(const std::string& one, const std::string& other)
{
    if (equalWithoutCase(one, other))
        return true;
    const bool bothHaveDomains = one.find('.') != std::string::npos && other.find('.') != std::string::npos;
    return !bothHaveDomains && equalWithoutCase(shortName(one), shortName(other));
}

} // namespace

std::vector<std::string> readOwnNames()
{
    std::vector<std::string> names;
    addName(names, clientName());
    const std::string hostName = systemHostName();
    addName(names, hostName);
    knet_hostent* found = nullptr;
    if (hostName.empty() || knet_cached_gethostent(hostName.c_str(), &found) != 0)
        return names;
    const tq::HostEntry known(found);
    for (char** name = known->names; *name != nullptr; ++name) {
        if (!knet_is_ip_string(*name))
            addName(names, *name);
    }
    return names;
}

bool isOneOf(const std::vector<std::string>& names, const std::string& hostName)
{
    return std::any_of(names.begin(), names.end(),
                       [&](const std::string& name) { return isSameHost(name, hostName); });
}

} // namespace enroll
