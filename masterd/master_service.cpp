#include "masterd/master_service.h"

#include "masterd/command_failure.h"

#include <cstdio>

namespace masterd {

namespace {

const DataFolder& checked(const DataFolder& folder)
{
    requireAuthority(folder);
    return folder;
}

/// Opens a part of the folder; whatever is wrong with it is told with its file.
template <typename Part>
Part open(const std::string& path)
{
    try {
        return Part(path);
    } catch (const SqliteError& fault) {
        throw CommandFailure(EXIT_FAILED, "cannot open the database " + path + ": " + fault.what());
    } catch (const CommandFailure&) {
        throw;
    } catch (const std::runtime_error& fault) {
        throw CommandFailure(EXIT_FAILED, fault.what());
    }
}

} // namespace

MasterService::MasterService(const DataFolder& folder, const std::string& address, int port, RequestLog log,
                             const ConnectionLimits& limits)
    : hold_(checked(folder)), authority_(loadKeyAndCertificate(folder.authorityFile())),
      store_(open<Store>(folder.databaseFile())), settings_(open<SettingsFile>(folder.settingsFile())),
      log_(std::move(log)), service_(authority_, store_, settings_),
      server_(makeServerContext(loadKeyAndCertificate(folder.serverFile()), *authority_.own().certificate),
              service_, log_, limits)
{
    if (const std::string fault = server_.bind(address, port); !fault.empty())
        throw CommandFailure(EXIT_PORT_TAKEN,
                             "cannot listen on " + address + " port " + std::to_string(port) + ": " + fault);
}

void MasterService::reloadSettings()
{
    try {
        settings_.reload();
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "tqmasterd: the settings stay as they were: %s\n", fault.what());
    }
}

} // namespace masterd
