/// A master server in one object: a data folder, served on a port.
#pragma once

#include "masterd/data_folder.h"
#include "masterd/request_log.h"
#include "masterd/settings.h"
#include "masterd/store.h"
#include "masterd/tls_connection.h"
#include "masterd/web_server.h"
#include "masterd/web_service.h"

#include <string>

namespace masterd {

class MasterService {
public:
    /// Takes the data folder, opens what is in it and takes `port` of `address` (0: any free port). Throws
    /// CommandFailure with a message for the administrator.
    MasterService(const DataFolder& folder, const std::string& address, int port, RequestLog log,
                  const ConnectionLimits& limits = {});

    [[nodiscard]] int port() const { return server_.port(); }

    /// Serves until stop(), then returns true once the requests in hand are answered; false when the port was
    /// lost on the way.
    bool run() { return server_.run(); }
    /// From any thread.
    void stop() { server_.stop(); }
    /// Reads the settings again, as the clients' request does; a fault is told on standard error.
    void reloadSettings();
    /// See Store.
    [[nodiscard]] std::size_t waitingChanges() const { return store_.waitingChanges(); }

private:
    DataFolderHold hold_;
    Authority authority_;
    Store store_;
    SettingsFile settings_;
    RequestLog log_;
    WebService service_;
    WebServer server_;
};

} // namespace masterd
