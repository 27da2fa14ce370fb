// The running service on a machine that is short of something, and towards clients that mean harm.
#include "masterd/clock.h"
#include "platform/json.h"
#include "tests/unit/masterd/default_stack_size.h"
#include "tests/unit/masterd/failing_calls.h"
#include "tests/unit/masterd/raw_tls_client.h"
#include "tests/unit/masterd/running_service.h"
#include "tests/unit/masterd/until.h"

#include <algorithm>
#include <arpa/inet.h>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sstream>
#include <thread>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using tests::DefaultStackSize;
using tests::Host;
using tests::RawTlsClient;
using tests::RunningService;

/// The answer to a client without a certificate.
std::string answerTo(const RunningService& service, const std::string& text)
{
    RawTlsClient client(service.port());
    EXPECT_TRUE(client.connected());
    client.send(text);
    return client.receiveAll();
}

TEST(ServiceOnSmallStacks, LongTargetAndLongRangeOfAStrangerDoNoHarm)
{
    const DefaultStackSize small(std::size_t{2} << 20);
    RunningService service;
    const std::string target = '/' + std::string(8100, 'a');
    EXPECT_EQ(answerTo(service, "GET " + target + " HTTP/1.1\r\nConnection: close\r\n\r\n").substr(9, 3),
              "403");
    for (const char* part : {"0-1,", "-,", ",", "1", " ", "-", "1-, "}) {
        std::string range = "bytes=0-1,";
        while (range.size() < 8100)
            range += part;
        const std::string answer =
            answerTo(service, "GET / HTTP/1.1\r\nConnection: close\r\nRange: " + range + "-1\r\n\r\n");
        EXPECT_TRUE(answer.substr(9, 3) == "403" || answer.substr(9, 3) == "416") << part << answer;
    }
    EXPECT_TRUE(service.stop());
}

/// Whether a client gets its answer soon, far below the 15 seconds after which idle connections end.
void expectServing(const RunningService& service)
{
    const auto start = steady_clock::now();
    EXPECT_EQ(answerTo(service, "GET / HTTP/1.1\r\nConnection: close\r\n\r\n").substr(9, 3), "403");
    EXPECT_LT(steady_clock::now() - start, seconds(10));
}

TEST(ServiceThatCannotAccept, GoesOnAtOnceAndKeepsItsConnections)
{
    RunningService service;
    RawTlsClient open(service.port());
    ASSERT_TRUE(open.connected());
    testing::internal::CaptureStderr();
    for (const int fault : {ENFILE, EMFILE, ENOBUFS, ENOMEM, ECONNABORTED, EINTR, EPROTO}) {
        tests::acceptFault = fault;
        expectServing(service); // by the call that waits already; the next one fails
        expectServing(service);
        EXPECT_EQ(tests::acceptFault, 0) << fault;
    }
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_NE(told.find("tqmasterd: accepting failed: Too many open files in system\n"), std::string::npos)
        << told;
    EXPECT_TRUE(open.send("GET / HTTP/1.1\r\nConnection: close\r\n\r\n"));
    EXPECT_EQ(open.receiveAll().substr(9, 3), "403");
    EXPECT_TRUE(service.stop());
}

TEST(ServiceThatCannotAccept, EndsAtOnceWhenThePortIsLost)
{
    RunningService service;
    RawTlsClient idle(service.port());
    ASSERT_TRUE(idle.connected());
    testing::internal::CaptureStderr();
    tests::acceptFault = EBADF;
    const tq::FileDescriptor last = tests::connectTo(service.port());
    const auto start = steady_clock::now();
    EXPECT_EQ(idle.receiveAll(), "");
    EXPECT_FALSE(service.stop());
    EXPECT_LT(steady_clock::now() - start, seconds(10));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "tqmasterd: accepting failed: Bad file descriptor\n");
}

TEST(ServiceAndStrangers, AreRefusedBeforeAnythingIsSaidAboutTheirBody)
{
    RunningService service;
    const std::string head = " HTTP/1.1\r\nConnection: close\r\n";
    const std::string large(std::size_t{300} * 1024, 'x');
    for (const std::string& request :
         {"PUT /torquenix/config/hosts/x" + head + "Content-Length: " + std::to_string(large.size()) +
              "\r\n\r\n" + large,
          "PUT /torquenix/config/hosts/x" + head + "Content-Length: -2\r\n\r\n",
          "PUT /torquenix/config/hosts/x" + head + "Content-Length: 2\r\nContent-Length: 2\r\n\r\n{}",
          "PUT /torquenix/config/hosts/x" + head + "Transfer-Encoding: chunked\r\n\r\nzz\r\n",
          "POST /torquenix/security/tokens" + head + "Content-Length: 4\r\n\r\njunk",
          "GET /torquenix/config/hosts" + head + "Content-Length: 2\r\n\r\n{}",
          "PUT /nothing" + head + "Content-Length: 9999999999\r\n\r\n{"})
        EXPECT_EQ(answerTo(service, request).substr(9, 3), "403") << request.substr(0, 200);
    // An enrolment is for strangers.
    EXPECT_EQ(answerTo(service,
                       "POST /torquenix/security/enrollments" + head + "Content-Length: 9999999999\r\n\r\n{")
                  .substr(9, 3),
              "413");
}

