// What the benchmarks time with: the process's CPU time and the seconds
// since a point of the steady clock.
#ifndef PANOVIEW_BENCH_CLOCK_H
#define PANOVIEW_BENCH_CLOCK_H

#include <sys/resource.h>

#include <chrono>

using Clock = std::chrono::steady_clock;

// User and system time of every thread of the process, in seconds.
inline double ProcessCpuSeconds()
{
    rusage ru;
    getrusage(RUSAGE_SELF, &ru);
    return double(ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) + 1e-6 * double(ru.ru_utime.tv_usec + ru.ru_stime.tv_usec);
}

inline double Since(Clock::time_point t)
{
    return std::chrono::duration<double>(Clock::now() - t).count();
}

#endif
