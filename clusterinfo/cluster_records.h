/// What is known of a cluster: its names and addresses, its nodes, and its virtual names with their owners.
#pragma once

#include <list>
#include <string>

namespace libclusterinfo {

/// Kind of cluster. Discovery here finds none or HXM; the other two exist on Windows hosts.
enum TQClusterType : int {
    CLUSTERTYPE_NOT_A_CLUSTER = 0,
    CLUSTERTYPE_WSFC = 1,       ///< Windows Server Failover Clustering
    CLUSTERTYPE_WSFC_NO_AC = 2, ///< the same without an administrative access point
    CLUSTERTYPE_HXM = 3,
};

/// Text of a cluster type, for example "clustertype_hxm"; "clustertype_unknown" for any other number.
const char* GetClusterTypeStr(TQClusterType type);

/// One named network identity; an unknown part is an empty text.
class ResourceInfo {
public:
    ResourceInfo() = default;
    ResourceInfo(const ResourceInfo&) = default;
    ResourceInfo& operator=(const ResourceInfo&) = default;

    /// Back to the state after construction; so in every record here.
    virtual void reset();
    virtual ~ResourceInfo() = default;

    std::string name; ///< short name
    std::string fqdn; ///< fully qualified name
    std::string ipv4;
    std::string ipv6;
};

/// A name that floats between the nodes of a cluster.
class VirtualNameInfo : public ResourceInfo {
public:
    void reset() override;

    std::list<std::string> ownerList; ///< nodes that may own it
};

/// Search key for a node in a list.
class NodeLookup : public ResourceInfo {
public:
    /// Whether a node's name begins with this one's, without regard to case. So a look-up of node1 also finds
    /// node1.example and node10: member lists hold short and full names alike.
    bool operator()(const ResourceInfo& node) const;
};

/// What the cluster manager knows of one address resource.
class VirtualInfo {
public:
    VirtualInfo() = default;
    VirtualInfo(std::string resolvedName, std::string addressText);
    VirtualInfo(const VirtualInfo&) = default;
    VirtualInfo& operator=(const VirtualInfo&) = default;

    virtual void reset();
    virtual ~VirtualInfo() = default;

    std::string virtualName; ///< the name that the address resolves to; empty when it does not
    std::string address;
};

/// The local node's view of its cluster.
class ClusterNodeInfo {
public:
    ClusterNodeInfo() = default;
    ClusterNodeInfo(const ClusterNodeInfo&) = default;
    ClusterNodeInfo& operator=(const ClusterNodeInfo&) = default;

    virtual void reset();
    virtual ~ClusterNodeInfo() = default;

    ResourceInfo node;
    ResourceInfo cluster;
    std::list<VirtualNameInfo> virtualInfoList; ///< virtual names that the node may own
};

/// A whole cluster.
class ClusterInfo {
public:
    ClusterInfo() = default;
    ClusterInfo(const ClusterInfo&) = default;
    ClusterInfo& operator=(const ClusterInfo&) = default;

    virtual void reset();
    virtual ~ClusterInfo() = default;

    TQClusterType clusterType = CLUSTERTYPE_NOT_A_CLUSTER;
    ResourceInfo cluster;
    std::list<ResourceInfo> nodeList;
    std::list<VirtualNameInfo> virtualInfoList;
};

/// Whether `text` begins with `prefix`, without regard to the case of ASCII letters.
bool beginsWithNoCase(const std::string& text, const std::string& prefix);

} // namespace libclusterinfo
