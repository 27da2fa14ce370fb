#include "masterd/web_server.h"

#include "masterd/connection_workers.h"
#include "masterd/request_body.h"

#include <cerrno>
#include <cstdio>
#include <openssl/ssl.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace masterd {

namespace {

/// With SQLite's and the service's own descriptors well within the usual 1024.
constexpr std::size_t MOST_CONNECTIONS = 512;
/// The library asks for 5, which a fleet that starts its update on the hour fills at once.
constexpr int BACKLOG = 1024;
constexpr const char* EVERY_PATH = R"([\s\S]*)";
constexpr const char* JSON_TYPE = "application/json";

/// A restart may take the port again while old connections fade. Not SO_REUSEPORT, which the library would
/// set: a second service would share the port unseen.
void setSocketOptions(int socket)
{
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

} // namespace

/// What is known of one request beyond what the library keeps; its connection's SSL object leads to it.
class WebServer::Exchange {
public:
    Exchange(SSL& ssl, const X509* certificate) : ssl_(ssl), certificate_(certificate)
    {
        SSL_set_app_data(&ssl_, this);
    }
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;
    ~Exchange() { SSL_set_app_data(&ssl_, nullptr); }

    /// Null for a request whose head could not be read.
    static Exchange* of(const httplib::Request& request)
    {
        return request.ssl != nullptr ? static_cast<Exchange*>(SSL_get_app_data(request.ssl)) : nullptr;
    }

    [[nodiscard]] const X509* certificate() const { return certificate_; }

    std::string identity;
    bool isReadToItsEnd = false; ///< the next request on the connection begins where it should

private:
    SSL& ssl_;
    const X509* certificate_;
};

WebServer::WebServer(TlsContext context, WebService& service, const RequestLog& log,
                     const ConnectionLimits& limits)
    : context_(std::move(context)), service_(service), log_(log), limits_(limits),
      stopEvent_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!stopEvent_)
        throw std::runtime_error("cannot make an event: " + tq::fileFault(errno));
    // The library takes the queue over and deletes it.
    new_task_queue = [] { return new ConnectionWorkers(MOST_CONNECTIONS); };
    set_socket_options(setSocketOptions);
    // Only told to clients; the connection keeps to its limits itself.
    set_keep_alive_max_count(static_cast<std::size_t>(limits_.requests));
    set_keep_alive_timeout(std::chrono::duration_cast<std::chrono::seconds>(limits_.firstByte).count());
    installHandlers();
}

WebServer::~WebServer()
{
    if (svr_sock_ != INVALID_SOCKET) // bound and never run
        ::close(svr_sock_);
}

/// Every path leads to answer(): the service knows its resources itself. Bodies are read piece by piece,
/// since the library would read one in chunks, or one that is compressed, without limit.
void WebServer::installHandlers()
{
    const auto plain = [this](const httplib::Request& request, httplib::Response& response) {
        answer(request, response, nullptr);
    };
    const auto withBody = [this](const httplib::Request& request, httplib::Response& response,
                                 const httplib::ContentReader& reader) {
        answer(request, response, &reader);
    };
    Get(EVERY_PATH, plain);
    Options(EVERY_PATH, plain);
    Delete(EVERY_PATH, plain);
    Post(EVERY_PATH, withBody);
    Put(EVERY_PATH, withBody);
    Patch(EVERY_PATH, withBody);
    Delete(EVERY_PATH, withBody);

    set_pre_routing_handler([](const httplib::Request& request, httplib::Response& response) {
        // The library takes this word for a method with a body and would read it whole.
        if (request.method != "PRI")
            return HandlerResponse::Unhandled;
        response.status = 400;
        return HandlerResponse::Handled;
    });
    const HandlerWithResponse fillError = [](const httplib::Request& /*request*/,
                                             httplib::Response& response) {
        if (response.body.empty())
            response.set_content(errorReply(response.status, "the request is malformed").body, JSON_TYPE);
        return HandlerResponse::Handled;
    };
    set_error_handler(fillError);
    set_exception_handler([](const httplib::Request& /*request*/, httplib::Response& response,
                             const std::exception_ptr& /*failure*/) {
        response.status = 500;
        response.set_content(errorReply(500, "internal failure").body, JSON_TYPE);
    });
    set_logger([this](const httplib::Request& request, const httplib::Response& response) {
        const Exchange* exchange = Exchange::of(request);
        const X509* certificate = exchange != nullptr ? exchange->certificate() : nullptr;
        log_.write({request.remote_addr, request.method, request.target, response.status,
                    exchange != nullptr ? exchange->identity : "",
                    certificate != nullptr ? tq::certificateFingerprint(*certificate) : ""});
    });
}

