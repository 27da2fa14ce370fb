#include "masterd/client_identity.h"

#include "platform/crypto.h"

#include <strings.h>

namespace masterd {

std::optional<Identity> readNamedIdentity(const X509& certificate)
{
    const std::optional<tq::AlternativeNames> names = tq::readAlternativeNames(certificate);
    if (!names || names->uris.size() != 1 || names->dnsNames.size() != 1)
        return std::nullopt;
    const std::string_view uri = names->uris.front();
    if (uri.substr(0, tq::UUID_URI_PREFIX.size()) != tq::UUID_URI_PREFIX)
        return std::nullopt;
    return Identity{std::string(uri.substr(tq::UUID_URI_PREFIX.size())), names->dnsNames.front()};
}

std::optional<Secret> parseBearer(std::string_view header)
{
    constexpr std::string_view SCHEME = "Bearer ";
    if (header.size() < SCHEME.size() || strncasecmp(header.data(), SCHEME.data(), SCHEME.size()) != 0)
        return std::nullopt;
    return parseSecret(header.substr(SCHEME.size()));
}

} // namespace masterd
