#include "masterd/request_target.h"

#include <algorithm>

namespace masterd {

namespace {

/// -1 for a character that is no hexadecimal digit.
int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

std::optional<std::string> percentDecode(std::string_view text)
{
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded += text[i];
            continue;
        }
        if (i + 2 >= text.size() || hexValue(text[i + 1]) < 0 || hexValue(text[i + 2]) < 0)
            return std::nullopt;
        decoded += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
        i += 2;
    }
    return decoded;
}

} // namespace

std::optional<RequestTarget> parseRequestTarget(std::string_view target)
{
    if (target.empty() || target.front() != '/')
        return std::nullopt;
    const std::size_t mark = std::min(target.find('?'), target.size());
    std::string_view path = target.substr(1, mark - 1);
    std::string query(target.substr(std::min(mark + 1, target.size())));
    std::replace(query.begin(), query.end(), '+', ' ');

    RequestTarget result;
    for (;;) {
        const std::size_t slash = path.find('/');
        const std::optional<std::string> segment = percentDecode(path.substr(0, slash));
        if (!segment)
            return std::nullopt;
        result.segments.push_back(*segment);
        if (slash == std::string_view::npos)
            break;
        path.remove_prefix(slash + 1);
    }
    const std::optional<std::string> decodedQuery = percentDecode(query);
    if (!decodedQuery)
        return std::nullopt;
    result.query = *decodedQuery;
    return result;
}

std::optional<std::string> parseHostNameFilter(std::string_view query)
{
    constexpr std::string_view BEGIN = "filter=hostName eq '";
    if (query.substr(0, BEGIN.size()) != BEGIN || query.size() == BEGIN.size() || query.back() != '\'')
        return std::nullopt;
    return std::string(query.substr(BEGIN.size(), query.size() - BEGIN.size() - 1));
}

} // namespace masterd
