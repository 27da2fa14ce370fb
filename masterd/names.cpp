#include "masterd/names.h"

#include <algorithm>
#include <arpa/inet.h>

namespace masterd {

namespace {

constexpr std::size_t HOST_NAME_MAX_BYTES = 253;

bool isInnerCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.';
}

bool isEdgeCharacter(char c)
{
    return isInnerCharacter(c) && c != '-' && c != '.';
}

} // namespace

bool isHostName(std::string_view name)
{
    return !name.empty() && name.size() <= HOST_NAME_MAX_BYTES && isEdgeCharacter(name.front()) &&
           isEdgeCharacter(name.back()) && std::all_of(name.begin(), name.end(), isInnerCharacter);
}

bool isIpAddress(const std::string& text)
{
    in6_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1 ||
           inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

} // namespace masterd
