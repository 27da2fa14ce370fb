#include "platform/url.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <netinet/in.h>

namespace tq {

namespace {

constexpr std::string_view DIGITS = "0123456789ABCDEF";

/// What RFC 3986 lets stand in a path or query besides letters and digits, less "+", which form decoders
/// read as a blank, and with "%" for parts that are encoded already.
constexpr std::string_view PATH_PUNCTUATION = "-._~!$&'()*,;=:@/?%";

bool isLetterOrDigit(char byte)
{
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9');
}

bool isIpv6Address(const std::string& text)
{
    std::array<unsigned char, sizeof(in6_addr)> address{};
    return inet_pton(AF_INET6, text.c_str(), address.data()) == 1;
}

} // namespace

bool isUrlHost(std::string_view server)
{
    // inet_pton stops at a NUL, which no address holds.
    if (server.find(':') != std::string_view::npos)
        return server.find('\0') == std::string_view::npos && isIpv6Address(std::string(server));
    return !server.empty() && std::all_of(server.begin(), server.end(), [](char byte) {
        return isLetterOrDigit(byte) || byte == '-' || byte == '_' || byte == '.';
    });
}

std::string serverUrl(std::string_view server, int port)
{
    const bool brackets = server.find(':') != std::string_view::npos;
    std::string url = brackets ? "https://[" : "https://";
    url.append(server);
    url += brackets ? "]:" : ":";
    return url + std::to_string(port);
}

std::string encodePath(std::string_view path)
{
    std::string encoded;
    encoded.reserve(path.size());
    for (const char byte : path) {
        if (isLetterOrDigit(byte) || PATH_PUNCTUATION.find(byte) != std::string_view::npos) {
            encoded += byte;
            continue;
        }
        const auto value = static_cast<unsigned char>(byte);
        encoded += '%';
        encoded += DIGITS[value >> 4U];
        encoded += DIGITS[value & 0xFU];
    }
    return encoded;
}

} // namespace tq
