#include "masterd/web_server.h"

#include "masterd/connection_workers.h"
#include "masterd/request_body.h"

#include <cerrno>
#include <cstdio>
#include <optional>
#include <poll.h>
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
/// With its marks it fills a record of TLS. The library copies each chunk several times.
constexpr std::size_t CHUNK_BYTES = std::size_t{16} * 1024 - 8;
constexpr const char* EVERY_PATH = R"([\s\S]*)";
constexpr const char* JSON_TYPE = "application/json";
/// Until the next try when the machine could not hand over a connection, as without memory or descriptors.
constexpr int ACCEPT_PAUSE_MS = 20;

/// A restart may take the port again while old connections fade. Not SO_REUSEPORT, which the library would
/// set: a second service would share the port unseen.
void setSocketOptions(int socket)
{
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

/// Hands the parts of a body to the library in chunks, each part once the one before it has been sent.
httplib::ContentProviderWithoutLength partsOf(WebReply reply)
{
    return [reply = std::move(reply)](std::size_t sent, httplib::DataSink& sink) mutable {
        try {
            const std::string part = sent == 0 ? std::move(reply.body) : reply.nextPart();
            if (part.empty())
                sink.done();
            for (std::string_view left = part; !left.empty();) {
                const std::string_view chunk = left.substr(0, CHUNK_BYTES);
                if (!sink.write(chunk.data(), chunk.size()))
                    return false;
                left.remove_prefix(chunk.size());
            }
            return true;
        } catch (const std::exception& failure) {
            std::fprintf(stderr, "tqmasterd: a reply was cut off: %s\n", failure.what());
            return false;
        }
    };
}

/// Whether accept() will never again succeed; everything else passes, or concerns one connection.
bool isPortLost(int acceptFault)
{
    return acceptFault == EBADF || acceptFault == EINVAL || acceptFault == ENOTSOCK;
}

} // namespace

/// What is known of the request in hand beyond what the library keeps. The library reports some requests
/// without anything of their connection; what leads to it is the thread, which serves one at a time.
class WebServer::Exchange {
public:
    explicit Exchange(const TlsConnection& connection) : connection_(connection) { current_ = this; }
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;
    ~Exchange() { current_ = nullptr; }

    static Exchange& current() { return *current_; }

    [[nodiscard]] const X509* certificate() const { return connection_.peerCertificate(); }
    /// Keeps what the log shall say until the reply is out.
    void note(const httplib::Request& request, const httplib::Response& response)
    {
        const X509* shown = certificate();
        toLog = {connection_.peerAddress(),
                 request.method,
                 request.target,
                 response.status,
                 identity,
                 shown != nullptr ? tq::certificateFingerprint(*shown) : ""};
    }

    std::string identity;
    std::optional<LoggedRequest> toLog;
    bool isReadToItsEnd = false;      ///< the next request on the connection begins where it should
    bool isReplyEndedByClose = false; ///< a client of HTTP/1.0 knows no other end of a body in parts

private:
    static thread_local Exchange* current_;

    const TlsConnection& connection_;
};

thread_local WebServer::Exchange* WebServer::Exchange::current_ = nullptr;

WebServer::WebServer(TlsContext context, WebService& service, const RequestLog& log,
                     const ConnectionLimits& limits)
    : context_(std::move(context)), service_(service), log_(log), limits_(limits),
      stopEvent_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!stopEvent_)
        throw std::runtime_error("cannot make an event: " + tq::errorText(errno));
    set_socket_options(setSocketOptions);
    // Only told to clients; the connection keeps to its limits itself.
    set_keep_alive_max_count(static_cast<std::size_t>(limits_.requests));
    set_keep_alive_timeout(std::chrono::duration_cast<std::chrono::seconds>(limits_.firstByte).count());
    installHandlers();
}

WebServer::~WebServer()
{
    if (svr_sock_ != INVALID_SOCKET)
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
    set_logger([](const httplib::Request& request, const httplib::Response& response) {
        Exchange::current().note(request, response);
    });
}

