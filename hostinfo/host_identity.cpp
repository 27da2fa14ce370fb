#include "hostinfo/tqclntdb_hostinfo.h"
#include "platform/debuglog.h"
#include "platform/identity.h"
#include "platform/status.h"

namespace TQCLNTDB {
namespace {

/// Size of the buffers for the identity store's texts.
constexpr int IDENTITY_TEXT_SIZE = 64;

} // namespace

int CHostInformation::loadUUIDFromHostConfig()
{
    constexpr const char* CONTEXT = "CHostInformation::loadUUIDFromHostConfig";
    char text[IDENTITY_TEXT_SIZE] = "";
    if (const int status = getHostID(certType, masterServer.c_str(), text, IDENTITY_TEXT_SIZE); status != 0) {
        LogLine(LogLevel::error, CONTEXT) << "Host Id retrieval failed with error: " << status;
        return status;
    }
    hostId = text;
    LogLine(LogLevel::progress, CONTEXT)
        << "Retrieved Host Id [ " << hostId << " ] for Master Server [ " << masterServer << " ]";
    return 0;
}

int CHostInformation::loadTrustVersionFromHostConfig()
{
    constexpr const char* CONTEXT = "CHostInformation::loadTrustVersionFromHostConfig";
    char text[IDENTITY_TEXT_SIZE] = "";
    const int status = getTrustVersion(certType, masterServer.c_str(), text, IDENTITY_TEXT_SIZE);
    if (status != EC_success && status != EC_no_trust_version) {
        LogLine(LogLevel::error, CONTEXT) << "TrustVersion retrieval failed with error: " << status;
        return status;
    }
    trustVersion = status == EC_success ? text : "";
    LogLine(LogLevel::progress, CONTEXT)
        << "Retrieved TrustVersion [ " << trustVersion << " ] for Master Server [ " << masterServer << " ]";
    return 0;
}

} // namespace TQCLNTDB
