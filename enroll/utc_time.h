/// Points in time as people read them.
#pragma once

#include <cstdint>
#include <string>

namespace enroll {

/// "2027-11-20 08:10:42 UTC" for Unix seconds; "unknown" for a time beyond the calendar's years.
std::string utcTime(std::int64_t time);

} // namespace enroll
