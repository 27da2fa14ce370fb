#include "bench/statistics.h"

#include "bench/failure.h"

#include <algorithm>
#include <cmath>
#include <ctime>

namespace bench {

namespace {

double seconds(const timespec& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

} // namespace

double now()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return seconds(time);
}

double cpuSecondsOf(pid_t process)
{
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0)
        throw systemFailure("no CPU time of process " + std::to_string(process));
    return seconds(time);
}

double percentile(std::vector<double>& values, double share)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const double place = std::ceil(share * static_cast<double>(values.size())) - 1;
    return values[static_cast<std::size_t>(std::max(place, 0.0))];
}

} // namespace bench
