/// Paths in URLs: what the client encodes the server decodes; and hosts of URLs.
#include "fuzz/support/target.h"
#include "masterd/names.h"
#include "masterd/request_target.h"
#include "platform/net.h"
#include "platform/url.h"

#include <algorithm>

namespace {

using fuzz::require;

/// Printable ASCII without what ends a request line or begins a fragment.
bool mayStandInUrl(char byte)
{
    return byte > ' ' && byte < 0x7f && byte != '#' && byte != '"' && byte != '<' && byte != '>';
}

/// "%" stays as it is, for parts that callers have encoded: a text that holds one is not read back as it was.
void checkRoundTrip(std::string_view text, std::string_view encoded)
{
    const auto target = masterd::parseRequestTarget("/" + std::string(encoded));
    require(target.has_value(), "an encoded path can be decoded", encoded);
    std::string path;
    for (const std::string& segment : target->segments)
        path += "/" + segment;
    const std::size_t mark = std::min(text.find('?'), text.size());
    require(path == "/" + std::string(text.substr(0, mark)), "a path comes back as it was", path);
    require(target->query == text.substr(std::min(mark + 1, text.size())), "a query comes back as it was",
            target->query);
    masterd::parseHostNameFilter(target->query);
}

void checkHost(std::string_view text)
{
    if (!tq::isUrlHost(text))
        return;
    const std::string url = tq::serverUrl(text, 1556);
    require(std::all_of(url.begin(), url.end(), mayStandInUrl) && url.find('@') == std::string::npos &&
                std::count(url.begin(), url.end(), '/') == 2,
            "a host leads nowhere else", url);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text = fuzz::textOf(data, size);
    const std::string encoded = tq::encodePath(text);
    require(std::all_of(encoded.begin(), encoded.end(), mayStandInUrl), "an encoded path may stand in a URL",
            encoded);
    require(encoded.size() <= 3 * text.size(), "a byte becomes three at most");
    require(tq::encodePath(encoded) == encoded, "an encoded path stays as it is", encoded);
    if (text.find('%') == std::string_view::npos)
        checkRoundTrip(text, encoded);
    checkHost(text);
    masterd::parseRequestTarget(text);
    if (masterd::isHostName(text))
        require(tq::isUrlHost(text), "a host's name may stand in a URL", text);
    knet_is_ip_string(std::string(text).c_str());
    return 0;
}
