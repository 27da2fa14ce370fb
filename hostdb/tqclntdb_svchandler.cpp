#include "hostdb/tqclntdb_svchandler.h"

#include "hostdb/json_arena.h"
#include "hostdb/tqclntdb_json.h"
#include "hostdb/tqhost_cachehandler.h"
#include "hostdb/web_service_exception.h"
#include "hostinfo/tqclntdb_hostinfo.h"
#include "platform/debuglog.h"
#include "platform/http_answer.h"
#include "platform/httpclient.h"
#include "platform/paths.h"
#include "platform/status.h"

#include <cstdint>
#include <utility>

namespace TQCLNTDB {
namespace {

void requireHttpStatus(const TQClientCURL& client, std::int64_t expected)
{
    if (client.httpStatus != expected)
        throw WebServiceException(client.httpStatus, client.responseBody);
}

/// The converter addresses records of an array, so that a single object is read as its record 0. In place:
/// the list of a fleet is not copied.
std::string wrapped(std::string body)
{
    body.insert(0, 1, '[');
    body += ']';
    return body;
}

/// Whether the text loads and its first record holds a list of hosts, which the converter then holds.
bool descendToHosts(JSONConverter& converter, const std::string& text)
{
    return converter.LoadJSON(text.c_str()) && converter.GetObject("hosts", 0);
}

bool readFirstHost(CHostInformation& out, const std::string& text)
{
    JSONConverter converter;
    return descendToHosts(converter, text) && converter.GetNumberOfRecords() > 0 &&
           out.getHostObj(converter, 0) != 0;
}

} // namespace

CTQHostDBServiceHandler::CTQHostDBServiceHandler(const std::string& masterServer, cert_type certType)
    : hostInformation_(std::make_unique<CHostInformation>(masterServer, certType)),
      resourcePath_(HOSTS_RESOURCE), masterServer_(masterServer), certType_(certType)
{
}

CTQHostDBServiceHandler::~CTQHostDBServiceHandler() = default;

TQClientCURL CTQHostDBServiceHandler::makeClient()
{
    clientFlag_ = false;
    return TQClientCURL(masterServer_, TQ_WEB_SERVICE_PORT, certType_, TQ_CURL_SESSION_IDENTITY, nullptr, "",
                        true, false, false, "", "", "", "", "", "", false, clientFlag_, "", 0);
}

std::string CTQHostDBServiceHandler::ownPath() const
{
    return resourcePath_ + "/" + hostInformation_->hostId;
}

/// A load is meant for a fresh record: a retry that loaded into the last attempt's record would send every
/// configured server twice.
int CTQHostDBServiceHandler::loadFreshRecord(const char* context)
{
    *hostInformation_ = CHostInformation(masterServer_, certType_);
    const int status = hostInformation_->loadHostConfig();
    if (status != 0)
        LogLine(LogLevel::error, context) << "Get host configuration failed with error : " << status << '\n';
    return status;
}

int CTQHostDBServiceHandler::loadOwnIdentifier(const char* context)
{
    const int status = hostInformation_->loadUUIDFromHostConfig();
    if (status != 0)
        LogLine(LogLevel::error, context) << "Failed to get host UUID with error : " << status << '\n';
    return status;
}

std::string CTQHostDBServiceHandler::logRecordText(const char* context) const
{
    std::string text = hostInformation_->getJSON(false, false);
    LogLine(LogLevel::progress, context) << "Got JSON = [ " << text << " ]\n";
    return text;
}

int CTQHostDBServiceHandler::getHost(CHostInformation& out, const std::string& hostName)
{
    constexpr const char* CONTEXT = "CTQHostDBServiceHandler::getHost";
    TQClientCURL client = makeClient();
    const bool byName = !hostName.empty();
    if (!byName) {
        if (const int status = loadOwnIdentifier(CONTEXT); status != 0)
            return status;
    }
    const std::string path =
        byName ? resourcePath_ + "?filter=hostName%20eq%20'" + hostName + "'" : ownPath();
    if (const int status = client.Get(path); status != 0)
        return status;
    requireHttpStatus(client, tq::HTTP_OK);

    const std::string text = wrapped(std::move(client.responseBody));
    const bool found = byName ? readFirstHost(out, text) : out.getHostObj(text) != 0;
    if (!found) {
        LogLine(LogLevel::error, CONTEXT) << "Unable to get host information from server response.\n";
        return EC_unexpected_reply;
    }
    return 0;
}

int CTQHostDBServiceHandler::getHostByHostId(CHostInformation& out, const std::string& hostId)
{
    constexpr const char* CONTEXT = "CTQHostDBServiceHandler::getHostByHostId";
    TQClientCURL client = makeClient();
    if (const int status = client.Get(resourcePath_ + "/" + hostId); status != 0) {
        LogLine(LogLevel::error, CONTEXT) << "getHostByHostId failed with error : " << status << '\n';
        return status;
    }
    requireHttpStatus(client, tq::HTTP_OK);
    if (out.getHostObj(wrapped(std::move(client.responseBody))) == 0) {
        LogLine(LogLevel::error, CONTEXT) << "getHostByHostId, getHostObj returned false : \n";
        return EC_unexpected_reply;
    }
    return 0;
}

int CTQHostDBServiceHandler::getAllHosts(std::vector<CHostInformation>& list)
{
    TQClientCURL client = makeClient();
    if (const int status = client.Get(resourcePath_ + "/"); status != 0)
        return status;
    requireHttpStatus(client, tq::HTTP_OK);

    const JsonArena arena(client.responseBody.size());
    JSONConverter converter;
    if (!descendToHosts(converter, wrapped(std::move(client.responseBody))))
        return 0;
    const std::size_t count = converter.GetNumberOfRecords();
    list.reserve(list.size() + count);
    for (std::size_t index = 0; index < count; ++index) {
        CHostInformation host;
        host.getHostObj(converter, index);
        list.push_back(std::move(host));
    }
    return 0;
}

int CTQHostDBServiceHandler::insertRecord()
{
    // "inertRecord" is what has always stood in the logs, and what is searched for.
    constexpr const char* CONTEXT = "CTQHostDBServiceHandler::inertRecord";
    TQClientCURL client = makeClient();
    if (const int status = loadFreshRecord(CONTEXT); status != 0)
        return status;
    if (const int status = client.Post(resourcePath_, logRecordText(CONTEXT)); status != 0)
        return status;
    requireHttpStatus(client, tq::HTTP_CREATED);
    return 0;
}

int CTQHostDBServiceHandler::updateRecord(bool force)
{
    constexpr const char* CONTEXT = "CTQHostDBServiceHandler::updateRecord";
    TQHostDBCacheHandler cache(masterServer_, TQ_CACHE_FILE_BASE, TQ_CACHE_LOCK_BASE);
    TQClientCURL client = makeClient();
    if (const int status = loadFreshRecord(CONTEXT); status != 0)
        return status;
    if (!force && cache.isPresentInCache(hostInformation_.get())) {
        LogLine(LogLevel::progress, CONTEXT) << "No need to update host information into host DB\n";
        return 0;
    }
    if (const int status = client.Put(ownPath(), logRecordText(CONTEXT)); status != 0)
        return status;
    requireHttpStatus(client, tq::HTTP_OK);

    if (!cache.writeCacheFile(hostInformation_.get()))
        LogLine(LogLevel::error, CONTEXT) << "Unable to write host information in cache file: \n";
    return renewTokenAfterUpdate(CONTEXT);
}

/// The update changes the master server's configuration for this host, so the token is renewed after it.
int CTQHostDBServiceHandler::renewTokenAfterUpdate(const char* context)
{
    LogLine(LogLevel::progress, context) << "Recreate the token...\n";
    const int status = refreshToken();
    if (status != 0)
        LogLine(LogLevel::progress, context)
            << "Failed to update token post Master server configuration update. Returning error: " << status
            << '\n';
    return status;
}

int CTQHostDBServiceHandler::deleteHost()
{
    if (const int status = loadOwnIdentifier("CTQHostDBServiceHandler::deleteHost"); status != 0)
        return status;
    TQClientCURL client = makeClient();
    if (const int status = client.Delete(ownPath()); status != 0)
        return status;
    requireHttpStatus(client, tq::HTTP_NO_CONTENT);
    return 0;
}

int CTQHostDBServiceHandler::reloadConfigHost(const std::string& resource)
{
    TQClientCURL client = makeClient();
    if (const int status = client.Get(resource + "/reloadconfig"); status != 0)
        return status;
    requireHttpStatus(client, tq::HTTP_OK);
    return 0;
}

int CTQHostDBServiceHandler::refreshToken()
{
    TQClientCURL client = makeClient();
    return client.refreshToken();
}

} // namespace TQCLNTDB
