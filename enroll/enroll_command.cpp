#include "enroll/enroll_command.h"

#include "enroll/enroll_failure.h"
#include "enroll/enrollment.h"
#include "enroll/fingerprint.h"
#include "enroll/identity_list.h"
#include "platform/config.h"
#include "platform/debuglog.h"
#include "platform/file_io.h"
#include "platform/json.h"
#include "platform/server_name.h"
#include "platform/status.h"
#include "platform/url.h"
#include "platform/user.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <ostream>
#include <sstream>
#include <sys/stat.h>

namespace enroll {

namespace {

constexpr const char* PROGRAM = "tqenroll";
constexpr const char* INVITATION_OPTION = "--invitation";
constexpr int LOG_MODE = 0644;

constexpr const char* FOOTER =
    "Exit status: 0 done; 1 internal failure, or a result that could not be shown; 2 the command line is "
    "wrong; 3 not root; 4 the server is not reachable; 5 the server is not trusted; 6 the authority has "
    "another fingerprint; 7 the invitation is unknown, used or expired; 8 the server's answer cannot be "
    "used; 9 the identity store is damaged or cannot be written; 10 there is no such identity.";

struct Arguments {
    std::string server;
    std::string invitation;
    std::string fingerprint;
    bool cluster = false;
    bool list = false;
    bool remove = false;

    [[nodiscard]] cert_type certType() const { return cluster ? CERT_TYPE_CLUSTER : CERT_TYPE_HOST; }
};

void defineOptions(CLI::App& app, Arguments& arguments)
{
    app.add_option("--server", arguments.server, "Name of the master server");
    app.add_option(INVITATION_OPTION, arguments.invitation, "Invitation that the master server gave out");
    app.add_option("--fingerprint", arguments.fingerprint,
                   "SHA-256 fingerprint of the master server's authority, given out with the invitation");
    app.add_flag("--cluster", arguments.cluster,
                 "The identity of the cluster's virtual host, not of this host");
    app.add_flag("--list", arguments.list, "Show this host's identities and when their certificates end");
    app.add_flag("--remove", arguments.remove, "Remove the identity towards the server");
    app.footer(FOOTER);
}

/// Blots out the invitation in the process's own command line.
void hideInvitation(int argc, char** argv)
{
    const std::string_view option = INVITATION_OPTION;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == option && i + 1 < argc)
            std::memset(argv[i + 1], 'x', std::strlen(argv[i + 1]));
        else if (argument.substr(0, option.size()) == option && argument.size() > option.size())
            std::memset(argv[i] + option.size() + 1, 'x', argument.size() - option.size() - 1);
    }
}

[[noreturn]] void failUsage(const std::string& sentence)
{
    throw Failure(ExitStatus::usage, sentence);
}

/// Writes a result; `what` begins the sentence about one that did not get out.
void show(std::ostream& out, const std::string& text, const std::string& what)
{
    errno = 0;
    out << text << std::flush;
    const int cause = errno;
    if (!out)
        throw Failure(ExitStatus::failed, what + " could not be written to standard output" +
                                              (cause != 0 ? ": " + tq::errorText(cause) : ""));
}

void requireServer(const Arguments& arguments)
{
    if (arguments.server.empty())
        failUsage("the option --server is missing");
    if (const char* fault = tq::serverNameFault(arguments.server); fault != nullptr)
        failUsage("the server's name cannot be used: " + std::string(fault));
    if (!tq::isUrlHost(arguments.server))
        failUsage("the server's name is neither a host name nor an address");
}

void requireRoot()
{
    if (is_user_admin(0) == 0)
        throw Failure(ExitStatus::notRoot, "only root may read or change this host's identities");
}

