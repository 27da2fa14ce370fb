#include "tests/fakes/platform/fake_platform.h"

#include "platform/cluster.h"
#include "platform/debuglog.h"
#include "platform/httpclient.h"
#include "platform/identity.h"
#include "platform/lockfile.h"
#include "platform/net.h"
#include "platform/platformname.h"
#include "platform/user.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace fakes {
namespace {

Platform thePlatform;

template <typename... Parts>
void note(const Parts&... parts)
{
    std::ostringstream line;
    const char* blank = "";
    ((line << blank << parts, blank = " "), ...);
    thePlatform.calls.push_back(line.str());
}

int giveText(const IdentityAnswer& answer, char* buffer, int size)
{
    if (answer.status != 0)
        return answer.status;
    if (static_cast<int>(answer.text.size()) >= size)
        return 7613;
    std::memcpy(buffer, answer.text.c_str(), answer.text.size() + 1);
    return 0;
}

std::string upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

} // namespace

std::ostream& operator<<(std::ostream& stream, const LogEntry& entry)
{
    return stream << '<' << entry.level << "> " << entry.context << ": " << entry.text;
}

Platform& platform()
{
    return thePlatform;
}

void reset()
{
    thePlatform = Platform{};
}

std::vector<LogEntry> Platform::entriesOf(const std::string& context) const
{
    std::vector<LogEntry> found;
    std::copy_if(log.begin(), log.end(), std::back_inserter(found),
                 [&](const LogEntry& entry) { return entry.context == context; });
    return found;
}

std::vector<std::string> Platform::texts(const std::string& context, int level) const
{
    std::vector<std::string> found;
    for (const LogEntry& entry : log) {
        if (entry.context == context && (level == 0 || entry.level == level))
            found.push_back(entry.text);
    }
    return found;
}

bool Platform::logged(int level, const std::string& text, const std::string& context) const
{
    return std::find(log.begin(), log.end(), LogEntry{level, text, context}) != log.end();
}

std::size_t Platform::count(const std::string& callPrefix) const
{
    return static_cast<std::size_t>(std::count_if(
        calls.begin(), calls.end(), [&](const std::string& call) { return call.rfind(callPrefix, 0) == 0; }));
}

} // namespace fakes

using fakes::note;
using fakes::platform;

// debuglog.h

int open_debug_log(const char* directory, const char* subdirectory, const char* program, int mode, int* flag)
{
    note("open_debug_log", directory, subdirectory, program, mode, *flag);
    platform().maskAtDebugLogOpen = umask(0);
    umask(platform().maskAtDebugLogOpen);
    errno = platform().debugLogError;
    return platform().debugLogDescriptor;
}

void logmsg(int level, const char* text, const char* context) noexcept
{
    platform().log.push_back({level, text ? text : "", context ? context : ""});
}

void logmsg(int level, std::string_view text, const char* context) noexcept
{
    platform().log.push_back({level, std::string(text), context ? context : ""});
}

static void logFormatted(int level, const char* context, const char* format, va_list arguments)
{
    char text[8192];
    std::vsnprintf(text, sizeof text, format, arguments);
    logmsg(level, text, context);
}

void logmsgf(int level, const char* context, const char* format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    logFormatted(level, context, format, arguments);
    va_end(arguments);
}

void logmsgvf(int level, int flag, const char* context, const char* format, ...) noexcept
{
    note("logmsgvf", level, flag);
    va_list arguments;
    va_start(arguments, format);
    logFormatted(level, context, format, arguments);
    va_end(arguments);
}

void LOGMSG_STR_STREAM(int level, const std::ostringstream& stream, const char* context) noexcept
{
    platform().log.push_back({level, stream.str(), context ? context : ""});
}

// config.h

int ReadHostConfigExA(int mode, TQHostConfig* config, int reserved1, int reserved2, int reserved3)
{
    note("ReadHostConfigExA", mode, reserved1, reserved2, reserved3);
    platform().hostConfigWasZeroed = !config->servers;
    if (platform().hostConfigStatus != 0)
        return platform().hostConfigStatus;
    TQServerEntry** end = &config->servers;
    for (const std::string& name : platform().configuredServers) {
        *end = new TQServerEntry{strdup(name.c_str()), nullptr}; // released by FreeHostConfigA
        end = &(*end)->next;
    }
    return 0;
}

void FreeHostConfigA(TQHostConfig* config)
{
    note("FreeHostConfigA");
    while (TQServerEntry* entry = config->servers) {
        config->servers = entry->next;
        std::free(entry->serverName);
        delete entry;
    }
}

int TQ_read_master_config()
{
    note("TQ_read_master_config");
    return platform().masterConfigStatus;
}

