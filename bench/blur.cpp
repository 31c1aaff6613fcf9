// Three-pass blur of a frame, against a copy of its planes.
#include "bench/bench_host.h"
#include "operators/blur/blur_image.h"
#include "rows/row_target.h"

#include <hwy/targets.h>

#include <random>

using namespace velloran;

namespace {

struct Form {
    int width, height, radius;  // pixels
    int planes;
    int edge_mode;
    bool subpixel;
};

void run(benchmark::State& state, const Form& f) {
    const velloran_bench::HostOfTasks host(static_cast<int>(state.range(0)), f.width, f.height);
    const size_t plane = static_cast<size_t>(f.width) * static_cast<size_t>(f.height);
    const size_t n = static_cast<size_t>(f.planes);
    const int radius = f.radius * fix_scale + (f.subpixel ? fix_scale / 3 : 0);
    const BlurSettings settings = {
        .x_radius = radius, .y_radius = radius, .edge_mode = f.edge_mode, .subpixel = f.subpixel};
    velloran_tests::HostVector<FixPixel> in(n * plane), out(n * plane);
    std::minstd_rand rng(7);
    for (FixPixel& v : in) v = static_cast<FixPixel>(rng() & 4095);
    velloran_bench::run_against_limit(state, 4 * n * plane, static_cast<double>(n * plane), [&] {
        for (size_t c = 0; c < n; ++c) blur_image(&in[c * plane], &out[c * plane], settings, {f.width, f.height});
    });
}

// Arguments: tasks, planes, radius.
void blur(benchmark::State& state) {
    run(state, {3840, 2160, static_cast<int>(state.range(2)), static_cast<int>(state.range(1)), blur_default_edge_mode,
                false});
}
BENCHMARK(blur)->ArgsProduct({{1, 2}, {1, 3}, {5, 50, 400}})->UseManualTime()->Unit(benchmark::kMillisecond);

// What goes other ways. Arguments: tasks, radius.
void subpixel(benchmark::State& state) {
    run(state, {3840, 2160, static_cast<int>(state.range(1)), 1, blur_edge_mirror, true});
}
void black_edges(benchmark::State& state) {
    run(state, {3840, 2160, static_cast<int>(state.range(1)), 1, blur_edge_black, false});
}
void film_width(benchmark::State& state) {  // whose rows do not begin on whole cache lines
    run(state, {3656, 2664, static_cast<int>(state.range(1)), 1, blur_edge_mirror, false});
}
void without_avx512(benchmark::State& state) {
    force_row_target(HWY_AVX2);
    run(state, {3840, 2160, static_cast<int>(state.range(1)), 1, blur_edge_mirror, false});
    force_row_target(0);
}
BENCHMARK(subpixel)->ArgsProduct({{2}, {5, 400}})->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(black_edges)->ArgsProduct({{2}, {5, 400}})->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(film_width)->ArgsProduct({{2}, {5, 400}})->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(without_avx512)->ArgsProduct({{2}, {5, 400}})->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
