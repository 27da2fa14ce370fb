#include "enroll/enroll_command.h"

#include "enroll/enroll_failure.h"
#include "enroll/enrollment.h"
#include "enroll/fingerprint.h"
#include "enroll/identity_list.h"
#include "enroll/own_names.h"
#include "enroll/renewal_command.h"
#include "enroll/status_command.h"
#include "enroll/stored_identities.h"
#include "enroll/terminal.h"
#include "platform/config.h"
#include "platform/json.h"
#include "platform/server_name.h"
#include "platform/status.h"
#include "platform/url.h"
#include "platform/user.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <ctime>
#include <ostream>
#include <sstream>
#include <sys/stat.h>

namespace enroll {

namespace {

constexpr const char* INVITATION_OPTION = "--invitation";

constexpr const char* FOOTER =
    "Exit status: 0 done; 1 internal failure, or a result that could not be shown; 2 the command line is "
    "wrong; 3 not root; 4 the server is not reachable; 5 the server is not trusted; 6 the authority has "
    "another fingerprint; 7 the invitation is unknown, used, expired or for another host; 8 the server's "
    "answer cannot be used; 9 the identity store is damaged or cannot be written; 10 there is no such "
    "identity; 11 the certificate has ended or is refused, and a new invitation is needed; 12 the status "
    "could not be told or shown, or --status stands in a wrong command line. Of --status: 0 in step with "
    "every server; 1 behind a server, or a "
    "certificate ends within 30 days, has ended or cannot be read; 2 this host has no identity.";

struct Arguments {
    std::string server;
    std::string invitation;
    std::string fingerprint;
    bool cluster = false;
    bool list = false;
    bool remove = false;
    bool status = false;
    bool json = false;
    bool metrics = false;
    bool renew = false;
    bool ifNeeded = false;

    [[nodiscard]] cert_type certType() const { return cluster ? CERT_TYPE_CLUSTER : CERT_TYPE_HOST; }
    [[nodiscard]] bool enrols() const { return !invitation.empty() || !fingerprint.empty(); }
    [[nodiscard]] bool namesIdentity() const { return !server.empty() || cluster; }
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
    app.add_flag("--status", arguments.status,
                 "Show for each server its identities, the last record sent, the last attempt and whether "
                 "this host is in step with it; a line each");
    app.add_flag("--json", arguments.json, "The status as JSON");
    app.add_flag("--metrics", arguments.metrics, "The status as a text file for Prometheus");
    app.add_flag("--renew", arguments.renew,
                 "Renew the certificate of the identity towards the server, without --server those of all");
    app.add_flag(
        "--if-needed", arguments.ifNeeded,
        "Renew only certificates that are past two thirds of their lives, and say nothing when none is");
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
    EnrollmentOrder order{arguments.server, port, arguments.invitation, *fingerprint, arguments.certType()};
    if (!arguments.cluster) // a cluster's virtual host goes by a name of its own
        order.ownNames = readOwnNames();
    const tq::Identity identity = enroll(order, tq::webLimits(tq::readPlatformSettings()));
    show(out,
         "Enrolled with " + identity.server + " as " + tq::certTypeName(identity.certType) + ' ' +
             identity.hostName + ", host id " + identity.hostId + "; the certificate ends " +
             describeEndOf(identity, std::time(nullptr)) + '\n',
         "this host is enrolled, but the report of it");
}

void runList(std::ostream& out)
{
    requireRoot();
    const std::string table = formatIdentities(readIdentities(), std::time(nullptr));
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

/// Options that only make sense together, or alone.
void requireSense(const Arguments& arguments)
{
    if (arguments.list + arguments.remove + arguments.status + arguments.renew > 1)
        failUsage("only one of --list, --remove, --status and --renew can be done at a time");
    if (arguments.list && (arguments.enrols() || arguments.namesIdentity()))
        failUsage("the option --list stands alone");
    if (arguments.remove && arguments.enrols())
        failUsage("the option --remove takes --server and --cluster only");
    if (arguments.status && (arguments.enrols() || arguments.namesIdentity()))
        failUsage("the option --status takes --json or --metrics only");
    if (arguments.renew && arguments.enrols())
        failUsage("the option --renew takes --if-needed, --server and --cluster only");
    if (arguments.renew && arguments.cluster && arguments.server.empty())
        failUsage("with --renew the option --cluster needs --server");
    if (arguments.json && arguments.metrics)
        failUsage("the options --json and --metrics exclude each other");
    if ((arguments.json || arguments.metrics) && !arguments.status)
        failUsage("the options --json and --metrics belong to --status");
    if (arguments.ifNeeded && !arguments.renew)
        failUsage("the option --if-needed belongs to --renew");
}

int runStatusRequest(const Arguments& arguments, std::ostream& out)
{
    requireRoot();
    const StatusForm form = arguments.json      ? StatusForm::json
                            : arguments.metrics ? StatusForm::metrics
                                                : StatusForm::lines;
    return static_cast<int>(runStatus(form, out));
}

int runRenewalRequest(const Arguments& arguments, int port, std::ostream& out, std::ostream& err)
{
    if (!arguments.server.empty())
        requireServer(arguments);
    requireRoot();
    return static_cast<int>(
        runRenewals({arguments.server, arguments.certType(), arguments.ifNeeded, port}, out, err));
}

int runRequested(const Arguments& arguments, int port, std::ostream& out, std::ostream& err)
{
    requireSense(arguments);
    // These two may be asked for by a timer or a monitoring system, and leave no trace when all is well.
    if (arguments.status)
        return runStatusRequest(arguments, out);
    if (arguments.renew)
        return runRenewalRequest(arguments, port, out, err);
    openLog();
    if (arguments.list)
        runList(out);
    else if (arguments.remove)
        runRemoval(arguments, out);
    else
        runEnrollment(arguments, port, out);
    return static_cast<int>(ExitStatus::done);
}

int parseAndRun(int argc, char** argv, int port, std::ostream& out, std::ostream& err)
{
    Arguments arguments;
    CLI::App app("Gives this host an identity towards a master server, and looks after it.", PROGRAM);
    defineOptions(app, arguments);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        std::ostringstream text;
        app.exit(help, text, text);
        show(out, text.str(), "the help");
        return static_cast<int>(ExitStatus::done);
    }
    hideInvitation(argc, argv);
    umask(S_IWGRP | S_IWOTH);
    return runRequested(arguments, port, out, err);
}

bool asksForStatus(int argc, char** argv)
{
    return std::any_of(argv, argv + argc,
                       [](const char* word) { return std::string_view(word) == "--status"; });
}

/// Whether the number of a failure has another meaning where the status was asked for.
bool isVerdictOfStatus(ExitStatus status)
{
    return status <= ExitStatus::usage;
}

} // namespace

int runCommand(int argc, char** argv, std::ostream& out, std::ostream& err, int port)
{
    ExitStatus status = ExitStatus::failed;
    try {
        return parseAndRun(argc, argv, port, out, err);
    } catch (const CLI::ParseError& fault) {
        status = ExitStatus::usage;
        complain(err, fault.what());
    } catch (const Failure& failure) {
        status = failure.status();
        complain(err, failure.what());
    } catch (const std::exception& fault) {
        complain(err, "internal failure: ", fault.what());
    }
    if (isVerdictOfStatus(status) && asksForStatus(argc, argv))
        status = ExitStatus::statusNotTold;
    return static_cast<int>(status);
}

} // namespace enroll
