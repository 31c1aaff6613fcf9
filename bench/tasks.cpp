// A fork and its barrier with nothing between, and the parallel copy and fill. Goal: a fork below 20 microseconds.
#include "bench_host.h"

using namespace velloran;
using namespace velloran_bench;

namespace {

void fork_and_barrier(benchmark::State& state) {
    const HostOfTasks host(static_cast<int>(state.range(0)), 1920, 1080);
    for (auto _ : state) fork_processes([] { benchmark::ClobberMemory(); });
}
BENCHMARK(fork_and_barrier)->ArgName("tasks")->Arg(1)->Arg(2)->UseRealTime();

void take_stripe() {
    int first, n;
    get_proc_stripe(1080, &first, &n);
    benchmark::DoNotOptimize(first);
}
void fork_with_stripe(benchmark::State& state) {
    const HostOfTasks host(static_cast<int>(state.range(0)), 1920, 1080);
    for (auto _ : state) fork_processes(take_stripe);
}
BENCHMARK(fork_with_stripe)->ArgName("tasks")->Arg(1)->Arg(2)->UseRealTime();

constexpr size_t plane_bytes = size_t{3840} * 2160 * 2;

void fill(benchmark::State& state) {
    const HostOfTasks host(static_cast<int>(state.range(0)), 3840, 2160);
    std::vector<uint8_t> plane(plane_bytes);
    run_against_limit(state, plane_bytes, plane_bytes / 2, [&] { mp_memset(plane.data(), 0, plane.size()); });
}
BENCHMARK(fill)->ArgName("tasks")->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
