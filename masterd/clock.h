/// The wall clock, as ends of certificates, invitations and tokens are measured.
#pragma once

#include <cstdint>
#include <ctime>

namespace masterd {

/// Seconds since 1970.
inline std::int64_t unixNow()
{
    return std::time(nullptr);
}

} // namespace masterd
