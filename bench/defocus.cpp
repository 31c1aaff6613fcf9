// A lens out of focus over the three planes of a frame, against a copy of the planes.
#include "bench/bench_host.h"
#include "operators/defocus/defocus_image.h"
#include "operators/defocus/defocus_image_advanced.h"

#include <random>
#include <vector>

using namespace velloran;

namespace {

constexpr int planes = 3, width = 3840, height = 2160;

velloran_tests::HostVector<FixPixel> random_planes() {
    velloran_tests::HostVector<FixPixel> samples(size_t{planes} * width * height);
    std::minstd_rand rng(7);
    for (FixPixel& v : samples) v = static_cast<FixPixel>(rng() & 4095);
    return samples;
}

// Arguments: tasks, radius.
void defocus(benchmark::State& state) {
    const velloran_bench::HostOfTasks host(static_cast<int>(state.range(0)), width, height);
    const auto radius = static_cast<float>(state.range(1));
    auto samples = random_planes();
    constexpr size_t plane = size_t{width} * height;
    const auto frame = [&] {
        for (size_t c = 0; c < planes; ++c)
            defocus_image(&samples[c * plane],
                          {.x_radius = radius, .y_radius = radius, .subpixel = true, .gamma = 0.45f}, {width, height});
    };
    frame();  // the kernel is kept from then on
    velloran_bench::run_against_limit(state, 2 * samples.size() * sizeof(FixPixel), static_cast<double>(plane), frame);
}
BENCHMARK(defocus)->ArgsProduct({{1, 2}, {40, 200}})->UseManualTime()->Unit(benchmark::kMillisecond);

// A lens of six blades. Arguments: tasks, radius.
void defocus_adv(benchmark::State& state) {
    const velloran_bench::HostOfTasks host(static_cast<int>(state.range(0)), width, height);
    const auto radius = static_cast<float>(state.range(1));
    auto samples = random_planes();
    constexpr size_t plane = size_t{width} * height;
    FixPixel* const pointers[] = {&samples[0], &samples[plane], &samples[2 * plane]};
    LensDefocus lens = {};
    lens.lens.sides = 6;
    lens.radii[0] = {radius, radius, 0, 0};
    lens.gamma = 2.2f;
    const auto frame = [&] { defocus_image_advanced(pointers, planes, planes, lens, {width, height}, get_fft_info()); };
    frame();
    velloran_bench::run_against_limit(state, 2 * samples.size() * sizeof(FixPixel), static_cast<double>(plane), frame);
}
BENCHMARK(defocus_adv)->ArgsProduct({{1, 2}, {40}})->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
