/// Times and what is said about many of them.
#pragma once

#include <cstdint>
#include <sys/types.h>
#include <vector>

namespace bench {

/// Seconds of a clock that never jumps.
double now();

/// CPU seconds that all threads of a process have used since it began, those that ended too. Throws Failure
/// when there is no such process.
double cpuSecondsOf(pid_t process);

/// The value that `share` (0 to 1) of all values do not exceed; 0 when there are none. Sorts the values.
double percentile(std::vector<double>& values, double share);

} // namespace bench
