#include "platform/cluster.h"

#include "platform/config_file.h"
#include "platform/debuglog.h"
#include "platform/file_io.h"
#include "platform/paths.h"
#include "platform/status.h"

#include <cerrno>

namespace {

/// Each question reads the file anew: a node may become active or passive at any moment.
int clusterStateIs(const char* key, const char* context)
{
    tq::ConfigText state;
    const int status = tq::readConfigFile(TQ_CLUSTER_STATE_FILE, state, context);
    if (status == EC_file_open_failed && errno != ENOENT) {
        LogLine(LogLevel::warning, context)
            << "Unable to open " << TQ_CLUSTER_STATE_FILE << ": " << tq::fileFault(errno);
    }
    const tq::ConfigEntry* entry = tq::findConfigEntry(state, key);
    return entry && tq::configUpperCase(entry->value) == "YES" ? 1 : 0;
}

} // namespace

int IsNodeClustered(int /*reserved*/)
{
    return clusterStateIs("NODE_CLUSTERED", "IsNodeClustered");
}

int IsClustered(int /*reserved*/)
{
    return clusterStateIs("CLUSTERED", "IsClustered");
}

int IsActive(int /*reserved1*/, int /*reserved2*/)
{
    return clusterStateIs("ACTIVE", "IsActive");
}
