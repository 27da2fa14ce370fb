#include "platform/server_name.h"

#include <algorithm>
#include <cstddef>

namespace tq {
namespace {

constexpr std::size_t MAX_SERVER_NAME_BYTES = 253;

bool isControl(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
}

bool isBlank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

} // namespace

const char* serverNameFault(std::string_view name)
{
    if (name.empty())
        return "it is empty";
    if (name.size() > MAX_SERVER_NAME_BYTES)
        return "it is longer than 253 characters";
    if (name.front() == '.')
        return "it begins with a dot";
    if (name.find('/') != std::string_view::npos)
        return "it holds a slash";
    if (std::any_of(name.begin(), name.end(), isBlank))
        return "it holds white space";
    if (std::any_of(name.begin(), name.end(), isControl))
        return "it holds a control character";
    if (name == "daemon")
        return "it is the name of the daemon's lock";
    return nullptr;
}

} // namespace tq