const TQMasterConfig* get_master_config_ptr()
{
    note("get_master_config_ptr");
    return &platform().masterConfig;
}

int kxconfGetKeyValPair(const TQMasterConfig* config, const char* key, char** value)
{
    note("kxconfGetKeyValPair", key);
    const auto found = config->values.find(fakes::upper(key));
    if (found == config->values.end())
        return 1;
    *value = strdup(found->second.c_str());
    return 0;
}

int kxconfGetKeyValPairAsBool(const TQMasterConfig* config, const char* key, int* flag)
{
    note("kxconfGetKeyValPairAsBool", key);
    const auto found = config->values.find(fakes::upper(key));
    if (found == config->values.end() || (found->second != "YES" && found->second != "NO"))
        return 1;
    *flag = found->second == "YES" ? 1 : 0;
    return 0;
}

int getTQInstallDir(char* buffer, int size)
{
    note("getTQInstallDir", size);
    return fakes::giveText({platform().installDirStatus, platform().installDir}, buffer, size);
}

// identity.h

int getHostID(cert_type certType, const char* server, char* buffer, int size)
{
    note("getHostID", certType, server, size);
    return fakes::giveText(platform().hostId, buffer, size);
}

int getTrustVersion(cert_type certType, const char* server, char* buffer, int size)
{
    note("getTrustVersion", certType, server, size);
    return fakes::giveText(platform().trustVersion, buffer, size);
}

int getServersFromMapInfo(cert_type certType, int* count, char*** servers, int flags)
{
    note("getServersFromMapInfo", certType, flags);
    if (platform().mapInfoStatus != 0)
        return platform().mapInfoStatus;
    const std::vector<std::string>& names = platform().mappedServers[certType];
    *count = platform().mapInfoCountOverride != -1000 ? platform().mapInfoCountOverride
                                                      : static_cast<int>(names.size());
    *servers = nullptr;
    if (*count <= 0)
        return 0;
    *servers = static_cast<char**>(std::calloc(names.size(), sizeof(char*)));
    for (std::size_t i = 0; i < names.size(); ++i)
        (*servers)[i] = strdup(names[i].c_str());
    return 0;
}

int getCAModeByServer(cert_type certType, const char* server, int* mode)
{
    note("getCAModeByServer", certType, server);
    if (platform().caMode)
        return platform().caMode(certType, server, *mode);
    *mode = CA_USAGE_INTERNAL;
    return 0;
}

const char* CaUsageToString(int mode)
{
    switch (mode) {
    case CA_USAGE_INTERNAL:
        return "internal";
    case CA_USAGE_EXTERNAL:
        return "external";
    case CA_USAGE_NONE:
        return "none";
    default:
        return "unknown";
    }
}

// cluster.h

int IsNodeClustered(int reserved)
{
    note("IsNodeClustered", reserved);
    return platform().nodeClustered;
}

int IsClustered(int reserved)
{
    note("IsClustered", reserved);
    return platform().clustered;
}

int IsActive(int reserved1, int reserved2)
{
    note("IsActive", reserved1, reserved2);
    return platform().active;
}

// platformname.h

const char* getOsHdwName(int identifier)
{
    note("getOsHdwName", identifier);
    return platform().platformNames[identifier].c_str();
}

bool isValidKqupdateOsHdwNamesIdentifier(int identifier)
{
    note("isValidKqupdateOsHdwNamesIdentifier", identifier);
    return platform().validPlatforms.count(identifier) != 0;
}

int getKqupdateOsHdwDebianIdentifier()
{
    note("getKqupdateOsHdwDebianIdentifier");
    return platform().debianPlatform;
}

// user.h

int is_user_admin(int mode)
{
    note("is_user_admin", mode);
    return platform().admin;
}

// lockfile.h

TQLockFile::TQLockFile(const std::string& path, int tries, int waitMs)
{
    note("lock", path, tries, waitMs);
    if (platform().busyLocks.count(path) == 0)
        fd = 1000;
}

TQLockFile::~TQLockFile()
{
    if (fd != -1 && platform().onUnlock)
        platform().onUnlock();
    note("unlock", fd == -1 ? "(not held)" : "(held)");
}

// httpclient.h

struct TQClientCURL::Connection {
    std::string server;
    int port = 0;
    cert_type certType = CERT_TYPE_NONE;

    int answer(const char* method, const std::string& path, const std::string& body,
               TQClientCURL& client) const
    {
        const fakes::HttpRequest request{method, path, body, server, port, certType};
        note(method, path);
        platform().requests.push_back(request);
        if (platform().onRequest)
            platform().onRequest(request);
        fakes::HttpReply reply;
        if (!platform().replies.empty()) {
            reply = platform().replies.front();
            platform().replies.pop_front();
        }
        if (reply.result == 0) {
            client.httpStatus = reply.httpStatus;
            client.responseBody = reply.body;
        }
        return reply.result;
    }
};

