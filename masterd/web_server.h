/// The web service on its port: HTTP over TLS in front of a WebService.
#pragma once

#include "masterd/request_log.h"
#include "masterd/tls_connection.h"
#include "masterd/tls_context.h"
#include "masterd/web_service.h"
#include "platform/file_io.h"

#include <atomic>
#include <httplib.h>
#include <string>

namespace masterd {

/// Owns the port. What the library does by itself is replaced where it would let a client hold the service
/// up: accepting, TLS, limits and workers are this service's own.
class WebServer : private httplib::Server {
public:
    /// `service` and `log` must outlive the server.
    WebServer(TlsContext context, WebService& service, const RequestLog& log, const ConnectionLimits& limits);
    ~WebServer() override;

    /// Takes `port` (0: any free one) of `address`, a name or an IP address. Empty when done, else why not.
    std::string bind(const std::string& address, int port);
    /// The port taken.
    [[nodiscard]] int port() const { return port_; }

    /// Serves until stop(). Returns when the requests in hand are answered. False when the port was lost.
    /// A connection that the machine cannot hand over, as without memory, is told on standard error.
    bool run();
    /// May be called by any thread, before, during and after run(); returns at once.
    void stop();

private:
    class Exchange;

    void serveSocket(int socket);
    void serve(TlsConnection& connection);
    void logRefusal(const TlsConnection& connection) const;
    bool serveRequest(TlsConnection& connection, bool isLast);
    void answer(const httplib::Request& request, httplib::Response& response,
                const httplib::ContentReader* reader);
    void installHandlers();
    void pauseAccepting() const;

    TlsContext context_;
    WebService& service_;
    const RequestLog& log_;
    ConnectionLimits limits_;
    tq::FileDescriptor stopEvent_;
    std::atomic<bool> stopping_ = false;
    int port_ = 0;
};

} // namespace masterd