void WebServer::answer(const httplib::Request& request, httplib::Response& response,
                       const httplib::ContentReader* reader)
{
    Exchange& exchange = Exchange::current();
    RequestBody body;
    // The body of a stranger is nobody's business, unless it may be an enrolment.
    const bool isRead =
        exchange.certificate() != nullptr || WebService::isEnrolment(request.method, request.target);
    if (isRead)
        body = readRequestBody(request, reader);
    WebReply reply;
    if (body.faultStatus != 0) {
        reply = errorReply(body.faultStatus, body.fault);
    } else {
        exchange.isReadToItsEnd = isRead;
        reply = service_.handle({request.method, request.target, request.get_header_value("Authorization"),
                                 std::move(body.text), exchange.certificate()});
        exchange.identity = std::move(reply.identity);
    }
    response.status = reply.status;
    exchange.isReplyEndedByClose = reply.nextPart && request.version == "HTTP/1.0";
    if (exchange.isReplyEndedByClose)
        response.set_content_provider(JSON_TYPE, partsOf(std::move(reply)));
    else if (reply.nextPart)
        response.set_chunked_content_provider(JSON_TYPE, partsOf(std::move(reply)));
    else if (reply.status != 204)
        response.set_content(reply.body, JSON_TYPE);
}

void WebServer::serveSocket(int socket)
{
    try {
        TlsConnection connection(*context_, socket, stopEvent_.get(), limits_);
        serve(connection);
    } catch (const std::exception& failure) {
        // One connection's end; the service goes on.
        std::fprintf(stderr, "tqmasterd: a connection failed: %s\n", failure.what());
    }
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
    refused.client = connection.peerAddress();
    refused.fault = connection.handshakeFault();
    log_.write(refused);
}

/// Whether another request may follow on the connection.
bool WebServer::serveRequest(TlsConnection& connection, bool isLast)
{
    Exchange exchange(connection);
    bool isClosed = false;
    const bool isAnswered = process_request(connection, isLast, isClosed, [](httplib::Request& request) {
        request.path = "/";     // only matched against EVERY_PATH, at a cost for each character
        request.ranges.clear(); // a part of a record is of no use to anybody
    });
    const bool mayFollow =
        isAnswered && !isClosed && exchange.isReadToItsEnd && !exchange.isReplyEndedByClose;
    const bool isSent = connection.finishReply(!mayFollow);
    if (exchange.toLog)
        log_.write(*exchange.toLog);
    if (isSent && !exchange.isReadToItsEnd)
        connection.finishReading();
    return isSent && mayFollow;
}

std::string WebServer::bind(const std::string& address, int port)
{
    errno = 0;
    port_ = port == 0 ? bind_to_any_port(address) : (bind_to_port(address, port) ? port : -1);
    if (port_ <= 0)
        return errno == 0 ? "no such address here" : tq::errorText(errno);
    if (::listen(svr_sock_, BACKLOG) != 0)
        return tq::errorText(errno);
    return "";
}

/// Not the library's own loop, which gives the port up at the first connection that the machine cannot hand
/// over, and then waits for all that are open.
bool WebServer::run()
{
    ConnectionWorkers workers(MOST_CONNECTIONS);
    bool wasAccepted = true;
    while (!stopping_) {
        const int socket = accept4(svr_sock_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        const int cause = errno;
        if (socket >= 0) {
            workers.enqueue([this, socket] { serveSocket(socket); });
        } else if (!stopping_) {
            if (wasAccepted)
                std::fprintf(stderr, "tqmasterd: accepting failed: %s\n", tq::errorText(cause).c_str());
            if (isPortLost(cause)) {
                stop(); // idle connections shall not delay the end
                return false;
            }
            pauseAccepting();
        }
        wasAccepted = socket >= 0;
    }
    return true;
}

void WebServer::pauseAccepting() const
{
    pollfd stopped{stopEvent_.get(), POLLIN, 0};
    poll(&stopped, 1, ACCEPT_PAUSE_MS);
}

void WebServer::stop()
{
    if (stopping_.exchange(true))
        return;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(stopEvent_.get(), &one, sizeof one);
    // Makes accept() fail, now or when it is called.
    ::shutdown(svr_sock_, SHUT_RDWR);
}

} // namespace masterd