TEST(ServiceAndStrangers, RequestThatCannotBeReadIsLoggedWithItsClient)
{
    RunningService service;
    const Host host(service, "h1");
    EXPECT_EQ(answerTo(service, "BREW / HTTP/1.1\r\n\r\n").substr(9, 3), "400");
    EXPECT_EQ(answerTo(service, "GET /" + std::string(9000, 'a') + " HTTP/1.1\r\n\r\n").substr(9, 3), "414");
    EXPECT_EQ(answerTo(service, "GET / HTTP/1.1\r\nRange: bytes=9-1\r\n\r\n").substr(9, 3), "416");
    RawTlsClient known(service.port(), host.certificate.get(), &host.key());
    known.send("GET\r\n\r\n");
    EXPECT_EQ(known.receiveAll().substr(9, 3), "400");
    EXPECT_TRUE(service.stop());
    std::istringstream log(service.requestLog());
    int unreadable = 0;
    for (std::string line; std::getline(log, line);) {
        EXPECT_NE(line.find("Z 127.0.0.1 \""), std::string::npos) << line;
        unreadable += line.find("\" 4") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(unreadable, 4) << service.requestLog();
    EXPECT_NE(service.requestLog().find("\" 400 - " + tq::certificateFingerprint(*host.certificate)),
              std::string::npos)
        << service.requestLog();
}

/// The socket of this process that listens on a port.
int listeningSocket(int port)
{
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int descriptor = std::stoi(entry.path().filename());
        int isListening = 0;
        socklen_t length = sizeof isListening;
        sockaddr_in address{};
        socklen_t addressLength = sizeof address;
        if (getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &isListening, &length) == 0 &&
            isListening != 0 &&
            getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &addressLength) == 0 &&
            ntohs(address.sin_port) == port)
            return descriptor;
    }
    return -1;
}

TEST(ServiceUnderLoad, QueueOfConnectionsHoldsAWholeFleet)
{
    const RunningService service;
    tcp_info information{};
    socklen_t length = sizeof information;
    ASSERT_EQ(getsockopt(listeningSocket(service.port()), IPPROTO_TCP, TCP_INFO, &information, &length), 0);
    const int most = std::stoi(tests::readText("/proc/sys/net/core/somaxconn"));
    // For a socket that listens the kernel tells the length of its queue here.
    EXPECT_EQ(information.tcpi_sacked, static_cast<unsigned>(std::min(1024, most)));
}

constexpr std::size_t LARGE_RECORDS = 64;
constexpr std::size_t LARGE_RECORD_BYTES = std::size_t{250} * 1024;

/// Records for a list that is far more than the buffers between a server and a client take.
void storeLargeRecords(RunningService& service)
{
    const std::string record = "{\"osType\":\"" + std::string(LARGE_RECORD_BYTES, 'x') + "\"}";
    for (std::size_t i = 0; i < LARGE_RECORDS; ++i) {
        const masterd::Identity identity{"id-" + std::to_string(i), "other"};
        ASSERT_TRUE(service.store().redeemInvitation(
            service.store().invite("other", masterd::IdentityType::host, masterd::unixNow() + 600), identity,
            masterd::unixNow()));
        ASSERT_EQ(service.store().putHost(identity, record), masterd::Store::Stored::done);
    }
}

std::string listRequest(const Host& host, const std::string& version)
{
    return "GET /torquenix/config/hosts HTTP/" + version + "\r\nConnection: close\r\nAuthorization: Bearer " +
           host.token + "\r\n\r\n";
}

/// Whether a service with these limits lets a client go that takes a byte of the list now and then.
void expectLettingGo(const masterd::ConnectionLimits& limits)
{
    RunningService service(limits);
    const Host host(service, "h1");
    storeLargeRecords(service);
    RawTlsClient client(service.port(), host.certificate.get(), &host.key());
    ASSERT_TRUE(client.send(listRequest(host, "1.1")));
    char byte = 0;
    ASSERT_EQ(SSL_read(client.ssl(), &byte, 1), 1); // the reply is on the way
    const auto start = steady_clock::now();
    EXPECT_TRUE(service.stop());                         // waits for the request in hand
    EXPECT_LT(steady_clock::now() - start, seconds(15)); // half the time that a client usually has
    EXPECT_LT(client.receiveAll().size(), LARGE_RECORDS * LARGE_RECORD_BYTES);
}

TEST(ServiceUnderLoad, ClientThatNeverReadsItsReplyIsLetGo)
{
    masterd::ConnectionLimits limits;
    limits.writeStall = milliseconds(200);
    expectLettingGo(limits);
}

TEST(ServiceUnderLoad, ReplyThatIsTakenTooSlowlyEndsAtItsLimit)
{
    masterd::ConnectionLimits limits;
    limits.reply = milliseconds(200);
    limits.replyBytesPerSecond = std::size_t{1} << 30;
    expectLettingGo(limits);
}

