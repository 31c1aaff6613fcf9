// Three-pass blur of a frame, against a copy of its planes.
#include "ops/blur.h"
#include "bench/bench_host.h"

#include <random>

using namespace velloran;

namespace {

constexpr int width = 3840, height = 2160;
constexpr size_t plane = size_t{width} * height;

// Arguments: tasks, planes, radius in pixels.
void blur(benchmark::State& state) {
    const velloran_bench::HostOfTasks host(static_cast<int>(state.range(0)), width, height);
    const size_t n = static_cast<size_t>(state.range(1));
    const int radius = static_cast<int>(state.range(2)) * fix_scale;
    velloran_tests::HostVector<FixPixel> in(n * plane), out(n * plane);
    std::minstd_rand rng(7);
    for (FixPixel& v : in) v = static_cast<FixPixel>(rng() & 4095);
    velloran_bench::run_against_limit(state, 4 * n * plane, static_cast<double>(n * plane), [&] {
        for (size_t c = 0; c < n; ++c)
            blur_image(&in[c * plane], &out[c * plane], radius, radius, blur_default_edge_mode, 3, fix_scale, false,
                       false, width, height);
    });
}
BENCHMARK(blur)->ArgsProduct({{1, 2}, {1, 3}, {5, 50, 400}})->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
