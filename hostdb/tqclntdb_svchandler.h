/// Client of one master server's host database web service.
#pragma once

#include "platform/types.h"

#include <memory>
#include <string>
#include <vector>

class TQClientCURL;

namespace TQCLNTDB {

class CHostInformation;

/// Resources of the web service that can be read, written and asked to reload.
inline constexpr const char* HOSTS_RESOURCE = "torquenix/config/hosts";
inline constexpr const char* SECURITY_SETTINGS_RESOURCE = "torquenix/security/settings";

/// Works for one master server under one identity. Each operation makes its own HTTP client, performs one
/// request and waits for the answer within that client's limits. Three ways out, kept apart:
///   - a non-zero status, when a local look-up failed or the request could not be carried out (the statuses
///     of CHostInformation::loadHostConfig and of TQClientCURL);
///   - WebServiceException, when the server answered with another HTTP status than the operation's own;
///   - 114 from the two reads of one host, when the answer could not be read as a host.
/// Exceptions of the load and of reading a reply pass through.
class CTQHostDBServiceHandler {
public:
    CTQHostDBServiceHandler(const std::string& masterServer, cert_type certType);
    ~CTQHostDBServiceHandler();

    /// The local host's record, filled by the operation that needs it.
    CHostInformation& hostInformation() { return *hostInformation_; }

    /// Reads the first host of that name, which is put into the filter as it is, without escaping; with an
    /// empty name this host, by its own identifier. HTTP success is 200.
    int getHost(CHostInformation& out, const std::string& hostName);

    /// Reads the host with an identifier. HTTP success is 200.
    int getHostByHostId(CHostInformation& out, const std::string& hostId);

    /// Appends all hosts in the server's order. HTTP success is 200; a body that holds no list of hosts adds
    /// nothing and is no failure.
    int getAllHosts(std::vector<CHostInformation>& list);

    /// Loads this host's record afresh and sends it as a new one. HTTP success is 201. Not called by
    /// this build.
    int insertRecord();

    /// Loads this host's record afresh and, unless it equals the last one sent and `force` is false, sends
    /// it, remembers it in the server's cache and renews the access token, since the update changes what the
    /// server knows about this host. HTTP success is 200.
    int updateRecord(bool force);

    /// Deletes this host's record. HTTP success is 204.
    int deleteHost();

    /// Has the server read a resource's configuration again. HTTP success is 200.
    int reloadConfigHost(const std::string& resource);

    /// Renews the access token.
    int refreshToken();

private:
    TQClientCURL makeClient();
    int loadFreshRecord(const char* context);
    int loadOwnIdentifier(const char* context);
    std::string logRecordText(const char* context) const;
    int renewTokenAfterUpdate(const char* context);
    std::string ownPath() const;

    std::unique_ptr<CHostInformation> hostInformation_;
    std::string resourcePath_;
    std::string masterServer_;
    cert_type certType_;
    bool clientFlag_ = false; ///< the one argument that the HTTP client takes by reference
};

} // namespace TQCLNTDB
