#include "sysinfo/line_value.h"

#include <algorithm>

namespace SYSINFO_NAMESPACE {

std::optional<std::string> valueAfterLast(char separator, std::string_view line)
{
    constexpr std::size_t SCANNED = 2048;
    constexpr std::string_view LINE_ENDS("\n\r\f\0", 4);
    const std::size_t stop = std::min(line.find_first_of(LINE_ENDS), line.size());
    if (stop >= SCANNED)
        return std::nullopt;
    const std::size_t last = line.substr(0, stop).rfind(separator);
    if (last == std::string_view::npos)
        return std::nullopt;
    const std::size_t start = std::min(last + 2, stop);
    return std::string(line.substr(start, stop - start));
}

bool contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

std::string withoutLeadingBlanks(const std::string& text)
{
    return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}

} // namespace SYSINFO_NAMESPACE
