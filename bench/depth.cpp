// Operators that vary with depth over the three planes of a frame, against a copy of the planes. The depth rises from
// the bottom of the frame to its top, as a ground does.
#include "bench/bench_host.h"
#include "engine/images.h"
#include "operators/depth/depth_functions.h"
#include "operators/depth/z_images.h"
#include "testing/filter_node.h"

#include <array>
#include <random>

using namespace velloran;

namespace {

constexpr int width = 3840, height = 2160, planes = 3;
using Numbers = std::array<double, 4>;

// An operator with the numbers of its arguments behind the image and the depth.
void run(benchmark::State& state, PixelFun function, bool adds, const std::vector<Numbers>& numbers) {
    const velloran_tests::FilterFrameRig rig(width, height, static_cast<int>(state.range(0)));
    constexpr size_t plane = size_t{width} * height;
    the_frame->short_image_size = plane * sizeof(FixPixel);
    std::vector<velloran_tests::HostVector<FixPixel>> image(planes),
        work(static_cast<size_t>(z_plane_count(planes, adds)));
    velloran_tests::HostVector<FixPixel> depth(plane);
    std::minstd_rand rng(7);
    for (auto& samples : image) {
        samples.resize(plane);
        for (FixPixel& v : samples) v = static_cast<FixPixel>(rng() & 4095);
    }
    for (size_t i = 0; i < plane; ++i) depth[i] = static_cast<FixPixel>(i / width * 4095 / (height - 1));
    Node node = {}, args[16] = {};
    node.type = node_function;
    node.elnum = planes;
    node.image_index = 50;
    node.pass_arg = -1;
    node.image_count = static_cast<int8_t>(work.size());
    for (size_t i = 0; i < work.size(); ++i) {
        work[i].resize(plane);
        node.images[i] = work[i].data();
    }
    for (int i = 0; i < 2; ++i) {
        args[i].type = node_function;
        args[i].flags = node_images_valid;
        args[i].elnum = args[i].image_count = static_cast<int8_t>(i == 0 ? planes : 1);
        args[i].image_index = 80;
        for (int c = 0; c < args[i].elnum; ++c)
            args[i].images[c] = i == 0 ? image[static_cast<size_t>(c)].data() : depth.data();
    }
    for (size_t i = 0; i < numbers.size() + 2; ++i) {
        Node& arg = args[i];
        arg.pass_arg = -1;
        node.args[i] = &arg;
        node.arg_vals[i] = arg.vals;
        if (i < 2) continue;
        arg.type = node_constant;
        arg.flags = node_constant_p;
        arg.elnum = 4;
        for (size_t e = 0; e < 4; ++e) arg.vals[e] = float_to_fix(static_cast<float>(numbers[i - 2][e]));
    }
    function(&node);  // kernels are kept from then on
    velloran_bench::run_against_limit(state, size_t{2} * planes * plane * sizeof(FixPixel), static_cast<double>(plane),
                                      [&] { function(&node); });
}

constexpr Numbers all(double v) { return {v, v, v, v}; }

// Radii of up to 40 samples.
void z_blur(benchmark::State& state) {
    run(state, image_z_blur, false, {all(12), all(0), all(0.4), all(0.1), all(0.14), all(1), all(1)});
}
void z_glow(benchmark::State& state) {
    run(state, image_z_glow, true, {all(12), all(0), all(0.08), all(0.08), all(1), all(1), all(0.5), all(0.5)});
}
void z_defocus(benchmark::State& state) {
    run(state, image_z_defocus, false,
        {all(12),
         all(0),
         all(0.4),
         all(0.1),
         all(0.14),
         {6, 0, 0, 0},
         all(0),
         all(0),
         all(1),
         all(2.2),
         all(1),
         all(1),
         all(1)});
}

// Arguments: tasks.
BENCHMARK(z_blur)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(z_glow)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(z_defocus)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
