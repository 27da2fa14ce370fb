/// The platform as unit tests see it: every answer is set by the test, every call and log entry is kept.
#pragma once

#include "platform/config.h"
#include "platform/types.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

namespace fakes {

struct LogEntry {
    int level = 0;
    std::string text;
    std::string context;
    bool operator==(const LogEntry&) const = default;
};
std::ostream& operator<<(std::ostream& stream, const LogEntry& entry);

/// What a TQClientCURL was made with, and what it was asked.
struct HttpRequest {
    std::string method; ///< GET, PUT, POST, DELETE or refreshToken
    std::string path;
    std::string body;
    std::string server;
    int port = 0;
    cert_type certType = CERT_TYPE_NONE;
    bool operator==(const HttpRequest&) const = default;
};

/// The other arguments of a TQClientCURL.
struct HttpClientArguments {
    int sessionType = 0;
    bool hasTokenManager = true;
    std::vector<bool> flags;        ///< positions 7, 8, 9, 16, 17
    std::vector<std::string> texts; ///< positions 6, 10 to 15, 18
    int number = -1;                ///< position 19
};

struct HttpReply {
    int result = 0; ///< what the call returns
    std::int64_t httpStatus = 200;
    std::string body;
};

/// One answer of the identity store: a status, and a text for 0.
struct IdentityAnswer {
    int status = 0;
    std::string text;
};

struct Platform {
    /// Entries in order, whatever their level.
    std::vector<LogEntry> log;
    /// Every call below, in order, as "name argument argument ...".
    std::vector<std::string> calls;

    // debuglog.h
    int debugLogDescriptor = 3;
    int debugLogError = 0;         ///< errno after an open_debug_log
    mode_t maskAtDebugLogOpen = 0; ///< the process's file-creation mask at the last open_debug_log

    // config.h
    int masterConfigStatus = 0;
    TQMasterConfig masterConfig;
    int hostConfigStatus = 0;
    bool hostConfigWasZeroed = false; ///< the structure, when ReadHostConfigExA was last given one
    std::vector<std::string> configuredServers;
    int installDirStatus = 0;
    std::string installDir = "/usr/torqv/";

    // identity.h; without a hook the plain answers hold for every server and type
    IdentityAnswer hostId{0, "6f0f0000-0000-4000-8000-000000000001"};
    IdentityAnswer trustVersion{0, "1"};
    int mapInfoStatus = 0;
    std::map<cert_type, std::vector<std::string>> mappedServers;
    int mapInfoCountOverride = -1000; ///< reported instead of the real count unless -1000
    std::function<int(cert_type, const std::string&, int&)> caMode; ///< status; sets the mode

    // cluster.h
    int nodeClustered = 0;
    int clustered = 0;
    int active = 0;

    // platformname.h
    std::map<int, std::string> platformNames{{10, "linux_x86"}, {20, "linux_debian"}};
    std::set<int> validPlatforms{10, 20};
    int debianPlatform = 20;

    // user.h
    int admin = 1;

    // lockfile.h: paths that cannot be locked
    std::set<std::string> busyLocks;
    std::function<void()> onUnlock; ///< called while a lock is still held, before it is released

    // httpclient.h: answers are taken from the front; an empty queue answers 200 with an empty body
    std::deque<HttpReply> replies;
    std::deque<int> refreshResults; ///< an empty queue answers 0
    std::vector<HttpRequest> requests;
    std::vector<HttpClientArguments> clients;
    int liveClients = 0;
    std::function<void(const HttpRequest&)> onRequest; ///< called before the answer

    // net.h
    int ifaddrsStatus = 0;
    std::vector<std::string> addresses; ///< numeric texts, IPv4 or IPv6
    std::set<std::string> unprintableAddresses;
    int hostentStatus = 0;
    bool hostentMissing = false;        ///< status 0 but no entry
    std::vector<std::string> hostNames; ///< names and addresses of this host's own entry
    long gethostid = 0;

    /// The entries of one context, in order.
    [[nodiscard]] std::vector<LogEntry> entriesOf(const std::string& context) const;
    /// Texts of the entries of one context, level 0 meaning any.
    [[nodiscard]] std::vector<std::string> texts(const std::string& context, int level = 0) const;
    /// Whether an entry with exactly this level, text and context was written.
    [[nodiscard]] bool logged(int level, const std::string& text, const std::string& context) const;
    /// How many calls begin with this text.
    [[nodiscard]] std::size_t count(const std::string& callPrefix) const;
};

/// The one platform of a test; reset() gives a fresh one.
Platform& platform();
void reset();

} // namespace fakes
