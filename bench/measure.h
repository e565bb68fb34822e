// What a measurement is: one figure, taken in a process of its own. Times are processor time, because that is what a
// host loses; of several slices the fastest counts, because what else runs on the machine only adds.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <span>
#include <vector>

namespace bench {

// One figure: nanoseconds for one of what the row counts, unless the row says otherwise. `size` is the row's own.
struct Measurement {
    const char *name;
    double (*take)(unsigned size);
};

// All of them, file by file; see main.cpp.
std::span<const Measurement> messages();
std::span<const Measurement> pairs();
std::span<const Measurement> peers();
std::span<const Measurement> lookups();
std::span<const Measurement> replays();
std::span<const Measurement> requests();
std::span<const Measurement> hosts();

// Processor seconds that a measurement may take.
inline double g_budget = 0.1;

[[nodiscard]] inline double seconds_of(clockid_t clock) {
    timespec time;
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}
[[nodiscard]] inline double processor_seconds() {
    return seconds_of(CLOCK_PROCESS_CPUTIME_ID);
}

// The middle one; 0 of none.
inline double median(std::vector<double> values) {
    if (values.empty())
        return 0;
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// Makes the compiler believe that a value is used.
template <class T> void keep(const T &value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

// Nanoseconds of one item: `slice(runs)` gives the seconds of so many runs with `items` each.
template <class Slice> double fastest(uint32_t items, Slice slice) {
    constexpr int kSlices = 8;
    uint32_t runs = 1;
    double seconds = slice(runs);
    while (seconds * kSlices < g_budget && runs < 1U << 30) {
        runs *= seconds * kSlices * 4 < g_budget ? 4 : 2;
        seconds = slice(runs);
    }
    for (int taken = 1; taken < kSlices; ++taken)
        if (const double again = slice(runs); again < seconds)
            seconds = again;
    return 1e9 * seconds / runs / items;
}

// The same of a call that needs nothing before or behind it.
template <class Fn> double per_call(uint32_t items, Fn fn) {
    return fastest(items, [&](uint32_t runs) {
        const double start = processor_seconds();
        for (uint32_t run = 0; run < runs; ++run)
            fn();
        return processor_seconds() - start;
    });
}

// The same of work that is prepared before each run, which is not measured.
template <class Before, class Work> double prepared(uint32_t items, Before before, Work work) {
    return fastest(items, [&](uint32_t runs) {
        double seconds = 0;
        for (uint32_t run = 0; run < runs; ++run) {
            before();
            const double start = processor_seconds();
            work();
            seconds += processor_seconds() - start;
        }
        return seconds;
    });
}

} // namespace bench