void WebServer::answer(const httplib::Request& request, httplib::Response& response,
                       const httplib::ContentReader* reader)
{
    Exchange& exchange = *Exchange::of(request);
    RequestBody body = readRequestBody(request, reader);
    WebReply reply;
    if (body.faultStatus != 0) {
        reply = errorReply(body.faultStatus, body.fault);
    } else {
        exchange.isReadToItsEnd = true;
        reply = service_.handle({request.method, request.target, request.get_header_value("Authorization"),
                                 std::move(body.text), exchange.certificate()});
        exchange.identity = std::move(reply.identity);
    }
    response.status = reply.status;
    if (reply.status != 204)
        response.set_content(reply.body, JSON_TYPE);
}

bool WebServer::process_and_close_socket(socket_t socket)
{
    try {
        TlsConnection connection(*context_, socket, stopEvent_.get(), limits_);
        serve(connection);
    } catch (const std::exception& failure) {
        // One connection's end; the service goes on.
        std::fprintf(stderr, "tqmasterd: a connection failed: %s\n", failure.what());
    }
    return true;
}

void WebServer::serve(TlsConnection& connection)
{
    if (!connection.handshake()) {
        logRefusal(connection);
        return;
    }
    for (int left = limits_.requests; left > 0; --left) {
        if (!connection.awaitRequest() || !serveRequest(connection, left == 1))
            return;
    }
}

void WebServer::logRefusal(const TlsConnection& connection) const
{
    if (connection.handshakeFault().empty())
        return;
    LoggedRequest refused;
    int port = 0;
    connection.get_remote_ip_and_port(refused.client, port);
    refused.fault = connection.handshakeFault();
    log_.write(refused);
}

/// Whether another request may follow on the connection.
bool WebServer::serveRequest(TlsConnection& connection, bool isLast)
{
    Exchange exchange(*connection.ssl(), connection.peerCertificate());
    bool isClosed = false;
    const bool isAnswered = process_request(connection, isLast, isClosed, [&](httplib::Request& request) {
        request.ssl = connection.ssl();
        request.ranges.clear(); // a part of a record is of no use to anybody
    });
    if (!exchange.isReadToItsEnd)
        connection.finishReading();
    return isAnswered && !isClosed && exchange.isReadToItsEnd;
}

std::string WebServer::bind(const std::string& address, int port)
{
    address_ = address;
    errno = 0;
    port_ = port == 0 ? bind_to_any_port(address) : (bind_to_port(address, port) ? port : -1);
    if (port_ <= 0)
        return errno == 0 ? "no such address here" : tq::fileFault(errno);
    if (::listen(svr_sock_, BACKLOG) != 0)
        return tq::fileFault(errno);
    return "";
}

bool WebServer::run()
{
    while (!stopping_) {
        listen_after_bind();
        const int cause = errno;
        svr_sock_ = INVALID_SOCKET; // closed by now
        if (stopping_)
            break;
        // The library gives the port up when the machine cannot hand it a connection, as without memory.
        std::fprintf(stderr, "tqmasterd: accepting failed (%s); taking port %d again\n",
                     tq::fileFault(cause).c_str(), port_);
        if (const std::string fault = bind(address_, port_); !fault.empty()) {
            std::fprintf(stderr, "tqmasterd: cannot take port %d: %s\n", port_, fault.c_str());
            return false;
        }
    }
    return true;
}

void WebServer::stop()
{
    if (stopping_.exchange(true))
        return;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(stopEvent_.get(), &one, sizeof one);
    // Makes accept() fail, now or when it is called; the library then closes the socket. Its own stop() would
    // do nothing in the moment before it listens, and close the socket a second time in another.
    ::shutdown(svr_sock_, SHUT_RDWR);
}

} // namespace masterd
