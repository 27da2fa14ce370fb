#include "clusterinfo/hxm_text.h"

#include <algorithm>
#include <sstream>

namespace libclusterinfo {

std::string textBefore(std::string_view line, std::string_view stops)
{
    return std::string(line.substr(0, line.find_first_of(stops)));
}

std::string domainOf(const std::string& hostName, const std::string& current)
{
    const std::size_t dot = hostName.find('.');
    if (dot == 0)
        return current;
    return dot == std::string::npos ? hostName : hostName.substr(dot + 1);
}

std::optional<std::string> thirdWord(const std::string& line)
{
    std::istringstream words(line);
    std::string word;
    for (int count = 0; count < 3; ++count) {
        if (!(words >> word))
            return std::nullopt;
    }
    return word;
}

bool hasThreeDots(std::string_view address)
{
    return std::count(address.begin(), address.end(), '.') == 3;
}

} // namespace libclusterinfo
