#include "platform/token_store.h"

#include "platform/debuglog.h"
#include "platform/file_io.h"
#include "platform/json.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>

namespace tq {

namespace {

constexpr std::size_t TOKEN_MAX_BYTES = 8192;
constexpr std::int64_t LONGEST_VALIDITY_SECONDS = std::int64_t{366} * 24 * 3600;
constexpr mode_t TOKEN_FILE_MODE = 0600;

constexpr const char* EXPIRES_AT = "expiresAt";
constexpr const char* EXPIRES_IN = "expiresIn";

/// A token object whose time stands under `timeKey`; absent when one of the two is missing or wrong.
std::optional<AccessToken> parseToken(std::string_view text, const char* timeKey)
{
    if (text.size() > TOKEN_TEXT_MAX_BYTES)
        return std::nullopt;
    const JsonRef object(json_loadb(text.data(), text.size(), 0, nullptr));
    const json_t* token = json_object_get(object.get(), "token");
    const json_t* time = json_object_get(object.get(), timeKey);
    if (!json_is_string(token) || !json_is_integer(time))
        return std::nullopt;
    AccessToken parsed{{json_string_value(token), json_string_length(token)}, json_integer_value(time)};
    if (!isTokenText(parsed.text))
        return std::nullopt;
    return parsed;
}

} // namespace

bool isTokenText(std::string_view text)
{
    return !text.empty() && text.size() <= TOKEN_MAX_BYTES &&
           std::all_of(text.begin(), text.end(), [](char byte) { return byte > ' ' && byte <= '~'; });
}

std::optional<AccessToken> parseTokenFile(std::string_view text)
{
    return parseToken(text, EXPIRES_AT);
}

std::string formatTokenFile(const AccessToken& token)
{
    const JsonRef object(
        json_pack("{s:s, s:I}", "token", token.text.c_str(), EXPIRES_AT, json_int_t{token.expiresAt}));
    const JsonText text(json_dumps(object.get(), 0));
    return text ? std::string(text.get()) + '\n' : std::string();
}

std::optional<AccessToken> parseTokenReply(std::string_view body, std::int64_t now)
{
    std::optional<AccessToken> token = parseToken(body, EXPIRES_IN);
    if (!token || token->expiresAt < 0)
        return std::nullopt;
    token->expiresAt = now + std::min(token->expiresAt, LONGEST_VALIDITY_SECONDS);
    return token;
}

std::optional<AccessToken> readToken(const std::string& path)
{
    constexpr const char* CONTEXT = "readToken";
    const FileDescriptor file = openOwnFile(path, O_RDONLY, 0, CONTEXT);
    if (!file)
        return std::nullopt;
    const std::optional<std::string> text = readRest(file.get(), TOKEN_TEXT_MAX_BYTES);
    if (!text && errno != EFBIG) { // what is too large is damaged
        LogLine(LogLevel::warning, CONTEXT)
            << "Token file " << path << " cannot be read and counts as absent: " << errorText(errno);
        return std::nullopt;
    }
    std::optional<AccessToken> token = text ? parseTokenFile(*text) : std::nullopt;
    if (!token)
        LogLine(LogLevel::warning, CONTEXT) << "Token file " << path << " is damaged and counts as absent";
    return token;
}

bool storeToken(const std::string& path, const AccessToken& token)
{
    const std::string text = formatTokenFile(token);
    return !text.empty() && replaceFile(path, text, TOKEN_FILE_MODE, "storeToken");
}

} // namespace tq
