/// Cluster discovery as unit tests of the record see it.
#pragma once

#include <list>
#include <string>
#include <vector>

namespace fakes {

struct ClusterDiscovery {
    int status = 30036;
    std::list<std::string> names;        ///< appended to the caller's, whatever the status
    std::vector<std::string> traceLines; ///< handed to the trace function that was set
    std::vector<bool> includeIP;         ///< argument of each call
};

ClusterDiscovery& clusterDiscovery();
void resetClusterDiscovery();

} // namespace fakes
