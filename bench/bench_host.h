// What the benches share: a host of n tasks (HostOfTasks), and the limit that a time is stated in multiples of.
//
// The limit is the time that a plain parallel copy, on as many tasks, takes to move as many bytes as the operation has
// to read and write at the least. It is measured in turns with the operation, so that both see the same machine, and
// the medians are compared.
#pragma once

#include "tasks/tasks.h"
#include "testing/host_of_tasks.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <vector>

namespace velloran_bench {

using velloran_tests::HostOfTasks;

struct Times {
    std::vector<double> wall, cpu;  // seconds; cpu of all tasks together
};

inline void time_of(Times& times, auto&& body) {
    const auto cpu_seconds = [] {
        timespec now;
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
        return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
    };
    const double cpu_start = cpu_seconds();
    const auto start = std::chrono::steady_clock::now();
    body();
    benchmark::ClobberMemory();
    times.wall.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    times.cpu.push_back(cpu_seconds() - cpu_start);
}

inline double median(std::vector<double> times) {
    if (times.empty()) return 0;
    const auto middle = times.begin() + static_cast<ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
}

// Times op against the limit. A HostOfTasks must be alive; the benchmark must be registered with UseManualTime.
//   moved_bytes  that op has to read and write at the least, added up
//   pixels       that op works on
// Counters: limit (multiples of the limit, 1 is perfect), cpu_limit (the same in processor time of all tasks, for busy
// machines), copy_ms (the limit itself: how much less it is on two tasks says what memory allows), Mpixels (a second,
// of the median run), GB (moved a second).
void run_against_limit(benchmark::State& state, size_t moved_bytes, double pixels, auto&& op) {
    velloran_tests::HostVector<uint8_t> from(moved_bytes / 2, 1), to(moved_bytes / 2, 2);
    Times op_times, copy_times;
    for (auto _ : state) {
        time_of(copy_times, [&] { velloran::mp_memcpy(to.data(), from.data(), from.size()); });
        time_of(op_times, op);
        state.SetIterationTime(op_times.wall.back());
    }
    benchmark::DoNotOptimize(to.data());
    const double op_time = median(op_times.wall);
    state.counters["limit"] = op_time / median(copy_times.wall);
    state.counters["cpu_limit"] = median(op_times.cpu) / median(copy_times.cpu);
    state.counters["copy_ms"] = 1e3 * median(copy_times.wall);
    state.counters["Mpixels"] = pixels / op_time * 1e-6;
    state.counters["GB"] = static_cast<double>(moved_bytes) / op_time * 1e-9;
}

}  // namespace velloran_bench
