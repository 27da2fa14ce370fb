#include "cmd/operation.h"

#include "cmd/host_update.h"
#include "cmd/process_values.h"
#include "cmd/tqclntdb_common.h"
#include "platform/debuglog.h"
#include "platform/status.h"

#include <iostream>

namespace TQCLNTDB {
namespace {

void logProgress(const char* text)
{
    logmsg(static_cast<int>(LogLevel::progress), text, progname);
}

void displayHosts(const std::vector<CHostInformation>& hosts)
{
    std::cout << "{\"hosts\":[";
    const char* separator = "";
    for (const CHostInformation& host : hosts) {
        std::cout << separator << host << '\n';
        separator = ", ";
    }
    std::cout << "]}\n";
}

void updateHost(const CommandLine& line)
{
    logProgress("Performing UPDATE HOST operation...");
    updateHostInDB(line.force, line.daemon);
    logProgress("Host update completed successfully");
}

void showLocalHost(OperationRun& run)
{
    logProgress("Getting local host information...");
    if (const int status = getLocalHostInfo(MasterServer); status != EC_success) {
        run.messages << "Failed to get local host information with error : " << status << '\n';
        LOGMSG_STR_STREAM(static_cast<int>(LogLevel::error), run.messages, progname);
        throw status;
    }
    logProgress("Retrieved local host information successfully");
}

void readHost(OperationRun& run)
{
    logProgress("Performing READ HOST operation...");
    readHostFromDB(MasterServer, run.record, run.line.hostName, run.line.hostId);
    logProgress("Host read completed successfully");
    if (run.line.display)
        std::cout << run.record << '\n';
}

void deleteHost()
{
    logProgress("Performing DELETE HOST operation...");
    deleteHostFromDB(MasterServer);
    logProgress("Host deletion completed successfully");
}

void readAllHosts(OperationRun& run)
{
    logProgress("Performing READ ALL HOSTS operation...");
    readAllHostsFromDB(MasterServer, run.hosts);
    logProgress("Read All Hosts completed successfully");
    if (run.line.display)
        displayHosts(run.hosts);
}

void reload(const CommandLine& line)
{
    logProgress("Reloading configuration...");
    reloadConfiguration(MasterServer, line.security, line.host);
    logProgress("Reloaded configuration successfully");
}

} // namespace

void performOperation(OperationRun& run)
{
    switch (run.line.operation) {
    case Operation::none:
        return;
    case Operation::update:
        return updateHost(run.line);
    case Operation::localInfo:
        return showLocalHost(run);
    case Operation::read:
        return readHost(run);
    case Operation::deleteHost:
        return deleteHost();
    case Operation::readAllHosts:
        return readAllHosts(run);
    case Operation::reloadConfiguration:
        return reload(run.line);
    }
    run.messages << "Invalid Request \n";
    LOGMSG_STR_STREAM(static_cast<int>(LogLevel::error), run.messages, progname);
}

} // namespace TQCLNTDB