TEST(ServiceUnderLoad, LargeListArrivesWholeInChunksUnderGzipAndToOldClients)
{
    RunningService service;
    const Host host(service, "h1");
    storeLargeRecords(service);
    const httplib::Result plain = host.client()->Get("/torquenix/config/hosts", host.bearer());
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->get_header_value("Transfer-Encoding"), "chunked");
    const tq::JsonRef list(json_loads(plain->body.c_str(), 0, nullptr));
    EXPECT_EQ(json_array_size(json_object_get(list.get(), "hosts")), LARGE_RECORDS);

    httplib::Headers gzip = host.bearer();
    gzip.emplace("Accept-Encoding", "gzip");
    const httplib::Result packed = host.client()->Get("/torquenix/config/hosts", gzip);
    ASSERT_TRUE(packed);
    EXPECT_EQ(packed->get_header_value("Content-Encoding"), "gzip");
    EXPECT_EQ(packed->body, plain->body);

    RawTlsClient old(service.port(), host.certificate.get(), &host.key());
    ASSERT_TRUE(old.send(listRequest(host, "1.0")));
    const std::string answer = old.receiveAll();
    EXPECT_EQ(answer.find("Transfer-Encoding"), std::string::npos);
    EXPECT_EQ(answer.substr(std::min(answer.find("\r\n\r\n") + 4, answer.size())), plain->body);
}

/// A service whose disk is not done with the first of several writes, and their answers.
class ServiceWithWaitingWriters : public testing::Test {
protected:
    static constexpr std::size_t WRITERS = 4;

    ServiceWithWaitingWriters()
    {
        for (std::size_t i = 0; i < WRITERS; ++i)
            hosts_.push_back(std::make_unique<Host>(service_, "h" + std::to_string(i)));
    }

    std::future<int> startWrite(const Host& host) const
    {
        return std::async(std::launch::async, [&host] {
            const httplib::Result result =
                host.client()->Put(host.path(), host.bearer(), "{\"osType\":\"new\"}", "application/json");
            return result ? result->status : -1;
        });
    }
    void startWrites(tests::HeldSyncs& held)
    {
        answers_.push_back(startWrite(*hosts_.front()));
        ASSERT_TRUE(held.await());
        for (std::size_t i = 1; i < WRITERS; ++i)
            answers_.push_back(startWrite(*hosts_[i]));
        ASSERT_TRUE(tests::until([this] { return service_.service().waitingChanges() == WRITERS - 1; }));
    }
    std::vector<int> statuses()
    {
        std::vector<int> statuses;
        for (std::future<int>& answer : answers_)
            statuses.push_back(answer.get());
        return statuses;
    }
    std::size_t countStored()
    {
        masterd::HostPlace place;
        const std::string list = '[' + service_.store().listHosts(place) + ']';
        return json_array_size(tq::JsonRef(json_loads(list.c_str(), 0, nullptr)).get());
    }

    RunningService service_;
    std::vector<std::unique_ptr<Host>> hosts_;
    std::vector<std::future<int>> answers_;
};

TEST_F(ServiceWithWaitingWriters, AnswersThemAllWhenItIsStopped)
{
    std::future<bool> stopped;
    {
        tests::HeldSyncs held;
        startWrites(held);
        stopped = std::async(std::launch::async, [this] { return service_.stop(); });
        EXPECT_EQ(stopped.wait_for(milliseconds(50)), std::future_status::timeout);
    }
    EXPECT_EQ(statuses(), std::vector<int>(WRITERS, 200));
    EXPECT_TRUE(stopped.get());
    EXPECT_EQ(countStored(), WRITERS);
}

TEST_F(ServiceWithWaitingWriters, LogsTheAddressOfAClientThatHasGoneMeanwhile)
{
    const Host& host = *hosts_.front();
    {
        tests::HeldSyncs held;
        RawTlsClient client(service_.port(), host.certificate.get(), &host.key());
        client.send("PUT " + host.path() + " HTTP/1.1\r\nAuthorization: Bearer " + host.token +
                    "\r\nContent-Length: 2\r\n\r\n{}");
        ASSERT_TRUE(held.await());
        client.reset();
    }
    EXPECT_TRUE(service_.stop());
    EXPECT_NE(service_.requestLog().find(" 127.0.0.1 \"PUT " + host.path() + "\" 200 "), std::string::npos)
        << service_.requestLog();
}

TEST_F(ServiceWithWaitingWriters, RefusesThemAllWhenTheDiskIsFull)
{
    testing::internal::CaptureStderr();
    std::optional<tests::FullDisk> full;
    {
        tests::HeldSyncs held;
        startWrites(held);
        full.emplace();
    }
    EXPECT_EQ(statuses(), (std::vector<int>{200, 500, 500, 500}));
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_NE(told.find("tqmasterd: a request failed: database or disk is full\n"), std::string::npos)
        << told;
    EXPECT_EQ(countStored(), 1U);
    full.reset();
    EXPECT_EQ(startWrite(*hosts_.back()).get(), 200);
    EXPECT_EQ(countStored(), 2U);
}

} // namespace
