#pragma once

// Small helpers shared by the benchmarks: wall-clock timing of the best of
// several runs, and throughput figures.

#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <limits>

namespace QxBench {

// The fastest of `repeats` runs of `work`, in seconds.
inline double bestOf(int repeats, const std::function<void()> &work)
{
    double best = std::numeric_limits<double>::infinity();
    for (int i = 0; i < repeats; ++i) {
        QElapsedTimer timer;
        timer.start();
        work();
        best = std::min(best, double(timer.nsecsElapsed()) / 1e9);
    }
    return best;
}

inline double mibPerSecond(double bytes, double seconds)
{
    return bytes / (1024.0 * 1024.0) / seconds;
}

// Keeps the optimizer from discarding a result.
template<typename T>
inline void keep(const T &value)
{
    asm volatile("" : : "g"(&value) : "memory");
}

} // namespace QxBench
