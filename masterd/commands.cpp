#include "masterd/commands.h"

#include "masterd/clock.h"
#include "masterd/command_failure.h"
#include "masterd/master_service.h"
#include "masterd/store.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <ostream>
#include <thread>
#include <unistd.h>

namespace masterd {

namespace {

/// Standard output may be a file on a full disk; `loss` says what that means.
void print(std::ostream& out, const std::string& text, const char* loss)
{
    errno = 0;
    if (out << text << std::flush)
        return;
    const std::string cause = errno != 0 ? ": " + tq::errorText(errno) : "";
    throw CommandFailure(EXIT_FAILED, "cannot write to standard output" + cause + "; " + loss);
}

/// Works on the database of a folder that init() completed.
void withStore(const DataFolder& folder, const std::function<void(Store&)>& work)
{
    requireAuthority(folder);
    try {
        Store store(folder.databaseFile());
        work(store);
    } catch (const SqliteError& fault) {
        throw CommandFailure(EXIT_FAILED, folder.databaseFile() + ": " + fault.what());
    }
}

RequestLog openRequestLog(const ServeOptions& options)
{
    if (!options.logRequests)
        return {};
    if (options.requestLog.empty())
        return RequestLog(STDERR_FILENO);
    tq::FileDescriptor file =
        tq::openOwnFile(options.requestLog, O_WRONLY | O_APPEND | O_CREAT, 0600, "runServe");
    if (!file) {
        throw CommandFailure(EXIT_FAILED, "cannot open the request log " + options.requestLog + ": " +
                                              tq::fileFault(errno));
    }
    return RequestLog(std::move(file));
}

/// Blocked in every thread that is started from now on, so that only sigwait() takes them.
sigset_t blockServiceSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

/// False when the service ended by itself.
bool serveUntilSignal(MasterService& service, const sigset_t& signals)
{
    bool served = false;
    std::thread server([&] {
        served = service.run();
        kill(getpid(), SIGTERM); // wakes the wait below when nobody else does
    });
    int signal = 0;
    while (sigwait(&signals, &signal) != 0 || signal == SIGHUP) {
        if (signal == SIGHUP)
            service.reloadSettings();
    }
    service.stop();
    server.join();
    return served;
}

} // namespace

void runInit(const DataFolder& folder, const std::vector<std::string>& names, std::ostream& out)
{
    const Authority authority = initDataFolder(folder, names);
    print(out, "fingerprint: " + authority.fingerprint() + '\n',
          "the authority is made, and an invitation shows its fingerprint");
}

void runInvite(const DataFolder& folder, const InviteOptions& options, std::ostream& out)
{
    withStore(folder, [&](Store& store) {
        const Authority authority(loadKeyAndCertificate(folder.authorityFile()));
        const Secret invitation =
            store.invite(options.hostName, options.type, unixNow() + options.validSeconds);
        print(out, "invitation: " + invitation.text() + "\nfingerprint: " + authority.fingerprint() + '\n',
              "the invitation is lost, make another one");
    });
}

void runRevoke(const DataFolder& folder, const std::string& hostName, std::ostream& out)
{
    withStore(folder, [&](Store& store) {
        const Store::Revoked revoked = store.revoke(hostName, unixNow());
        if (revoked.identities + revoked.invitations == 0)
            throw CommandFailure(EXIT_FAILED, "no identity and no open invitation is for " + hostName);
        print(out,
              "revoked identities: " + std::to_string(revoked.identities) +
                  "\nwithdrawn invitations: " + std::to_string(revoked.invitations) + '\n',
              "it is done nevertheless");
    });
}

void runServe(const DataFolder& folder, const ServeOptions& options, std::ostream& out)
{
    const sigset_t signals = blockServiceSignals();
    MasterService service(folder, options.address, options.port, openRequestLog(options));
    out << "listening on " << options.address << " port " << service.port() << std::endl;
    if (!serveUntilSignal(service, signals))
        throw CommandFailure(EXIT_PORT_TAKEN, "the port was lost");
}

} // namespace masterd
