/// Cluster state of this node, written by the cluster manager's online and offline triggers.
#pragma once

/// Each reads /usr/torqv/var/cluster.state and returns 1 for YES and 0 for NO. No file, an unreadable one, a
/// missing key or another text means no. The arguments are the product's own and are 0 here.
int IsNodeClustered(int reserved);          ///< key NODE_CLUSTERED: this node belongs to a cluster
int IsClustered(int reserved);              ///< key CLUSTERED: the product runs as a clustered service
int IsActive(int reserved1, int reserved2); ///< key ACTIVE: this node is the active one
