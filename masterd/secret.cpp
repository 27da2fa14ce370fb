#include "masterd/secret.h"

#include "platform/crypto.h"
#include "platform/random.h"

#include <algorithm>

namespace masterd {

namespace {

constexpr std::size_t ID_BYTES = 8;
constexpr std::size_t SECRET_BYTES = 32;

} // namespace

std::string Secret::text() const
{
    return id + '.' + secret;
}

std::string Secret::hash() const
{
    return tq::sha256Hex(secret);
}

bool Secret::matches(std::string_view storedHash) const
{
    return tq::equalInConstantTime(hash(), storedHash);
}

Secret makeSecret()
{
    return {tq::randomHex(ID_BYTES), tq::randomHex(SECRET_BYTES)};
}

std::optional<Secret> parseSecret(std::string_view text)
{
    const std::string_view id = text.substr(0, std::min(text.find('.'), text.size()));
    const std::string_view secret = text.substr(std::min(id.size() + 1, text.size()));
    if (!tq::isHexText(id, ID_BYTES) || !tq::isHexText(secret, SECRET_BYTES))
        return std::nullopt;
    return Secret{std::string(id), std::string(secret)};
}

} // namespace masterd
