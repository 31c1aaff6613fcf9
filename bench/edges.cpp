// Sharpening, slopes and embossing of a frame, each against a copy of the planes that it reads and writes.
#include "bench/bench_host.h"
#include "engine/images.h"
#include "operators/edges/edge_functions.h"
#include "testing/filter_node.h"

#include <array>
#include <random>

using namespace velloran;

namespace {

constexpr int width = 3840, height = 2160, most_planes = 8;

// An operator with the numbers of its arguments behind the image, which is argument 0.
struct Operator {
    PixelFun function;
    int elnum, extra, channels;  // planes of the result, work planes, planes of the image
    std::array<std::array<double, 3>, 8> numbers;
    int n_numbers;
};

void run(benchmark::State& state, const Operator& op) {
    const velloran_tests::FilterFrameRig rig(width, height, static_cast<int>(state.range(0)));
    constexpr size_t plane = size_t{width} * height;
    the_frame->short_image_size = plane * sizeof(FixPixel);
    std::vector<velloran_tests::HostVector<FixPixel>> image(static_cast<size_t>(op.channels)), result(most_planes);
    std::minstd_rand rng(7);
    for (auto& samples : image) {
        samples.resize(plane);
        for (FixPixel& v : samples) v = static_cast<FixPixel>(rng() & 4095);
    }
    Node node = {}, args[9] = {};
    node.type = node_function;
    node.elnum = static_cast<int8_t>(op.elnum);
    node.image_index = 50;
    node.pass_arg = -1;
    node.image_count = static_cast<int8_t>(op.elnum + op.extra);
    for (int i = 0; i < node.image_count; ++i) {
        result[static_cast<size_t>(i)].resize(plane);
        node.images[i] = result[static_cast<size_t>(i)].data();
    }
    args[0].type = node_function;
    args[0].flags = node_images_valid;
    args[0].elnum = args[0].image_count = static_cast<int8_t>(op.channels);
    args[0].image_index = 60;
    for (int c = 0; c < op.channels; ++c) args[0].images[c] = image[static_cast<size_t>(c)].data();
    for (int i = 0; i <= op.n_numbers; ++i) {
        Node& arg = args[i];
        arg.pass_arg = -1;
        node.args[i] = &arg;
        node.arg_vals[i] = arg.vals;
        if (i == 0) continue;
        arg.type = node_constant;
        arg.flags = node_constant_p;
        arg.elnum = 3;
        for (size_t e = 0; e < 4; ++e)
            arg.vals[e] =
                float_to_fix(static_cast<float>(op.numbers[static_cast<size_t>(i - 1)][std::min<size_t>(e, 2)]));
    }
    const size_t planes = static_cast<size_t>(op.channels + op.elnum);
    velloran_bench::run_against_limit(state, planes * plane * sizeof(FixPixel), static_cast<double>(plane),
                                      [&] { op.function(&node); });
}

constexpr std::array<double, 3> all(double v) { return {v, v, v}; }

void sharpen(benchmark::State& state) { run(state, {image_sharpen, 3, 1, 3, {all(1), all(0.02)}, 2}); }
void band_pass(benchmark::State& state) { run(state, {image_band_pass, 3, 1, 3, {all(0.01), all(0.04), all(1)}, 3}); }
void grad(benchmark::State& state) { run(state, {image_grad, 2, 0, 1, {all(0.02), all(1), all(0)}, 3}); }
void edge_detect(benchmark::State& state) { run(state, {image_edge_detect, 3, 0, 3, {all(0.02), all(1), all(0)}, 3}); }
void grad_direction(benchmark::State& state) {
    run(state, {image_grad_direction, 1, 0, 1, {all(0.02), all(0), all(0)}, 3});
}

// Arguments: tasks.
BENCHMARK(sharpen)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(band_pass)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(grad)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(edge_detect)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(grad_direction)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
