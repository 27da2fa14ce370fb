/// Which cluster this host belongs to, and which names it therefore has in common with it.
#pragma once

#include "clusterinfo/cluster_records.h"

#include <list>
#include <string>

namespace libclusterinfo {

/// All return 0, a status of the cluster manager's adapter (hxm_info.h), or an error number.

/// Describes the whole cluster.
int GetClusterInfo(ClusterInfo& info);

/// The same as JSON; of a failure the status as JSON.
int GetClusterInfo(std::string& json);

/// The host's short name. errno of gethostname() when that fails.
int GetNodeHostName(std::string& name);

/// This node's view of a cluster. -1 when the host has no name. A host that is no member leaves `node` as it
/// was and is no failure.
int GetClusterNodeInfo(const ClusterInfo& cluster, ClusterNodeInfo& node);

/// Discovery and view as JSON; of a failure the status as JSON.
int GetClusterNodeInfo(std::string& json);

/// Appends the names that this host has in common with its cluster: the cluster's own when it has an address,
/// then those of the virtual names that this node may own; with `includeIP` also their addresses.
int GetClusterSharedNames(std::list<std::string>& names, bool includeIP);

} // namespace libclusterinfo
