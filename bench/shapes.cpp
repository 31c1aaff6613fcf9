// Drawn shapes, distances, damage and debanding of a frame, each against a copy of the planes that it reads and writes.
#include "bench/bench_host.h"
#include "operators/edges/edge_functions.h"
#include "operators/looks/looks_functions.h"
#include "operators/polygons/polygon_buffer.h"
#include "operators/polygons/polygon_functions.h"
#include "testing/filter_node.h"

#include <array>
#include <cmath>
#include <random>

using namespace velloran;

namespace {

constexpr int width = 3840, height = 2160;
constexpr size_t plane = size_t{width} * height;
using Numbers = std::vector<double>;

// Soft forms with a little grain, as skies have.
velloran_tests::HostVector<FixPixel> photograph(double phase) {
    velloran_tests::HostVector<FixPixel> samples(plane);
    std::minstd_rand rng(7);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            samples[static_cast<size_t>(y) * width + static_cast<size_t>(x)] = static_cast<FixPixel>(
                2000 + 1500 * std::sin(x * 0.002 + phase) * std::cos(y * 0.003) + static_cast<int>(rng() & 31));
    return samples;
}

// An operator: images of so many channels as its first arguments, then numbers.
struct Operator {
    PixelFun function;
    int elnum, extra;
    std::vector<int> images;
    std::vector<Numbers> numbers;
    int moved_planes;  // that are read or written
};

void run(benchmark::State& state, const Operator& op) {
    const velloran_tests::FilterFrameRig rig(width, height, static_cast<int>(state.range(0)));
    the_frame->short_image_size = plane * sizeof(FixPixel);
    std::vector<velloran_tests::HostVector<FixPixel>> images, result(static_cast<size_t>(op.elnum + op.extra));
    std::array<Node, MAX_ARG_NUMBER> args = {};
    Node node = {};
    node.type = node_function;
    node.elnum = static_cast<int8_t>(op.elnum);
    node.image_index = 50;
    node.pass_arg = -1;
    node.image_count = static_cast<int8_t>(result.size());
    for (size_t i = 0; i < result.size(); ++i) {
        result[i].resize(plane);
        node.images[i] = result[i].data();
    }
    const size_t n_args = op.images.size() + op.numbers.size();
    for (const int channels : op.images)
        for (int c = 0; c < channels; ++c) images.push_back(photograph(c));
    size_t next = 0;
    for (size_t a = 0; a < n_args; ++a) {
        Node& arg = args[a];
        arg.pass_arg = -1;
        node.args[a] = &arg;
        node.arg_vals[a] = arg.vals;
        if (a < op.images.size()) {
            arg.type = node_function;
            arg.flags = node_images_valid;
            arg.elnum = arg.image_count = static_cast<int8_t>(op.images[a]);
            arg.image_index = 60;
            for (int c = 0; c < op.images[a]; ++c) arg.images[c] = images[next++].data();
        } else {
            const Numbers& numbers = op.numbers[a - op.images.size()];
            arg.type = node_constant;
            arg.flags = node_constant_p;
            arg.elnum = static_cast<int8_t>(numbers.size());
            for (size_t e = 0; e < 4; ++e)
                arg.vals[e] = float_to_fix(static_cast<float>(numbers[std::min(e, numbers.size() - 1)]));
        }
    }
    velloran_bench::run_against_limit(state, static_cast<size_t>(op.moved_planes) * plane * sizeof(FixPixel),
                                      static_cast<double>(plane), [&] { op.function(&node); });
}

// type, center, size, points, pointiness, roundness, swirl, rotate, color
void star_of_2000_points(benchmark::State& state) {
    run(state, {image_draw_shape, 1, 0, {}, {{1}, {0, 0}, {0.5, 0.5}, {1000}, {1}, {0}, {0}, {0, 0}, {1}}, 1});
}
void shape_of_64_points(benchmark::State& state) {
    run(state, {image_draw_shape, 1, 0, {}, {{1}, {0.1, 0}, {0.6, 0.4}, {32}, {0.2}, {0}, {0}, {0.1, 0}, {1}}, 1});
}
// boxes, line_width, center, size, z_dist, latitude, swing, roll, tele_lens_width, major_line_spacing, _width
void grid(benchmark::State& state) {
    run(state, {image_draw_grid,
                1,
                0,
                {},
                {{0, 0}, {0.01, 0.01}, {0, 0}, {0.1, 0.1}, {1}, {0.05}, {0.1}, {0}, {0.15}, {4}, {0.03}},
                1});
}
void gradient_of_6_points(benchmark::State& state) {
    run(state, {image_gradient_n,
                3,
                0,
                {},
                {{6},
                 {-0.5, 0, 0.5, 0},
                 {0, 0.5, 0, -0.5},
                 {0.7, 0.4, -0.7, 0.4},
                 {1, 0, 0},
                 {0, 1, 0},
                 {0, 0, 1},
                 {1, 1, 0},
                 {0, 1, 1},
                 {1, 0, 1},
                 {1},
                 {0.2, 0.1, 0.3},
                 {0, 0.1, 0.2},
                 {0, 0.1, 0},
                 {0, 0, 0.1}},
                3});
}
void distance(benchmark::State& state) { run(state, {image_edge_dist, 1, 1, {1}, {{1}}, 2}); }
void simple_edges(benchmark::State& state) { run(state, {image_edgedetect_simple, 1, 3, {3}, {{0.02}}, 4}); }
// quality, scale_freqs, scale_xy_freqs, chroma_luma, error_rate, _density, _amp, _coherence, seed, res_factor
void jpeg(benchmark::State& state) {
    run(state,
        {image_jpeg_damage, 3, 0, {3}, {{0.5}, {1, 1, 1}, {1, 1}, {1, 1}, {1}, {0.1}, {1}, {0.1}, {1}, {1, 1}}, 6});
}
void deband(benchmark::State& state) { run(state, {image_deband, 3, 4, {3, 1}, {{0.03}, {0.1}, {0.85}}, 7}); }
void paint(benchmark::State& state) { run(state, {image_paint, 3, 2, {3}, {{50}, {0}, {1}, {0.06}, {1}}, 6}); }

// Arguments: tasks.
#define SHAPES_BENCH(name) BENCHMARK(name)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond)
SHAPES_BENCH(star_of_2000_points);
SHAPES_BENCH(shape_of_64_points);
SHAPES_BENCH(grid);
SHAPES_BENCH(gradient_of_6_points);
SHAPES_BENCH(distance);
SHAPES_BENCH(simple_edges);
SHAPES_BENCH(jpeg);
SHAPES_BENCH(deband);
SHAPES_BENCH(paint);

}  // namespace

BENCHMARK_MAIN();
