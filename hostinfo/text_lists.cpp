#include "hostinfo/tqclntdb_hostinfo.h"

#include <algorithm>

namespace TQCLNTDB {

std::string CHostInformation::SeparateStringValuesByTok(const std::vector<std::string>& list,
                                                        const std::string& separator)
{
    std::string joined;
    for (const std::string& entry : list)
        joined += entry + separator;
    // Cuts the separator behind the last entry, and with it any such characters that the entry ends in.
    joined.erase(joined.find_last_not_of(separator) + 1);
    return joined;
}

std::vector<std::string> CHostInformation::stringToVector(const std::string& text, char separator)
{
    std::vector<std::string> pieces;
    pieces.reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), separator)) + 1);
    std::size_t start = 0;
    for (std::size_t end = text.find(separator); end != std::string::npos;
         end = text.find(separator, start)) {
        pieces.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    pieces.push_back(text.substr(start));
    return pieces;
}

std::string CHostInformation::vectorToString(const std::vector<std::string>& list)
{
    std::string joined;
    const char* joiner = "";
    for (const std::string& entry : list) {
        joined += joiner + entry;
        joiner = ", ";
    }
    return joined;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value, as this operation has always been offered
std::string CHostInformation::trimLR(std::string text, std::string set)
{
    const std::size_t first = text.find_first_not_of(set);
    if (first == std::string::npos)
        return text; // nothing to keep: deliberately not emptied
    return text.substr(first, text.find_last_not_of(set) - first + 1);
}

} // namespace TQCLNTDB
