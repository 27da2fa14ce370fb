#include "platform/identity.h"

#include "platform/identity_store.h"
#include "platform/status.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

/// The identity for a server and type. Returns 0, 7610, 7611 or 7612.
int getIdentity(cert_type certType, const char* server, tq::Identity& identity)
{
    std::vector<tq::Identity> identities;
    if (const int status = tq::loadIdentityStore(identities); status != EC_success)
        return status;
    const tq::Identity* found = tq::findIdentity(identities, server ? server : "", certType);
    if (!found)
        return EC_identity_not_found;
    identity = *found;
    return EC_success;
}

int giveText(const std::string& text, char* buffer, int size)
{
    if (!buffer || size <= 0 || text.size() >= static_cast<std::size_t>(size))
        return EC_identity_text_too_long;
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return EC_success;
}

/// A list and its texts as the caller will release them; null when memory is short.
char** copyList(const std::vector<std::string>& texts)
{
    auto** list = static_cast<char**>(std::calloc(texts.size(), sizeof(char*)));
    for (std::size_t i = 0; list && i < texts.size(); ++i) {
        list[i] = strdup(texts[i].c_str());
        if (list[i])
            continue;
        while (i > 0)
            std::free(list[--i]);
        std::free(static_cast<void*>(list));
        return nullptr;
    }
    return list;
}

} // namespace

int getHostID(cert_type certType, const char* server, char* buffer, int size)
{
    tq::Identity identity;
    const int status = getIdentity(certType, server, identity);
    return status == EC_success ? giveText(identity.hostId, buffer, size) : status;
}

int getTrustVersion(cert_type certType, const char* server, char* buffer, int size)
{
    tq::Identity identity;
    if (const int status = getIdentity(certType, server, identity); status != EC_success)
        return status;
    return identity.trustVersion ? giveText(*identity.trustVersion, buffer, size) : EC_no_trust_version;
}

int getServersFromMapInfo(cert_type certType, int* count, char*** servers, int /*flags*/)
{
    std::vector<tq::Identity> identities;
    if (const int status = tq::loadIdentityStore(identities); status != EC_success)
        return status;
    std::vector<std::string> names;
    for (const tq::Identity& identity : identities) {
        if (identity.certType == certType)
            names.push_back(identity.server);
    }
    char** list = names.empty() ? nullptr : copyList(names);
    if (!names.empty() && !list)
        return EC_internal;
    *count = static_cast<int>(names.size());
    *servers = list;
    return EC_success;
}

int getCAModeByServer(cert_type certType, const char* server, int* mode)
{
    tq::Identity identity;
    const int status = getIdentity(certType, server, identity);
    if (status == EC_success)
        *mode = identity.caMode;
    return status;
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