TQClientCURL::TQClientCURL(const std::string& server, int port, cert_type certType,
                           TQCurlSessionType sessionType, TokenManager_Base* tokenManager,
                           const std::string& text6, bool flag7, bool flag8, bool flag9,
                           const std::string& text10, const std::string& text11, const std::string& text12,
                           const std::string& text13, const std::string& text14, const std::string& text15,
                           bool flag16, bool& flag17, const std::string& text18, int number19)
    : connection_(std::make_unique<Connection>(Connection{server, port, certType}))
{
    note("TQClientCURL", server, port, certType);
    ++platform().liveClients;
    platform().clients.push_back({sessionType,
                                  tokenManager != nullptr,
                                  {flag7, flag8, flag9, flag16, flag17},
                                  {text6, text10, text11, text12, text13, text14, text15, text18},
                                  number19});
}

TQClientCURL::~TQClientCURL()
{
    --platform().liveClients;
}

int TQClientCURL::Get(const std::string& path)
{
    return connection_->answer("GET", path, "", *this);
}

int TQClientCURL::Put(const std::string& path, const std::string& body)
{
    return connection_->answer("PUT", path, body, *this);
}

int TQClientCURL::Post(const std::string& path, const std::string& body)
{
    return connection_->answer("POST", path, body, *this);
}

int TQClientCURL::Delete(const std::string& path)
{
    return connection_->answer("DELETE", path, "", *this);
}

int TQClientCURL::refreshToken()
{
    note("refreshToken");
    platform().requests.push_back(
        {"refreshToken", "", "", connection_->server, connection_->port, connection_->certType});
    if (platform().refreshResults.empty())
        return 0;
    const int result = platform().refreshResults.front();
    platform().refreshResults.pop_front();
    return result;
}

// net.h

int knet_getifaddrs(int ipv4, int ipv6, addrinfo** list)
{
    note("knet_getifaddrs", ipv4, ipv6);
    if (platform().ifaddrsStatus != 0)
        return platform().ifaddrsStatus;
    *list = nullptr;
    addrinfo** end = list;
    for (const std::string& text : platform().addresses) {
        addrinfo hints{};
        hints.ai_flags = AI_NUMERICHOST;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* one = nullptr;
        if (getaddrinfo(text.c_str(), nullptr, &hints, &one) == 0) {
            *end = one;
            end = &one->ai_next;
        }
    }
    return 0;
}

void knet_freeaddrinfo(addrinfo* list)
{
    note("knet_freeaddrinfo");
    if (list)
        freeaddrinfo(list);
}

int knet_sockAddrNtoP(const sockaddr* address, char* buffer, std::size_t size)
{
    const void* bytes =
        address->sa_family == AF_INET
            ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in*>(address)->sin_addr)
            : &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr;
    if (!inet_ntop(address->sa_family, bytes, buffer, static_cast<socklen_t>(size)))
        return 1;
    note("knet_sockAddrNtoP", buffer, size);
    return platform().unprintableAddresses.count(buffer) != 0 ? 1 : 0;
}

int knet_localhost_check(const char* address)
{
    return std::strncmp(address, "127.", 4) == 0 || std::strcmp(address, "::1") == 0 ? 1 : 0;
}

int knet_cached_gethostent(const char* name, knet_hostent** entry)
{
    note("knet_cached_gethostent", name);
    *entry = nullptr;
    if (platform().hostentStatus != 0 || platform().hostentMissing)
        return platform().hostentStatus;
    const std::vector<std::string>& names = platform().hostNames;
    auto* made = static_cast<knet_hostent*>(std::calloc(1, sizeof(knet_hostent)));
    made->names = static_cast<char**>(std::calloc(names.size() + 1, sizeof(char*)));
    for (std::size_t i = 0; i < names.size(); ++i)
        made->names[i] = strdup(names[i].c_str());
    *entry = made;
    return 0;
}

void knet_free_knet_hostent(knet_hostent* entry)
{
    note("knet_free_knet_hostent");
    for (char** name = entry->names; *name; ++name)
        std::free(*name);
    std::free(entry->names);
    std::free(entry);
}

bool knet_is_ip_string(const char* text)
{
    unsigned char bytes[16];
    return inet_pton(AF_INET, text, bytes) == 1 || inet_pton(AF_INET6, text, bytes) == 1;
}

long knet_gethostid()
{
    note("knet_gethostid");
    return platform().gethostid;
}
