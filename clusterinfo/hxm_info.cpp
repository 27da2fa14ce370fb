#include "clusterinfo/hxm_info.h"

#include "clusterinfo/hxm_text.h"
#include "clusterinfo/trace.h"
#include "platform/portable.h"
#include "platform/shell_word.h"
#include "platform/status.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <utility>

namespace libclusterinfo {

namespace {

constexpr const char* HXM_BIN_DIRECTORY = "/opt/XRVNhxm/bin/";

/// How many bytes fgets() has read. A text that does not end with a line end either fills its buffer or holds
/// a NUL, behind which its length is not known, so that it counts as filling the buffer, too.
std::size_t bytesOfPiece(const char* buffer, int size)
{
    const std::size_t length = std::strlen(buffer);
    return length > 0 && buffer[length - 1] == '\n' ? length : static_cast<std::size_t>(size) - 1;
}

} // namespace

char* CHxmInfo::my_fgets(char* buffer, int size, FILE* stream)
{
    const TraceMethod scope("CHxmInfo::my_fgets", &m_depth);
    char* result = std::fgets(buffer, size, stream);
    if (result && m_guard && !m_guard->accept(bytesOfPiece(buffer, size)))
        result = nullptr; // over the limit: as if the tool had ended here
    if (result)
        Trace(m_depth, "[fgets] %s", result);
    else
        Trace(m_depth, "[fgets] NULL\n");
    return result;
}

int CHxmInfo::IsHXM()
{
    const TraceMethod scope("CHxmInfo::IsHXM", &m_depth);
    homeDirectory = HXM_BIN_DIRECTORY;
    struct stat attributes {};
    if (const int result = stat(homeDirectory.c_str(), &attributes); result != 0) {
        const int cause = errno;
        Trace(m_depth, "!!! Unable to access HXM HomeDirectory %s ... (0x%x).\n", homeDirectory.c_str(),
              static_cast<unsigned>(result));
        return cause == ENOENT ? EC_cluster_manager_missing : result;
    }
    setCommand("%shxstatus -summary >/dev/null 2>&1", homeDirectory.c_str());
    int result = 0;
    {
        tq::ExternalCommandGuard guard(m_command, tq::ExternalCommandGuard::Output::file, "CHxmInfo::IsHXM");
        result = guard.ended(std::system(m_command));
    }
    if (result != 0)
        Trace(m_depth, "!!! Failed to run m_command %s ... (0x%x).\n", m_command,
              static_cast<unsigned>(result));
    return result;
}

int CHxmInfo::getClusterName()
{
    const TraceMethod scope("CHxmInfo::getClusterName", &m_depth);
    clusterName.clear();
    setCommand("\"%shxclus\" -value ClusterName", homeDirectory.c_str());
    if (const int status = openCommand(m_command); status != 0)
        return status;
    while (nextLine())
        clusterName += textBefore(m_line, " \n");
    closeCommand();
    Trace(m_depth, "Get clustername ... %s.\n", clusterName.c_str());
    return 0;
}

int CHxmInfo::openCommand(const char* command)
{
    const TraceMethod scope("CHxmInfo::openCommand", &m_depth);
    closeCommand();
    m_guard.emplace(command, tq::ExternalCommandGuard::Output::pipe, "CHxmInfo::openCommand");
    m_stream = popen(command, "re");
    if (!m_stream) {
        m_guard.reset();
        Trace(m_depth, "!!! Failed to execute [command] %s \n", command);
        return -1;
    }
    Trace(m_depth, "[command] %s \n", command);
    return 0;
}

int CHxmInfo::closeCommand()
{
    const TraceMethod scope("CHxmInfo::closeCommand", &m_depth);
    if (m_stream) {
        pclose(m_stream);
        m_stream = nullptr;
        m_guard.reset();
    }
    return 0;
}

int CHxmInfo::getClusterIP()
{
    const TraceMethod scope("CHxmInfo::getClusterIP", &m_depth);
    clusterIP.clear();
    setCommand("\"%shxclus\" -value ClusterAddress", homeDirectory.c_str());
    if (const int status = openCommand(m_command); status != 0)
        return status;
    while (nextLine())
        clusterIP += textBefore(m_line, "\n");
    closeCommand();
    Trace(m_depth, "Get clusterIP ... %s.\n", clusterIP.c_str());
    return 0;
}

int CHxmInfo::getDomainName()
{
    const TraceMethod scope("CHxmInfo::getDomainName", &m_depth);
    setCommand("%s", "hostname");
    if (const int status = openCommand(m_command); status != 0)
        return status;
    if (nextLine())
        domainName = domainOf(textBefore(m_line, "\n"), domainName);
    closeCommand();
    Trace(m_depth, "Got domain name ... %s.\n", domainName.c_str());
    return 0;
}

int CHxmInfo::getClusterSystems()
{
    const TraceMethod scope("CHxmInfo::getClusterSystems", &m_depth);
    setCommand("\"%shxsys\" -list -localclus", homeDirectory.c_str());
    if (const int status = openCommand(m_command); status != 0)
        return status;
    while (nextLine()) {
        const std::string system = textBefore(m_line, "\n");
        if (*m_line == '\n')
            continue;
        Trace(m_depth, "Got cluster system ... %s.\n", system.c_str());
        clusterSystems.push_back(system);
    }
    closeCommand();
    return 0;
}

int CHxmInfo::getAllResource()
{
    const TraceMethod scope("CHxmInfo::getAllResource", &m_depth);
    ipResources.clear();
    // The path stands without quotes here, unlike in the other command lines: logs are searched for it.
    setCommand("%shxres -list Type=IP", homeDirectory.c_str());
    if (const int status = openCommand(m_command); status != 0)
        return status;
    while (nextLine())
        ipResources.insert(textBefore(m_line, " \t\n"));
    closeCommand();
    return 0;
}

int CHxmInfo::getResource_VirtualInfoMap()
{
    const TraceMethod scope("CHxmInfo::getResource_VirtualInfoMap", &m_depth);
    if (const int status = getAllResource(); status != 0)
        return status;
    for (const std::string& resource : ipResources) {
        Trace(m_depth, "Process Resource:%s.\n", resource.c_str());
        if (mayRunWith(resource))
            addResource(resource);
    }
    closeCommand();
    return 0;
}

void CHxmInfo::addResource(const std::string& resource)
{
    setCommand("\"%shxres\" -value %s Address", homeDirectory.c_str(), resource.c_str());
    if (openCommand(m_command) != 0 || !nextLine())
        return;
    const std::string address = textBefore(m_line, "\n");
    if (address == clusterIP)
        return; // the cluster's own address is no virtual name
    virtualInfoMap.emplace(resource, VirtualInfo(getVirtualName(address), address));
}

int CHxmInfo::getSystems(const std::string& resource, std::list<std::string>& owners)
{
    const TraceMethod scope("CHxmInfo::getSystems", &m_depth);
    if (!mayRunWith(resource))
        return -1;
    setCommand("\"%shxres\" -state %s", homeDirectory.c_str(), resource.c_str());
    if (const int status = openCommand(m_command); status != 0)
        return status;
    while (nextLine()) {
        if (const std::optional<std::string> system = thirdWord(textBefore(m_line, "#\n")))
            owners.push_back(*system);
    }
    closeCommand();
    return 0;
}

bool CHxmInfo::isIPV4(const std::string& address)
{
    const TraceMethod scope("CHxmInfo::isIPV4", &m_depth);
    return hasThreeDots(address);
}

std::string CHxmInfo::getVirtualName(const std::string& address)
{
    const TraceMethod scope("CHxmInfo::getVirtualName", &m_depth);
    const int family = isIPV4(address) ? AF_INET : AF_INET6;
    unsigned char bytes[sizeof(in6_addr)] = {};
    if (inet_pton(family, address.c_str(), bytes) != 1)
        return "";
    const socklen_t length = family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr);
    const hostent* entry = gethostbyaddr(bytes, length, family);
    return entry && entry->h_name ? entry->h_name : "";
}

