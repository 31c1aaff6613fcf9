#include "hosts/common/host.h"

#include <benchmark/benchmark.h>

static void nothing() {}

static void fork_and_barrier(benchmark::State& state) {
    spark_host::host().processors = static_cast<int>(state.range(0));
    for (auto _ : state) sparkMpFork(nothing, 0);
}
BENCHMARK(fork_and_barrier)->Arg(1)->Arg(2)->Arg(5)->UseRealTime();

BENCHMARK_MAIN();
