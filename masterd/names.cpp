#include "masterd/names.h"

#include <algorithm>

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

} // namespace masterd
