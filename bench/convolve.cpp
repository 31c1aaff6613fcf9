// Convolution of the three planes of a frame, against a copy of the planes.
#include "bench/bench_host.h"
#include "operators/convolve/convolution.h"

#include <random>
#include <vector>

using namespace velloran;

namespace {

constexpr int planes = 3;

void convolve(benchmark::State& state, const std::vector<float>& kernel, int size, int width = 3840,
              int height = 2160) {
    const size_t plane = static_cast<size_t>(width) * static_cast<size_t>(height);
    const velloran_bench::HostOfTasks host(static_cast<int>(state.range(0)), width, height);
    fft_info_t* info = get_fft_info();
    fft_set_crop(info, {width, height, width, height, 0, 0, width, height, 0});
    const float* kernels = kernel.data();
    fft_set_kernel_float(info, &kernels, {size, size, 1, size / 2, size / 2, autoscale_each, 1, 1, "bench"});
    std::vector<FixPixel> in(planes * plane), out(planes * plane);
    std::minstd_rand rng(7);
    for (FixPixel& v : in) v = static_cast<FixPixel>(rng() & 4095);
    velloran_bench::run_against_limit(state, 4 * planes * plane, static_cast<double>(planes * plane), [&] {
        for (size_t c = 0; c < planes; ++c) convolve_fix_fix(info, &in[c * plane], &out[c * plane], 1, 0);
    });
    state.counters["mode"] = info->mode;
    state.counters["fft_w"] = info->fft_w;
    state.counters["fft_h"] = info->fft_h;
    free_fft_bufs(info);
}

std::vector<float> random_kernel(int size) {
    std::vector<float> kernel(static_cast<size_t>(size) * static_cast<size_t>(size));
    std::minstd_rand rng(3);
    for (float& v : kernel) v = static_cast<float>(rng() % 1000) / 1000;
    return kernel;
}

// Arguments: tasks, size of the kernel.
void arbitrary(benchmark::State& state) {
    const int size = static_cast<int>(state.range(1));
    convolve(state, random_kernel(size), size);
}
BENCHMARK(arbitrary)->ArgsProduct({{1, 2}, {65, 257}})->UseManualTime()->Unit(benchmark::kMillisecond);

// A kernel so large against the frame that all goes through one transform. Arguments: tasks, size of the kernel.
void one_transform(benchmark::State& state) {
    const int size = static_cast<int>(state.range(1));
    convolve(state, random_kernel(size), size, 1920, 1080);
}
BENCHMARK(one_transform)->ArgsProduct({{1, 2}, {257, 801}})->UseManualTime()->Unit(benchmark::kMillisecond);

// Arguments: tasks, radius.
void disc(benchmark::State& state) {
    const int radius = static_cast<int>(state.range(1));
    std::vector<float> kernel;
    for (int y = -radius; y <= radius; ++y)
        for (int x = -radius; x <= radius; ++x) kernel.push_back(x * x + y * y <= radius * radius ? 1.0f : 0.0f);
    convolve(state, kernel, 2 * radius + 1);
}
BENCHMARK(disc)->ArgsProduct({{1, 2}, {15, 100}})->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
