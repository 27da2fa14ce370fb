#include "cmd/tqclntdb_common.h"

#include "cmd/process_values.h"
#include "hostdb/tqclntdb_svchandler.h"
#include "hostinfo/tqclntdb_hostinfo.h"
#include "platform/cluster.h"
#include "platform/debuglog.h"
#include "platform/status.h"
#include "platform/types.h"

#include <iostream>

namespace TQCLNTDB {
namespace {

/// A failing status ends the operation. Nothing stands between the command's name and the text: scripts look
/// for the line in just this form.
void throwOnFailure(int status, const char* failureText, const char* context)
{
    if (status == EC_success)
        return;
    LogLine(LogLevel::error, context) << CmdName << failureText << status << '\n';
    throw status;
}

cert_type identityOfThisNode()
{
    return isClusteredandActiveNode() ? CERT_TYPE_CLUSTER : CERT_TYPE_HOST;
}

} // namespace

void readHostFromDB(const std::string& masterServer, CHostInformation& record, const std::string& hostName,
                    const std::string& hostId)
{
    CTQHostDBServiceHandler handler(masterServer, CERT_TYPE_HOST);
    const int status =
        hostId.empty() ? handler.getHost(record, hostName) : handler.getHostByHostId(record, hostId);
    throwOnFailure(status, "Host read failed with error : ", "readHostFromDB");
}

void deleteHostFromDB(const std::string& masterServer)
{
    CTQHostDBServiceHandler handler(masterServer, CERT_TYPE_HOST);
    throwOnFailure(handler.deleteHost(), "Host deletion failed with error : ", "deleteHostFromDB");
}

void readAllHostsFromDB(const std::string& masterServer, std::vector<CHostInformation>& list)
{
    CTQHostDBServiceHandler handler(masterServer, identityOfThisNode());
    throwOnFailure(handler.getAllHosts(list), "Read All Hosts failed with error : ", "readAllHostsFromDB");
}

void reloadConfiguration(const std::string& masterServer, bool security, bool host)
{
    constexpr const char* CONTEXT = "reloadConfiguration";
    CTQHostDBServiceHandler handler(masterServer, identityOfThisNode());
    if (security == host) {
        std::cerr << "Use '-reloadconfig' options with either the '-security' or the '-host' option.\n";
        // Deliberately no int: the command reports an unknown error and ends with 0.
        throw EC_invalid_argument;
    }
    if (host)
        throwOnFailure(handler.reloadConfigHost(HOSTS_RESOURCE),
                       "Reloading host configuration failed with error : ", CONTEXT);
    else
        throwOnFailure(handler.reloadConfigHost(SECURITY_SETTINGS_RESOURCE),
                       "Reloading security configuration failed with error : ", CONTEXT);
}

int getLocalHostInfo(const std::string& masterServer)
{
    constexpr const char* CONTEXT = "getLocalHostInfo";
    CHostInformation record(masterServer, CERT_TYPE_HOST);
    if (const int status = record.loadHostConfig(); status != 0) {
        LogLine(LogLevel::error, CONTEXT) << "Get host configuration failed with error : " << status << '\n';
        return status;
    }
    const std::string text = record.getJSON(true, true);
    std::cout << text << '\n';
    LogLine(LogLevel::progress, CONTEXT) << "Got localinfo JSON = [ " << text << " ]\n";
    return EC_success;
}

bool isClusteredandActiveNode()
{
    return IsNodeClustered(0) != 0 && IsClustered(0) != 0 && IsActive(0, 0) != 0;
}

} // namespace TQCLNTDB