CHxmInfo::~CHxmInfo()
{
    const TraceMethod scope("CHxmInfo::~CHxmInfo", &m_depth);
}

void CHxmInfo::setCommand(const char* format, const char* first, const char* second)
{
    // The formats are the fixed command lines of this file.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    V_snprintf(m_command, sizeof m_command, format, first, second);
#pragma GCC diagnostic pop
}

bool CHxmInfo::nextLine()
{
    return my_fgets(m_line, LINE_SIZE, m_stream) != nullptr;
}

bool CHxmInfo::mayRunWith(const std::string& resource)
{
    if (tq::isPlainShellWord(resource))
        return true;
    Trace(m_depth, "!!! Skipped resource with a name that cannot stand in a command line.\n");
    return false;
}

ResourceInfo CHxmInfo::makeNode(const std::string& system) const
{
    ResourceInfo node;
    node.name = system;
    if (!domainName.empty())
        node.fqdn = system + "." + domainName;
    return node;
}

void CHxmInfo::setAddress(ResourceInfo& record, const std::string& address)
{
    (isIPV4(address) ? record.ipv4 : record.ipv6) = address;
}

VirtualNameInfo CHxmInfo::makeVirtualName(const VirtualInfo& known, std::list<std::string> owners)
{
    VirtualNameInfo info;
    info.ownerList = std::move(owners);
    const std::size_t dot = known.virtualName.find('.');
    info.name = known.virtualName.substr(0, dot);
    if (dot != std::string::npos)
        info.fqdn = known.virtualName;
    setAddress(info, known.address);
    return info;
}

int CHxmInfo::GetClusterInfo(ClusterInfo& info)
{
    const TraceMethod scope("CHxmInfo::GetClusterInfo", &m_depth);
    if (const int status = IsHXM(); status != 0)
        return status;
    info.clusterType = CLUSTERTYPE_HXM;
    if (const int status = getClusterName(); status != 0)
        return status;
    info.cluster.name = clusterName;
    if (const int status = getClusterIP(); status != 0)
        return status;
    setAddress(info.cluster, clusterIP);
    if (const int status = getClusterSystems(); status != 0)
        return status;
    getDomainName();
    for (const std::string& system : clusterSystems)
        info.nodeList.push_back(makeNode(system));
    getResource_VirtualInfoMap();
    for (const auto& [resource, known] : virtualInfoMap) {
        std::list<std::string> owners;
        if (getSystems(resource, owners) == 0)
            info.virtualInfoList.push_back(makeVirtualName(known, std::move(owners)));
    }
    return 0;
}

int GetClusterInfo_HXM(ClusterInfo& info)
{
    const TraceMethod scope("GetClusterInfo_HXM", nullptr);
    CHxmInfo adapter;
    return adapter.GetClusterInfo(info);
}

} // namespace libclusterinfo
