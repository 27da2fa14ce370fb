#include "masterd/command_line.h"

#include "masterd/command_failure.h"
#include "masterd/commands.h"
#include "masterd/names.h"
#include "platform/net.h"
#include "platform/paths.h"
#include "platform/release.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <sys/stat.h>

namespace masterd {

namespace {

constexpr std::int64_t INVITATION_MAX_SECONDS = std::int64_t{30} * 86400;

constexpr const char* FOOTER =
    "Exit status: 0 done; 1 it could not be done, standard error says why; 2 the command line "
    "is wrong; 3 another tqmasterd is using the data folder; 4 the address and port cannot "
    "be taken.";

struct Arguments {
    std::string data;
    std::vector<std::string> names;
    std::string hostName;
    bool isCluster = false;
    InviteOptions invite;
    ServeOptions serve;
};

std::string hostNameFault(std::string& name)
{
    return isHostName(name) ? "" : "\"" + name + "\" is no host name";
}

std::string serverNameFault(std::string& name)
{
    return isHostName(name) || knet_is_ip_string(name.c_str())
               ? ""
               : "\"" + name + "\" is neither a host name nor an IP address";
}

CLI::App& addCommand(CLI::App& app, const char* name, const char* description, Arguments& arguments)
{
    CLI::App& command = *app.add_subcommand(name, description);
    command.add_option("--data", arguments.data, "Folder that holds all this master server keeps")
        ->required();
    return command;
}

void addHostOption(CLI::App& command, Arguments& arguments)
{
    command.add_option("--host", arguments.hostName, "Name of the host")
        ->required()
        ->check(CLI::Validator(hostNameFault, "NAME"));
}

void defineCommands(CLI::App& app, Arguments& arguments)
{
    CLI::App& init = addCommand(app, "init", "Make authority, server certificate and database", arguments);
    init.add_option("--name", arguments.names, "Names and addresses that hosts reach this server by")
        ->required()
        ->delimiter(',')
        ->check(CLI::Validator(serverNameFault, "NAME[,NAME...]"));

    CLI::App& invite = addCommand(app, "invite", "Let one host enrol, once", arguments);
    addHostOption(invite, arguments);
    invite.add_flag("--cluster", arguments.isCluster, "Invite the cluster's virtual host of that name");
    invite
        .add_option("--expires-in", arguments.invite.validSeconds, "Seconds that the invitation is good for")
        ->capture_default_str()
        ->check(CLI::Range(std::int64_t{1}, INVITATION_MAX_SECONDS));

    CLI::App& serve = addCommand(app, "serve", "Serve the host database", arguments);
    serve.add_option("--listen", arguments.serve.address, "Address to listen on")->capture_default_str();
    serve.add_option("--request-log", arguments.serve.requestLog,
                     "File to append the request log to, instead of standard error");
    serve.add_flag("!--no-request-log", arguments.serve.logRequests, "Keep no request log");

    CLI::App& revoke = addCommand(app, "revoke", "End a host's identities and open invitations", arguments);
    addHostOption(revoke, arguments);
}

/// As it stands, "link/.." and all: only the file system knows where that leads.
std::string absolutePath(const std::string& path, const std::string& startFolder)
{
    if (path.empty() || path.front() == '/')
        return path;
    if (startFolder.empty())
        throw CommandFailure(EXIT_FAILED, "the current folder cannot be read, so " + path +
                                              " leads nowhere; give an absolute path");
    return startFolder + '/' + path;
}

void runCommand(const std::string& command, Arguments& arguments, const std::string& startFolder)
{
    const DataFolder folder(absolutePath(arguments.data, startFolder));
    becomeFolderOwner(folder);
    if (command == "init") {
        runInit(folder, arguments.names, std::cout);
    } else if (command == "invite") {
        arguments.invite.hostName = arguments.hostName;
        arguments.invite.type = arguments.isCluster ? IdentityType::cluster : IdentityType::host;
        runInvite(folder, arguments.invite, std::cout);
    } else if (command == "revoke") {
        runRevoke(folder, arguments.hostName, std::cout);
    } else {
        arguments.serve.port = TQ_WEB_SERVICE_PORT;
        arguments.serve.requestLog = absolutePath(arguments.serve.requestLog, startFolder);
        runServe(folder, arguments.serve, std::cout);
    }
}

} // namespace

int runCommandLine(int argc, const char* const* argv, const std::string& startFolder)
{
    umask(077); // whatever file comes into being in a data folder is its owner's alone
    CLI::App app("Master server of the host database", "tqmasterd");
    app.require_subcommand(1);
    app.set_version_flag("--version", TQ_RELEASE_NUMBER);
    app.footer(FOOTER);
    Arguments arguments;
    defineCommands(app, arguments);
    try {
        app.parse(argc, argv);
        runCommand(app.get_subcommands().front()->get_name(), arguments, startFolder);
        return EXIT_DONE;
    } catch (const CLI::ParseError& parsed) { // asking for help comes this way too
        return app.exit(parsed) == 0 ? EXIT_DONE : EXIT_USAGE;
    } catch (const CommandFailure& failure) {
        std::cerr << "tqmasterd: " << failure.what() << std::endl;
        return failure.exitStatus();
    } catch (const std::exception& failure) {
        std::cerr << "tqmasterd: " << failure.what() << std::endl;
        return EXIT_FAILED;
    }
}

} // namespace masterd