void runEnrollment(const Arguments& arguments, int port, std::ostream& out)
{
    requireServer(arguments);
    if (arguments.invitation.empty())
        failUsage("the option --invitation is missing");
    if (!tq::JsonRef(json_stringn(arguments.invitation.data(), arguments.invitation.size())))
        failUsage("the invitation is not UTF-8 text");
    const std::optional<std::string> fingerprint = parseFingerprint(arguments.fingerprint);
    if (!fingerprint)
        failUsage("the option --fingerprint needs the 64 hexadecimal digits of a SHA-256 fingerprint");
    requireRoot();
    const EnrollmentOrder order{arguments.server, port, arguments.invitation, *fingerprint,
                                arguments.certType()};
    const tq::Identity identity = enroll(order, tq::webLimits(tq::readPlatformSettings()));
    const std::string end =
        describeEnd(certificateFileEnd(tq::identityFiles(identity).certificate), std::time(nullptr));
    show(out,
         "Enrolled with " + identity.server + " as " + tq::certTypeName(identity.certType) + ' ' +
             identity.hostName + ", host id " + identity.hostId + "; the certificate ends " + end + '\n',
         "this host is enrolled, but the report of it");
}

void runList(std::ostream& out)
{
    requireRoot();
    std::vector<tq::Identity> identities;
    std::string cause;
    const int status = tq::loadIdentityStore(identities, &cause);
    if (status != EC_success && status != EC_identity_store_missing)
        throw Failure(ExitStatus::storeFailed, "the identity store cannot be used: " + cause);
    const std::string table = formatIdentities(identities, std::time(nullptr));
    show(out, table.empty() ? "This host has no identities.\n" : table, "the list of identities");
}

void runRemoval(const Arguments& arguments, std::ostream& out)
{
    requireServer(arguments);
    requireRoot();
    std::string cause;
    const std::string type = tq::certTypeName(arguments.certType());
    switch (tq::removeIdentity(arguments.server, arguments.certType(), &cause)) {
    case EC_success:
        show(out, "Removed the " + type + " identity towards " + arguments.server + '\n',
             "the identity is removed, but the report of it");
        return;
    case EC_identity_store_missing:
    case EC_identity_not_found:
        throw Failure(ExitStatus::noSuchIdentity,
                      "this host has no " + type + " identity towards " + arguments.server);
    default:
        throw Failure(ExitStatus::storeFailed, "the identity store cannot be changed: " + cause);
    }
}

void runRequested(const Arguments& arguments, int port, std::ostream& out)
{
    const bool enrols = !arguments.invitation.empty() || !arguments.fingerprint.empty();
    if (arguments.list) {
        if (enrols || arguments.remove || arguments.cluster || !arguments.server.empty())
            failUsage("the option --list stands alone");
        runList(out);
    } else if (arguments.remove) {
        if (enrols)
            failUsage("the option --remove takes --server and --cluster only");
        runRemoval(arguments, out);
    } else {
        runEnrollment(arguments, port, out);
    }
}

void parseAndRun(int argc, char** argv, int port, std::ostream& out)
{
    Arguments arguments;
    CLI::App app("Gives this host an identity towards a master server.", PROGRAM);
    defineOptions(app, arguments);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        std::ostringstream text;
        app.exit(help, text, text);
        show(out, text.str(), "the help");
        return;
    }
    hideInvitation(argc, argv);
    umask(S_IWGRP | S_IWOTH);
    int unused = 0;
    open_debug_log(TQ_LOG_DIR, TQ_LOG_SUBDIR, PROGRAM, LOG_MODE, &unused);
    runRequested(arguments, port, out);
}

} // namespace

int runCommand(int argc, char** argv, std::ostream& out, std::ostream& err, int port)
{
    ExitStatus status = ExitStatus::done;
    try {
        parseAndRun(argc, argv, port, out);
    } catch (const CLI::ParseError& fault) {
        status = ExitStatus::usage;
        err << PROGRAM << ": " << fault.what() << ".\n";
    } catch (const Failure& failure) {
        status = failure.status();
        err << PROGRAM << ": " << failure.what() << ".\n";
    } catch (const std::exception& fault) {
        status = ExitStatus::failed;
        err << PROGRAM << ": internal failure: " << fault.what() << ".\n";
    }
    return static_cast<int>(status);
}

} // namespace enroll
