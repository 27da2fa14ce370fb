#include "clusterinfo/cluster_records.h"

#include <strings.h>
#include <utility>

namespace libclusterinfo {

const char* GetClusterTypeStr(TQClusterType type)
{
    switch (type) {
    case CLUSTERTYPE_NOT_A_CLUSTER:
        return "clustertype_not_a_cluster";
    case CLUSTERTYPE_WSFC:
        return "clustertype_wsfc";
    case CLUSTERTYPE_WSFC_NO_AC:
        return "clustertype_wsfc_no_ac";
    case CLUSTERTYPE_HXM:
        return "clustertype_hxm";
    }
    return "clustertype_unknown";
}

bool beginsWithNoCase(const std::string& text, const std::string& prefix)
{
    return strncasecmp(text.c_str(), prefix.c_str(), prefix.size()) == 0;
}

void ResourceInfo::reset()
{
    name.clear();
    fqdn.clear();
    ipv4.clear();
    ipv6.clear();
}

void VirtualNameInfo::reset()
{
    ResourceInfo::reset();
    ownerList.clear();
}

bool NodeLookup::operator()(const ResourceInfo& node) const
{
    return beginsWithNoCase(node.name, name);
}

VirtualInfo::VirtualInfo(std::string resolvedName, std::string addressText)
    : virtualName(std::move(resolvedName)), address(std::move(addressText))
{
}

void VirtualInfo::reset()
{
    virtualName.clear();
    address.clear();
}

void ClusterNodeInfo::reset()
{
    node.reset();
    cluster.reset();
    virtualInfoList.clear();
}

void ClusterInfo::reset()
{
    clusterType = CLUSTERTYPE_NOT_A_CLUSTER;
    cluster.reset();
    nodeList.clear();
    virtualInfoList.clear();
}

} // namespace libclusterinfo
