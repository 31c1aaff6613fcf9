// Three-pass blur of a frame against the limit: a copy of the planes by the same number of tasks.
#include "ops/blur.h"
#include "engine/tasks.h"
#include "hosts/common/host.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

using namespace velloran;

namespace {

constexpr int width = 3840, height = 2160;

struct Planes {
    std::vector<FixPixel> in, out;
    explicit Planes(int n) : in(static_cast<size_t>(n) * width * height), out(in.size()) {
        std::minstd_rand rng(7);
        for (auto& v : in) v = static_cast<FixPixel>(rng() & 4095);
    }
};

void use_tasks(int n) {
    spark_host::host().processors = n;
    set_cpu_count(n, 1);
}

// Arguments: tasks, planes.
void limit(benchmark::State& state) {
    use_tasks(static_cast<int>(state.range(0)));
    Planes p(static_cast<int>(state.range(1)));
    for (auto _ : state) {
        mp_memcpy(p.out.data(), p.in.data(), p.in.size() * 2);
        benchmark::ClobberMemory();
    }
}
// Arguments: tasks, planes, radius in pixels.
void blur(benchmark::State& state) {
    use_tasks(static_cast<int>(state.range(0)));
    const int n = static_cast<int>(state.range(1)), radius = static_cast<int>(state.range(2)) * fix_scale;
    Planes p(n);
    const size_t plane = static_cast<size_t>(width) * height;
    for (auto _ : state)
        for (int c = 0; c < n; ++c)
            blur_image(&p.in[c * plane], &p.out[c * plane], radius, radius, blur_default_edge_mode, 3, fix_scale, false,
                       false, width, height);
}

}  // namespace

BENCHMARK(limit)->ArgsProduct({{1, 2}, {1, 3}})->UseRealTime();
BENCHMARK(blur)->ArgsProduct({{1, 2}, {1, 3}, {5, 50, 400}})->UseRealTime()->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
