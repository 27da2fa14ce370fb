/// A token's file, and the server's reply that brings a token.
#include "fuzz/support/target.h"
#include "platform/token_store.h"

namespace {

using fuzz::require;

constexpr std::int64_t NOW = 1'800'000'000;
constexpr std::int64_t YEAR = std::int64_t{366} * 24 * 3600;

void checkFile(std::string_view text)
{
    const std::optional<tq::AccessToken> token = tq::parseTokenFile(text);
    if (!token)
        return;
    require(tq::isTokenText(token->text), "a token may stand in a header", token->text);
    const std::optional<tq::AccessToken> again = tq::parseTokenFile(tq::formatTokenFile(*token));
    require(again && again->text == token->text && again->expiresAt == token->expiresAt,
            "a token written and read back is the same", token->text);
}

void checkReply(std::string_view text)
{
    const std::optional<tq::AccessToken> token = tq::parseTokenReply(text, NOW);
    if (!token)
        return;
    require(tq::isTokenText(token->text), "a token may stand in a header", token->text);
    require(token->expiresAt >= NOW && token->expiresAt <= NOW + YEAR, "a token is good for a year at most");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text = fuzz::textOf(data, size);
    checkFile(text);
    checkReply(text);
    require(!tq::isTokenText(text) || text.find_first_of("\r\n \t") == std::string_view::npos,
            "no token ends a header line");
    return 0;
}
