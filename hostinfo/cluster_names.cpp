#include "clusterinfo/cluster_discovery.h"
#include "clusterinfo/trace.h"
#include "hostinfo/tqclntdb_hostinfo.h"
#include "platform/config.h"
#include "platform/debuglog.h"
#include "platform/status.h"

#include <list>

namespace TQCLNTDB {
namespace {

constexpr const char* AUTO_DISCOVERY_KEY = "DISABLE_CLUSTER_AUTO_DISCOVERY";

} // namespace

void libClusterInfoTrace(const char* message)
{
    LogLine line(LogLevel::progress, "libclusterinfo::trace");
    if (message)
        line << message << '\n';
}

int CHostInformation::isClusterAutoDiscoveryDisabled()
{
    constexpr const char* CONTEXT = "CHostInformation::isClusterAutoDiscoveryDisabled";
    if (const int status = TQ_read_master_config(); status != 0) {
        LogLine(LogLevel::warning, CONTEXT)
            << "Failed to read kx.conf for auto cluster discovery key, errorcode : " << status;
        return 0;
    }
    int disabled = 0;
    if (const int status = kxconfGetKeyValPairAsBool(get_master_config_ptr(), AUTO_DISCOVERY_KEY, &disabled);
        status != 0) {
        LogLine(LogLevel::warning, CONTEXT)
            << "Failed to read key from kx.conf for auto cluster discovery key, errorcode : " << status;
        return 0;
    }
    return disabled;
}

int CHostInformation::retrieveClusterSharedNames()
{
    constexpr const char* CONTEXT = "CHostInformation::retrieveClusterSharedNames";
    libclusterinfo::SetTraceFunc(libClusterInfoTrace);
    std::list<std::string> found;
    const int status = libclusterinfo::GetClusterSharedNames(found, false);
    const std::vector<std::string> names(found.begin(), found.end());
    if (status == EC_success) {
        LogLine(LogLevel::progress, CONTEXT) << "GetClusterSharedNames returned = " << vectorToString(names);
        clusterSharedNames.insert(clusterSharedNames.end(), names.begin(), names.end());
    } else if (status == EC_not_windows_cluster) {
        LogLine(LogLevel::progress, CONTEXT) << "Host is not part of a Windows cluster.";
    } else if (status == EC_cluster_manager_missing) {
        LogLine(LogLevel::progress, CONTEXT) << "Host is not part of a HXM cluster.";
    } else {
        LogLine(LogLevel::error, CONTEXT) << "GetClusterSharedNames status : " << status;
    }
    return status;
}

int CHostInformation::loadSharedNames()
{
    constexpr const char* CONTEXT = "CHostInformation::loadSharedNames";
    const int status = retrieveClusterSharedNames();
    // A host outside any cluster comes here too, at error level: support staff know the line.
    if (status != EC_success)
        LogLine(LogLevel::error, CONTEXT) << "retrieveClusterSharedNames status : " << status
                                          << ". Check getclusterinfo::trace for more details. ";
    else
        LogLine(LogLevel::progress, CONTEXT) << "Shared Names = " << vectorToString(clusterSharedNames);
    return status;
}

} // namespace TQCLNTDB
