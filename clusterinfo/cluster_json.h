/// JSON texts of the cluster records, in jansson's default form. A text that is not UTF-8 reads as an empty
/// one.
#pragma once

#include "clusterinfo/cluster_records.h"

#include <string>

namespace libclusterinfo {

/// A whole cluster: "clusterType", "cluster", "nodeList", "virtualInfoList" (each with its "ownerList").
void ClusterInfoToJson(const ClusterInfo& info, std::string& out);

/// The local node's view: "node", "cluster", "virtualInfoList" (without owners, which the view does not
/// repeat).
void NodeInfoToJson(const ClusterNodeInfo& info, std::string& out);

/// A bare status: {"status": n}.
void StatusToJson(std::string& out, int status);

} // namespace libclusterinfo
