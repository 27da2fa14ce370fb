#include "enroll/utc_time.h"

#include <array>
#include <ctime>

namespace enroll {

std::string utcTime(std::int64_t time)
{
    std::tm utc{};
    const std::time_t seconds = time;
    if (gmtime_r(&seconds, &utc) == nullptr)
        return "unknown";
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S UTC", &utc);
    return text.data();
}

} // namespace enroll
