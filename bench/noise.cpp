// Noises of a plane of 3840 x 2160. Those that are evaluated sample by sample stand against a count of multiply-adds
// for each sample, at the rate that a loop of independent ones reaches in the same run: 100 for simplex noise of four
// octaves, 80 for lattice noise of four, 45 for cells, and as many for what is like them. Noise by subdivision and
// white noise stand against a write of the plane.
#include "bench/bench_host.h"
#include "bench/multiply_adds.h"
#include "engine/evaluate.h"
#include "operators/noise/noise_functions.h"
#include "rows/line_rows.h"
#include "tasks/fork_rows.h"
#include "testing/filter_node.h"

using namespace velloran;

namespace {

constexpr int width = 3840, height = 2160, block = 768;
constexpr size_t plane_samples = size_t{width} * height;

// A node with constants behind its coordinates, as a pass has it.
struct PixelNode {
    Node node = {}, args[6] = {};
    PixelNode(const std::vector<double>& numbers, bool coords) {
        node.type = node_function;
        node.elnum = 1;
        int n = 0;
        if (coords) add(n, 2);
        for (const double v : numbers) {
            Node& arg = add(n, 1);
            arg.flags = node_constant_p;
            arg.vals[0] = float_to_fix(static_cast<float>(v));
            for (int32_t*& line : arg.lines) line = arg.vals;
        }
        node.arg_number = node.eval_arg_number = static_cast<int8_t>(n);
    }
    Node& add(int& n, int elnum) {
        Node& arg = args[n];
        arg.elnum = static_cast<int8_t>(elnum);
        node.args[n] = &arg;
        node.arg_lines[n] = arg.lines;
        node.arg_vals[n++] = arg.vals;
        return arg;
    }
};

// The plane from the pixel function, in blocks of its rows; turned: coordinates at an angle.
void make_plane(PixelFun function, const std::vector<double>& numbers, bool coords, bool turned, FixPixel* plane) {
    fork_rows(height, [&](int first, int count) {
        PixelNode work(numbers, coords);
        static thread_local int32_t across[width], x[block], y[block], out[3][block];
        for (int i = 0; i < width; ++i) across[i] = (i * 8192 + 4096) / width - 4096;
        for (int e = 0; e < 3; ++e) work.node.lines[e] = out[e];
        work.args[0].lines[0] = coords ? x : work.args[0].lines[0];
        work.args[0].lines[1] = coords ? y : work.args[0].lines[1];
        for (int row = first; row < first + count; ++row)
            for (int column = 0; column < width; column += block) {
                const int up = (row * 8192 + 4096) / width - 2304, slope = turned ? 1 : 0;
                for (int i = 0; coords && i < block; ++i) {
                    x[i] = across[column + i] - up * slope;
                    y[i] = up + across[column + i] * slope;
                }
                n_pixels = block;
                eval_block_column = column;
                eval_block_row = row;
                function(&work.node);
                line_rows().line_to_samples(out[0], plane + ptrdiff_t{row} * width + column, block, fix_image_limit);
            }
    });
}

// multiply_adds: of each sample; 0: against a write of the plane.
struct Case {
    PixelFun function;
    std::vector<double> numbers;
    double multiply_adds;
    bool coords = true, turned = false;
};

void run(benchmark::State& state, const Case& c) {
    const velloran_tests::FilterFrameRig rig(width, height, static_cast<int>(state.range(0)));
    velloran_tests::HostVector<FixPixel> plane(plane_samples), other(plane_samples);
    velloran_bench::Times times, limits;
    for (auto _ : state) {
        velloran_bench::time_of(limits, [&] {
            if (c.multiply_adds == 0) {
                mp_memset(other.data(), static_cast<int>(times.wall.size()), plane_samples * sizeof(FixPixel));
                return;
            }
            fork_rows(height, [&](int, int count) {
                benchmark::DoNotOptimize(
                    velloran_bench::multiply_adds(static_cast<size_t>(c.multiply_adds * width * count)));
            });
        });
        velloran_bench::time_of(times, [&] { make_plane(c.function, c.numbers, c.coords, c.turned, plane.data()); });
        state.SetIterationTime(times.wall.back());
    }
    using velloran_bench::median;
    state.counters["limit"] = median(times.wall) / median(limits.wall);
    state.counters["cpu_limit"] = median(times.cpu) / median(limits.cpu);
    state.counters["Mpixels"] = static_cast<double>(plane_samples) / median(times.wall) * 1e-6;
}

// frequency, octaves, seed, abs_mode
void simplex_4(benchmark::State& state) { run(state, {pixel_simplex_noise, {1, 4, 1, 0}, 100}); }
void simplex_4_turned(benchmark::State& state) { run(state, {pixel_simplex_noise, {1, 4, 1, 0}, 100, true, true}); }
void simplex_8(benchmark::State& state) { run(state, {pixel_simplex_noise, {1, 8, 1, 0}, 200}); }
void perlin_4(benchmark::State& state) { run(state, {pixel_perlin_noise, {1, 4, 1, 0}, 80}); }
void perlin_4_turned(benchmark::State& state) { run(state, {pixel_perlin_noise, {1, 4, 1, 0}, 80, true, true}); }
// frequency, rotate_centers, seed; radius; octaves
void voronoi(benchmark::State& state) { run(state, {pixel_voronoi, {4, 0, 1}, 45}); }
void voronoi_turned(benchmark::State& state) { run(state, {pixel_voronoi, {4, 0, 1}, 45, true, true}); }
void spots(benchmark::State& state) { run(state, {pixel_spots, {4, 1, 1}, 45}); }
void warp_noise_4(benchmark::State& state) { run(state, {pixel_warp_noise, {1, 4, 1}, 180}); }
void static_noise(benchmark::State& state) { run(state, {pixel_static, {}, 0, false}); }

void fractal(benchmark::State& state, double frequency, double octaves) {
    velloran_tests::FilterFrameRig rig(width, height, static_cast<int>(state.range(0)));
    the_frame->short_image_size = plane_samples * sizeof(FixPixel);
    velloran_tests::HostVector<FixPixel> plane(plane_samples), other(plane_samples);
    PixelNode work({frequency, octaves, 0, 1}, false);
    work.node.images[0] = plane.data();
    work.node.image_count = 1;
    velloran_bench::Times times, limits;
    for (auto _ : state) {
        velloran_bench::time_of(limits, [&] {
            mp_memset(other.data(), static_cast<int>(times.wall.size()), plane_samples * sizeof(FixPixel));
        });
        velloran_bench::time_of(times, [&] { image_noise(&work.node); });
        state.SetIterationTime(times.wall.back());
    }
    using velloran_bench::median;
    state.counters["limit"] = median(times.wall) / median(limits.wall);
    state.counters["cpu_limit"] = median(times.cpu) / median(limits.cpu);
    state.counters["Mpixels"] = static_cast<double>(plane_samples) / median(times.wall) * 1e-6;
}
void noise_6(benchmark::State& state) { fractal(state, 1, 6); }
void noise_6_fine(benchmark::State& state) { fractal(state, 20, 6); }

// Arguments: tasks.
#define NOISE_BENCH(name) BENCHMARK(name)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond)
NOISE_BENCH(simplex_4);
NOISE_BENCH(simplex_4_turned);
NOISE_BENCH(simplex_8);
NOISE_BENCH(perlin_4);
NOISE_BENCH(perlin_4_turned);
NOISE_BENCH(voronoi);
NOISE_BENCH(voronoi_turned);
NOISE_BENCH(spots);
NOISE_BENCH(warp_noise_4);
NOISE_BENCH(static_noise);
NOISE_BENCH(noise_6);
NOISE_BENCH(noise_6_fine);

}  // namespace

BENCHMARK_MAIN();
