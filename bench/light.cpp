// Flares, glows, glares and lightning over a frame, each against a copy of three planes.
#include "bench/bench_host.h"
#include "operators/flares/flare_functions.h"
#include "operators/glare/glare_functions.h"
#include "operators/glow/glow_functions.h"
#include "operators/lightning/lightning_functions.h"
#include "testing/filter_node.h"
#include "testing/flare_files.h"

#include <random>
#include <string>

using namespace velloran;

namespace {

constexpr int width = 3840, height = 2160;
constexpr size_t plane_samples = size_t{width} * height;

using Numbers = std::vector<std::vector<double>>;

// Runs function with the arguments in numbers; an empty one is three planes of lights. The argument turning, if any,
// grows from run to run.
void run(benchmark::State& state, PixelFun function, int elnum, int extra, const Numbers& numbers, int turning = -1) {
    const velloran_tests::FilterFrameRig rig(width, height, static_cast<int>(state.range(0)));
    the_frame->short_image_size = plane_samples * sizeof(FixPixel);
    std::vector<velloran_tests::HostVector<FixPixel>> image(3), planes(static_cast<size_t>(elnum + extra));
    std::minstd_rand rng(7);
    for (auto& samples : image) {
        samples.resize(plane_samples);
        for (FixPixel& v : samples) v = static_cast<FixPixel>(rng() % 500 ? rng() & 1023 : 4095);
    }
    Node node = {};
    node.type = node_function;
    node.elnum = static_cast<int8_t>(elnum);
    node.image_index = 50;
    node.pass_arg = -1;
    node.image_count = static_cast<int8_t>(planes.size());
    for (size_t i = 0; i < planes.size(); ++i) {
        planes[i].resize(plane_samples);
        node.images[i] = planes[i].data();
    }
    std::vector<Node> args(numbers.size());
    for (size_t i = 0; i < args.size(); ++i) {
        Node& arg = args[i];
        arg.pass_arg = -1;
        node.args[i] = &arg;
        node.arg_vals[i] = arg.vals;
        if (numbers[i].empty()) {
            arg.type = node_function;
            arg.flags = node_images_valid;
            arg.elnum = arg.image_count = 3;
            arg.image_index = 60;
            for (size_t c = 0; c < 3; ++c) arg.images[c] = image[c].data();
            continue;
        }
        arg.type = node_constant;
        arg.flags = node_constant_p;
        arg.elnum = static_cast<int8_t>(numbers[i].size());
        for (size_t e = 0; e < 4; ++e)
            arg.vals[e] = float_to_fix(static_cast<float>(numbers[i][std::min(e, numbers[i].size() - 1)]));
    }
    function(&node);  // what is kept from frame to frame is there
    velloran_bench::run_against_limit(state, 6 * plane_samples * sizeof(FixPixel), static_cast<double>(plane_samples),
                                      [&] {
                                          if (turning >= 0) ++args[static_cast<size_t>(turning)].vals[0];
                                          function(&node);
                                      });
}

// Twelve elements of all kinds; at a size of 1 they cover the frame.
const std::string mixed =
    "begin F ring center 1 radii 0 0.5 1.2 colors 0.3 0.2 0.1 0.2 0.1 0.1 0 0 0 ring center 0.5 radii 0.6 0.8 1 colors "
    "0 0 0 "
    "0.2 0.3 0.1 0 0 0 ring center -0.5 radii 0 0.3 0.9 colors 0.1 0.1 0.3 0.1 0 0.1 0 0 0 hexagon center 0.3 radii "
    "0.2 0.8 "
    "colors 0.1 0.1 0.1 0.1 0.2 0.1 hexagon center -0.8 radii 0 1 colors 0.1 0 0.1 0 0.1 0.1 blob center 1 radii 1 "
    "colors "
    "0.4 0.3 0.2 blob center 0 radii 0.8 colors 0.1 0.1 0.2 rays center 1 color 0.5 0.4 0.3 ray_number 60 "
    "jitter_angles 1 "
    "start_angle 0 radius_range 0.3 1 ray_width 0.01 rand_seed 1 rays center 1 color 0.5 0.4 0.3 ray_number 12 "
    "jitter_angles "
    "0 start_angle 0 radius_range 1 1 ray_width 0.02 rand_seed 1 polar_flare center 1 noise_brightness 0.5 noise_freq "
    "60 "
    "radii 0 0.3 1 colors 0.5 0.4 0.3 0.2 0.1 0.1 0 0 0 polar_flare center 1 wave_brightness 0.5 wave_freq 6 "
    "wave_softness "
    "0.1 radii 0 0.3 1 colors 0.5 0.4 0.3 0.2 0.1 0.1 0 0 0 polar_flare center 0.4 start_angle 20 angle_width 100 "
    "rotate_to_pivot 1 radii 0.5 0.6 0.7 colors 0 0 0 0.3 0.2 0.1 0 0 0 end";

// Puts a definition into a table while it lives.
struct InTable {
    InTable(FlareTable& flare_table, LensFlare* flare) : table(flare_table) {
        table.flares[0] = flare;
        table.count = 1;
    }
    ~InTable() {
        table.flares[0] = nullptr;
        table.count = 0;
    }
    FlareTable& table;
};

void flare(benchmark::State& state, double size) {
    const velloran_tests::Flares flares(mixed);
    const InTable in_table(lens_flare_table(), flares.flares[0]);
    run(state, image_lens_flare, 3, 0,
        {{0}, {1700, 1200}, {0, 0}, {1}, {1}, {size, size}, {0}, {1, 1, 1}, {1, 1, 1}, {1, 1, 1}, {1}, {1}, {1}, {1}});
}
void flare_over_the_frame(benchmark::State& state) { flare(state, 1); }
void flare_over_a_tenth(benchmark::State& state) { flare(state, 0.2); }

void glow_of_50_pixels(benchmark::State& state) {
    run(state, image_glow, 3, 3, {{}, {0.5, 0.5, 0.5}, {1, 1}, {50.0 / 480}, {1}, {1}, {0}});
}

void glare(benchmark::State& state, int turning) {
    const velloran_tests::Flares flares(
        "begin G blob radii 0.05 colors 1 1 1 rays color 1 1 1 ray_number 8 jitter_angles 0 "
        "start_angle 0 radius_range 0.2 0.2 ray_width 0.01 rand_seed 1 end",
        false);
    const InTable in_table(glare_table(), flares.flares[0]);
    run(state, image_glare, 3, 3, {{}, {0.5, 0.5, 0.5}, {0}, {1, 1}, {1, 1, 1}, {1}, {0}, {1}, {0}, {1}, {1}, {1}, {1}},
        turning);
}
void glare_with_kept_kernel(benchmark::State& state) { glare(state, -1); }
void glare_that_turns(benchmark::State& state) { glare(state, 8); }

void glint(benchmark::State& state) {
    run(state, image_glint, 3, 4, {{}, {0.5, 0.5, 0.5}, {0}, {1}, {1, 1, 1}, {1, 1, 1, 1}, {1, 1, 1, 1}, {1}});
}

void lightning_of_40_bolts(benchmark::State& state) {
    run(state, image_zap, 1, 0,
        {{300, 1800}, {3500, 300}, {0.3}, {40}, {0.7, 0.5}, {0.7}, {0, 1}, {0.7, 0.3}, {0.8}, {0.09, 0.6}, {1, 0}});
}

// Loading 200 definitions, in milliseconds of its own.
void load_200_definitions(benchmark::State& state) {
    std::string text;
    for (int i = 0; i < 200; ++i) text += mixed + "\n";
    for (auto _ : state) {
        const velloran_tests::Flares flares(text);
        benchmark::DoNotOptimize(flares.count);
    }
}

// Arguments: tasks.
BENCHMARK(flare_over_the_frame)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(flare_over_a_tenth)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(glow_of_50_pixels)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(glare_with_kept_kernel)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(glare_that_turns)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(glint)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(lightning_of_40_bolts)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(load_200_definitions)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
