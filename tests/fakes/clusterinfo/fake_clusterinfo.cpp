#include "tests/fakes/clusterinfo/fake_clusterinfo.h"

#include "clusterinfo/cluster_discovery.h"
#include "clusterinfo/trace.h"

namespace fakes {
namespace {

ClusterDiscovery theDiscovery;
libclusterinfo::TraceFunction traceFunction = nullptr;

} // namespace

ClusterDiscovery& clusterDiscovery()
{
    return theDiscovery;
}

void resetClusterDiscovery()
{
    theDiscovery = ClusterDiscovery{};
    traceFunction = nullptr;
}

} // namespace fakes

namespace libclusterinfo {

void SetTraceFunc(TraceFunction function)
{
    fakes::traceFunction = function;
}

int GetClusterSharedNames(std::list<std::string>& names, bool includeIP)
{
    fakes::ClusterDiscovery& fake = fakes::clusterDiscovery();
    fake.includeIP.push_back(includeIP);
    for (const std::string& line : fake.traceLines) {
        if (fakes::traceFunction)
            fakes::traceFunction(line.c_str());
    }
    names.insert(names.end(), fake.names.begin(), fake.names.end());
    return fake.status;
}

} // namespace libclusterinfo
