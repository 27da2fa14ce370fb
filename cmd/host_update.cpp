#include "cmd/host_update.h"

#include "cmd/attempt_wait.h"
#include "cmd/tqclntdb_common.h"
#include "hostdb/error_body.h"
#include "hostdb/tqclntdb_svchandler.h"
#include "hostdb/web_service_exception.h"
#include "platform/debuglog.h"
#include "platform/file_io.h"
#include "platform/identity.h"
#include "platform/lockfile.h"
#include "platform/paths.h"
#include "platform/status.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <unistd.h>
#include <utility>

namespace TQCLNTDB {
namespace {

constexpr int LOCK_TRIES = 10;
constexpr int LOCK_WAIT_MS = 5;
constexpr int NOT_LOCKED = -1;
constexpr int MAX_ATTEMPTS = 5;
constexpr int SECONDS_BETWEEN_ATTEMPTS = 10;

/// Where a daemon's update keeps its lock. Not in the update's frame, since after a failure the lock has to
/// last until the process ends, and never destroyed, since by then what a destructor needs may be gone: the
/// kernel frees the lock.
std::unique_ptr<TQLockFile>& daemonLock()
{
    static auto* const owner = new std::unique_ptr<TQLockFile>;
    return *owner;
}

/// False when another daemon's update is running: this one is then dropped quietly.
bool takeDaemonLock()
{
    constexpr const char* CONTEXT = "updateHostInDB";
    const std::string path = std::string(TQ_UPDATE_LOCK_BASE) + ".daemon";
    auto lock = std::make_unique<TQLockFile>(path, LOCK_TRIES, LOCK_WAIT_MS);
    if (lock->fd == NOT_LOCKED) {
        LogLine(LogLevel::error, CONTEXT)
            << "Failed to acquire the daemon lock for hostdb update : " << path << '\n';
        // "proress" stays: the line is searched for as it has always been.
        LogLine(LogLevel::error, CONTEXT) << "Not processing this update request from the daemon, as one "
                                             "update from the daemon is already in proress.\n";
        return false;
    }
    LogLine(LogLevel::progress, CONTEXT)
        << "Successfully acquired the daemon lock for hostdb update : " << path << '\n';
    daemonLock() = std::move(lock);
    return true;
}

void releaseDaemonLock()
{
    if (!daemonLock())
        return;
    LogLine(LogLevel::progress, "updateHostInDB") << "Releasing daemon lock for hostdb update. \n";
    daemonLock().reset();
}

/// One pass and the entry about its failure.
int runPass(cert_type certType, const char* certTypeName, bool force, int& successCount)
{
    const int status = fetchMastersAndUpdateHostDB(certType, force, successCount);
    if (status != EC_success)
        LogLine(LogLevel::warning, "updateHostInDB")
            << "fetchMastersAndUpdateHostDB with certType " << certTypeName << " failed with error:" << status
            << '\n';
    return status;
}

/// The platform's list of server names, released with its scope.
class ServerNames {
public:
    ServerNames() = default;
    ServerNames(const ServerNames&) = delete;
    ServerNames& operator=(const ServerNames&) = delete;
    ~ServerNames()
    {
        for (int i = 0; i < count; ++i)
            std::free(names[i]);
        std::free(names);
    }

