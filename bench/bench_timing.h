// The timing the benchmarks share: the median of a few rounds, in milliseconds.
#pragma once

#include <algorithm>
#include <chrono>
#include <vector>

namespace tmi::bench {

template <class F>
double MedianMs(int aRounds, F&& aRun) {
    std::vector<double> times;
    for (int i = 0; i < aRounds; ++i) {
        const auto start = std::chrono::steady_clock::now();
        aRun();
        times.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

}  // namespace tmi::bench
