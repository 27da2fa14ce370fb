/// Operations on one master server's host database, and the test for an active cluster node.
#pragma once

#include <string>
#include <vector>

namespace TQCLNTDB {

class CHostInformation;

/// Each of the first four makes one request to `masterServer` and returns when it succeeded. A failing status
/// is logged at level 16, with the function's name as context, and thrown as an int; a WebServiceException
/// passes through. Read and delete act under the host's own identity, the other two under the cluster's on an
/// active cluster node.

/// Fills `record` with the host of that identifier, or, when `hostId` is empty, of that name; with both empty
/// with this host.
void readHostFromDB(const std::string& masterServer, CHostInformation& record, const std::string& hostName,
                    const std::string& hostId);

/// Deletes this host's record.
void deleteHostFromDB(const std::string& masterServer);

/// Appends all hosts in the server's order.
void readAllHostsFromDB(const std::string& masterServer, std::vector<CHostInformation>& list);

/// Has the server read its security settings or its host configuration again. Exactly one flag must be set;
/// else a line on standard error says so, nothing is asked of the server, and an `ec_status` is thrown.
void reloadConfiguration(const std::string& masterServer, bool security, bool host);

/// Prints this host's own record, as JSON and a line end, on standard output; contacts no server.
/// Returns 0 or the status of CHostInformation::loadHostConfig, which is logged; then nothing is printed.
int getLocalHostInfo(const std::string& masterServer);

/// Whether this node belongs to a cluster, the product is clustered on it, and it is the active node.
bool isClusteredandActiveNode();

} // namespace TQCLNTDB
