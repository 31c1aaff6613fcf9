// Convolution of three planes of a frame against the limit: a copy of the planes by the same number of tasks.
#include "ops/convolve.h"
#include "engine/tasks.h"
#include "hosts/common/host.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

using namespace velloran;

namespace {

constexpr int width = 3840, height = 2160, planes = 3;

struct Planes {
    std::vector<FixPixel> in, out;
    Planes() : in(static_cast<size_t>(planes) * width * height), out(in.size()) {
        std::minstd_rand rng(7);
        for (auto& v : in) v = static_cast<FixPixel>(rng() & 4095);
    }
};

void use_tasks(int n) {
    spark_host::host().processors = n;
    set_cpu_count(n, 1);
}

void limit(benchmark::State& state) {
    use_tasks(static_cast<int>(state.range(0)));
    Planes p;
    for (auto _ : state) {
        mp_memcpy(p.out.data(), p.in.data(), p.in.size() * 2);
        benchmark::ClobberMemory();
    }
}

void convolve(benchmark::State& state, const std::vector<float>& kernel, int size) {
    fft_info_t* info = get_fft_info();
    fft_set_crop(info, width, height, width, height, 0, 0, width, height, 0);
    const float* plane = kernel.data();
    free_fft_bufs(info);
    fft_set_kernel_float(info, &plane, size, size, 1, size / 2, size / 2, autoscale_each, 1, 1, "bench");
    Planes p;
    for (auto _ : state)
        for (size_t c = 0; c < planes; ++c)
            convolve_fix_fix(info, &p.in[c * width * height], &p.out[c * width * height], 1, 0);
    state.counters["mode"] = info->mode;
    state.counters["fft_w"] = info->fft_w;
    state.counters["fft_h"] = info->fft_h;
}

// Arguments: tasks, size of the kernel.
void arbitrary(benchmark::State& state) {
    use_tasks(static_cast<int>(state.range(0)));
    const int size = static_cast<int>(state.range(1));
    std::vector<float> kernel(static_cast<size_t>(size) * static_cast<size_t>(size));
    std::minstd_rand rng(3);
    for (float& v : kernel) v = static_cast<float>(rng() % 1000) / 1000;
    convolve(state, kernel, size);
}

// Arguments: tasks, radius.
void disc(benchmark::State& state) {
    use_tasks(static_cast<int>(state.range(0)));
    const int radius = static_cast<int>(state.range(1));
    std::vector<float> kernel;
    for (int y = -radius; y <= radius; ++y)
        for (int x = -radius; x <= radius; ++x) kernel.push_back(x * x + y * y <= radius * radius ? 1.0f : 0.0f);
    convolve(state, kernel, 2 * radius + 1);
}

}  // namespace

BENCHMARK(limit)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(arbitrary)->ArgsProduct({{1, 2}, {65, 257}})->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(disc)->ArgsProduct({{1, 2}, {15, 100}})->UseRealTime()->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
