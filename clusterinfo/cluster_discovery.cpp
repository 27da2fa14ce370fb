#include "clusterinfo/cluster_discovery.h"

#include "clusterinfo/cluster_json.h"
#include "clusterinfo/hxm_info.h"
#include "clusterinfo/trace.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace libclusterinfo {

namespace {

constexpr std::size_t HOST_NAME_SIZE = 255;

/// A virtual name counts once for each matching owner: node1 finds itself and node10.
void addOwnedNames(const ClusterInfo& cluster, ClusterNodeInfo& node)
{
    for (const VirtualNameInfo& info : cluster.virtualInfoList) {
        for (const std::string& owner : info.ownerList) {
            if (!beginsWithNoCase(owner, node.node.name))
                continue;
            Trace(1, "Possible owner of virtual name \"%s\".\n", info.name.c_str());
            node.virtualInfoList.push_back(info);
        }
    }
}

void appendIfKnown(std::list<std::string>& names, const std::string& text)
{
    if (!text.empty())
        names.push_back(text);
}

/// An identity without an address is not reachable and shares no name.
void appendSharedNames(std::list<std::string>& names, const ResourceInfo& info, bool includeIP)
{
    if (info.ipv4.empty() && info.ipv6.empty())
        return;
    appendIfKnown(names, info.name);
    appendIfKnown(names, info.fqdn);
    if (includeIP) {
        appendIfKnown(names, info.ipv4);
        appendIfKnown(names, info.ipv6);
    }
}

void traceSharedNames(bool includeIP)
{
    Trace(0, "[GetClusterSharedNames] ... (includeIP:%s) Enter \n", includeIP ? "true" : "false");
}

int discoverNode(ClusterNodeInfo& node)
{
    ClusterInfo cluster;
    const int status = GetClusterInfo(cluster);
    return status != 0 ? status : GetClusterNodeInfo(cluster, node);
}

} // namespace

int GetClusterInfo(ClusterInfo& info)
{
    info.reset();
    Trace(0, "----------------------------------------\n");
    const int status = GetClusterInfo_HXM(info);
    Trace(0, "----------------------------------------\n\n");
    return status;
}

int GetClusterInfo(std::string& json)
{
    ClusterInfo info;
    const int status = GetClusterInfo(info);
    if (status != 0)
        StatusToJson(json, status);
    else
        ClusterInfoToJson(info, json);
    return status;
}

int GetNodeHostName(std::string& name)
{
    char buffer[HOST_NAME_SIZE] = {};
    errno = 0;
    if (gethostname(buffer, sizeof buffer) != 0 && errno != 0) {
        const int cause = errno;
        // "ox", not "0x": support staff search for the text as it is.
        Trace(0, "!!! gethostname() failed ... ox%x\n", static_cast<unsigned>(cause));
        return cause;
    }
    const std::string full(buffer, strnlen(buffer, sizeof buffer));
    name = full.substr(0, full.find('.'));
    return 0;
}

int GetClusterNodeInfo(const ClusterInfo& cluster, ClusterNodeInfo& node)
{
    Trace(0, "[GetClusterNodeInfo] ... Enter \n");
    NodeLookup self;
    if (const int status = GetNodeHostName(self.name); status != 0)
        return status;
    if (self.name.empty()) {
        Trace(1, "!!! Unable to retrieve hostname for the local machine.\n");
        return -1;
    }
    Trace(1, "Hostname: \"%s\"\n", self.name.c_str());

    const auto found = std::find_if(cluster.nodeList.begin(), cluster.nodeList.end(), self);
    if (found == cluster.nodeList.end()) {
        Trace(1, "\"%s\" is NOT part of the cluster.\n", self.name.c_str());
        return 0;
    }
    node.node = *found;
    addOwnedNames(cluster, node);
    node.cluster = cluster.cluster;
    Trace(0, "[GetClusterNodeInfo] ... Exit \n");
    return 0;
}

int GetClusterNodeInfo(std::string& json)
{
    ClusterNodeInfo node;
    const int status = discoverNode(node);
    if (status != 0)
        StatusToJson(json, status);
    else
        NodeInfoToJson(node, json);
    return status;
}

int GetClusterSharedNames(std::list<std::string>& names, bool includeIP)
{
    traceSharedNames(includeIP);
    ClusterNodeInfo node;
    const int status = discoverNode(node);
    if (status == 0) {
        appendSharedNames(names, node.cluster, includeIP);
        for (const VirtualNameInfo& info : node.virtualInfoList)
            appendSharedNames(names, info, includeIP);
    }
    traceSharedNames(includeIP); // says "Enter" at the end too: logs have always read so
    return status;
}

} // namespace libclusterinfo
