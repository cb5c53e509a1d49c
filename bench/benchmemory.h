// The process's peak memory so far, for the benchmarks' reports.
#pragma once

#include <sys/resource.h>

namespace tabulon::bench {

// The largest resident set the process has had, in KiB (the kernel's VmHWM).
inline long peakKiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

} // namespace tabulon::bench