    int count = 0;
    char** names = nullptr;
};

/// Whether the server's certificate authority can be relied on; `status` becomes the look-up's.
bool hasUsableAuthority(cert_type certType, const char* server, int& status)
{
    constexpr const char* CONTEXT = "updateHostDBForAllMasters";
    int mode = 0;
    status = getCAModeByServer(certType, server, &mode);
    LogLine(LogLevel::progress, CONTEXT) << "getCAModeByServer retrieved: retval=" << status << ", Server:["
                                         << server << "], CAMode:[" << CaUsageToString(mode) << "]\n";
    if (status == EC_success && mode != CA_USAGE_NONE)
        return true;
    LogLine(LogLevel::error, CONTEXT)
        << "Failed to derive the CA Mode of the server. This implies that the certificate is not deployed "
           "correctly for this server. Skipping update for server ["
        << server << " ]\n";
    return false;
}

void writeStatusFile(const std::string& path, int status)
{
    constexpr const char* CONTEXT = "updateHostDBForAllMasters";
    tq::FileDescriptor file = tq::openOwnFile(path, O_WRONLY | O_CREAT | O_TRUNC, 0666, CONTEXT);
    if (!file) {
        LogLine(LogLevel::error, CONTEXT) << "Unable to open file: " << path << '\n';
        return;
    }
    LogLine(LogLevel::progress, CONTEXT)
        << "Writing HostDB update status:" << status << " to file :" << path << '\n';
    if (!tq::writeAll(file.get(), std::to_string(status) + '\n') || close(file.release()) != 0)
        LogLine(LogLevel::error, CONTEXT)
            << "Unable to write file: " << path << ": " << tq::errorText(errno) << '\n';
}

void removeStatusFile(const std::string& path)
{
    constexpr const char* CONTEXT = "updateHostDBForAllMasters";
    LogLine(LogLevel::progress, CONTEXT) << "Deleting HostDB update status file, as update passed\n";
    const int result = unlink(path.c_str());
    const int error = errno;
    if (result != 0 && error != ENOENT)
        LogLine(LogLevel::error, CONTEXT)
            << "Failed to remove the file. retval: [" << result << "] and errno: [" << error << "]";
}

/// Updates one server under its lock, which is released on return. Returns the status; nothing when the lock
/// is busy, which is neither a success nor a failure.
std::optional<int> updateUnderLock(cert_type certType, const char* server, bool force)
{
    constexpr const char* CONTEXT = "updateHostDBForAllMasters";
    const std::string statusPath = std::string(TQ_UPDATE_STATUS_BASE) + "." + server;
    const std::string lockPath = std::string(TQ_UPDATE_LOCK_BASE) + "." + server;
    const TQLockFile lock(lockPath, LOCK_TRIES, LOCK_WAIT_MS);
    if (lock.fd == NOT_LOCKED) {
        LogLine(LogLevel::error, CONTEXT)
            << "Failed to acquire lock on hostDB update status file for server [" << server
            << "], lockfile : " << lockPath << '\n';
        return std::nullopt;
    }
    LogLine(LogLevel::progress, CONTEXT)
        << "Successfully acquired lock on hostDB update status file for server [" << server
        << "], lockfile : " << lockPath << '\n';

    const int status = updateHostInMasterServer(certType, server, force);
    if (status == EC_success) {
        LogLine(LogLevel::progress, CONTEXT) << "HostDB update succeeded for server [" << server << "]\n";
        removeStatusFile(statusPath);
    } else {
        LogLine(LogLevel::error, CONTEXT)
            << "HostDB update failed for server [" << server << "] with error : " << status << '\n';
        writeStatusFile(statusPath, status);
    }
    return status;
}

/// One updateRecord(); a web-service failure and a thrown status become the result.
int updateRecordOnce(CTQHostDBServiceHandler& handler, bool force)
{
    constexpr const char* CONTEXT = "updateHostInMasterServer";
    try {
        return handler.updateRecord(force);
    } catch (const WebServiceException& failure) {
        const std::int32_t code = failure.getTquErrorCode();
        LogLine(LogLevel::error, CONTEXT)
            << "Caught WebServiceException, err = " << static_cast<std::uint32_t>(code)
            << ", err_msg = " << readErrorBody(failure.responseBody()).errMessage << '\n';
        return code;
    } catch (int status) {
        LogLine(LogLevel::error, CONTEXT) << "updateRecord() failed, error = " << status << '\n';
        return status;
    }
}

/// The same for every other exception, one while a failure is being reported included.
int attemptUpdate(CTQHostDBServiceHandler& handler, bool force)
{
    try {
        return updateRecordOnce(handler, force);
    } catch (...) {
        LogLine(LogLevel::error, "updateHostInMasterServer")
            << "updateRecord() failed with unknown exception\n";
        return EC_unexpected_reply;
    }
}

} // namespace

void updateHostInDB(bool force, bool daemon)
{
    constexpr const char* CONTEXT = "updateHostInDB";
    int hostCount = 0;
    int clusterCount = 0;
    if (daemon && !takeDaemonLock())
        return;

    int status = runPass(CERT_TYPE_HOST, "CERT_TYPE_HOST", force, hostCount);
    const bool activeNode = isClusteredandActiveNode();
    if (activeNode) {
        LogLine(LogLevel::progress, CONTEXT)
            << "This command is running on active node of a cluster. It will "
               "update virtual host secure status as well.\n";
        status = runPass(CERT_TYPE_CLUSTER, "CERT_TYPE_CLUSTER", force, clusterCount);
    }
    // The statuses do not decide: one updated server in each pass is enough.
    if (hostCount == 0 || (activeNode && clusterCount == 0)) {
        LogLine(LogLevel::error, CONTEXT) << "Failed to update hostDB for all masters\n";
        throw status;
    }
    releaseDaemonLock();
}

int fetchMastersAndUpdateHostDB(cert_type certType, bool force, int& successCount)
{
    constexpr const char* CONTEXT = "fetchMastersAndUpdateHostDB";
    ServerNames servers;
    if (const int status = getServersFromMapInfo(certType, &servers.count, &servers.names, 0); status != 0) {
        LogLine(LogLevel::error, CONTEXT)
            << "getServersFromMapInfo with certType " << certType << " failed with error: " << status << '\n';
        throw status;
    }
    if (servers.count < 1) {
        LogLine(LogLevel::error, CONTEXT) << "getServersFromMapInfo with certType " << certType
                                          << " returned erroneous server count: " << servers.count << '\n';
        // Deliberately no int: the command reports an unknown error and ends with 0.
        throw EC_invalid_argument;
    }
    return updateHostDBForAllMasters(certType, servers.names, force, servers.count, successCount);
}

int updateHostDBForAllMasters(cert_type certType, const char* const* servers, bool force, int count,
                              int& successCount)
{
    constexpr const char* CONTEXT = "updateHostDBForAllMasters";
    successCount = 0;
    int result = EC_success;
    LogLine(LogLevel::progress, CONTEXT) << "Server count [ " << count << " ]\n";
    for (int i = 0; i < count; ++i) {
        const char* const server = servers[i];
        LogLine(LogLevel::progress, CONTEXT) << "Attempting HostDB update for server [ " << server << " ]\n";
        int lookUpStatus = EC_success;
        if (!hasUsableAuthority(certType, server, lookUpStatus)) {
            result = lookUpStatus;
            continue;
        }
        const std::optional<int> status = updateUnderLock(certType, server, force);
        if (!status)
            continue;
        if (*status == EC_success)
            ++successCount;
        else
            result = *status;
    }
    return result;
}

int updateHostInMasterServer(cert_type certType, const std::string& server, bool force)
{
    constexpr const char* CONTEXT = "updateHostInMasterServer";
    CTQHostDBServiceHandler handler(server, certType);
    for (int attempts = 1;; ++attempts) {
        const int status = attemptUpdate(handler, force);
        if (status == EC_success) {
            LogLine(LogLevel::progress, CONTEXT) << "Update successful in [" << attempts << "] attempts.\n";
            return EC_success;
        }
        LogLine(LogLevel::error, CONTEXT)
            << "Update attempt [" << attempts << "] failed with error: " << status << '\n';
        if (attempts == MAX_ATTEMPTS) {
            LogLine(LogLevel::error, CONTEXT) << "Update failed after [" << MAX_ATTEMPTS
                                              << "] attempts. Returning error: " << status << '\n';
            return status;
        }
        LogLine(LogLevel::progress, CONTEXT)
            << "Waiting [" << SECONDS_BETWEEN_ATTEMPTS << "] seconds before next attempt.\n";
        waitBeforeNextAttempt(SECONDS_BETWEEN_ATTEMPTS);
    }
}

} // namespace TQCLNTDB
