// The film look over a frame, each part against a copy of three planes.
#include "bench/bench_host.h"
#include "operators/film/film_functions.h"
#include "operators/film/grain_planes.h"
#include "testing/film_texts.h"
#include "testing/filter_node.h"

#include <fstream>
#include <random>
#include <sstream>
#include <string>

using namespace velloran;

namespace {

constexpr int width = 3840, height = 2160;
constexpr size_t plane_samples = size_t{width} * height;

// A soft picture with a little noise: samples that lie side by side look up entries that lie close.
std::vector<velloran_tests::HostVector<FixPixel>> picture() {
    std::vector<velloran_tests::HostVector<FixPixel>> planes(3);
    std::minstd_rand rng(7);
    for (auto& samples : planes) {
        samples.resize(plane_samples);
        for (size_t i = 0; i < plane_samples; ++i)
            samples[i] = static_cast<FixPixel>((i % width + i / width * 2) % 3900 + rng() % 128);
    }
    return planes;
}

const std::string stocks = [] {
    std::ifstream file(FILM_TYPES);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}();

using Numbers = std::vector<std::vector<double>>;

// Runs function with the picture and the arguments in numbers.
void run(benchmark::State& state, PixelFun function, const Numbers& numbers) {
    const velloran_tests::FilterFrameRig rig(width, height, static_cast<int>(state.range(0)));
    const velloran_tests::FilmTextsInUse films(stocks);
    the_frame->short_image_size = plane_samples * sizeof(FixPixel);
    auto image = picture();
    std::vector<velloran_tests::HostVector<FixPixel>> planes(4);
    Node node = {}, source = {};
    node.type = node_function;
    node.elnum = 3;
    node.image_index = 50;
    node.pass_arg = source.pass_arg = -1;
    node.image_count = 4;
    for (size_t i = 0; i < planes.size(); ++i) {
        planes[i].resize(plane_samples);
        node.images[i] = planes[i].data();
    }
    source.type = node_function;
    source.flags = node_images_valid;
    source.elnum = source.image_count = 3;
    source.image_index = 60;
    for (size_t c = 0; c < 3; ++c) source.images[c] = image[c].data();
    node.args[0] = &source;
    node.arg_vals[0] = source.vals;
    std::vector<Node> args(numbers.size());
    for (size_t i = 0; i < args.size(); ++i) {
        Node& arg = args[i];
        arg.pass_arg = -1;
        node.args[i + 1] = &arg;
        node.arg_vals[i + 1] = arg.vals;
        arg.type = node_constant;
        arg.flags = node_constant_p;
        arg.elnum = static_cast<int8_t>(numbers[i].size());
        for (size_t e = 0; e < 4; ++e)
            arg.vals[e] = float_to_fix(static_cast<float>(numbers[i][std::min(e, numbers[i].size() - 1)]));
    }
    velloran_bench::run_against_limit(state, 6 * plane_samples * sizeof(FixPixel), static_cast<double>(plane_samples),
                                      [&] { function(&node); });
}

void grain(benchmark::State& state, double radius) {
    const double blur = radius * 8 / width;
    run(state, image_grain, {{0.1, 0.1, 0.1}, {0.4, 0.4, 0.4}, {0.4, 0.3}, {0}, {blur, blur, blur}, {1}, {0}});
}
void grain_of_a_pixel(benchmark::State& state) { grain(state, 0); }
void grain_of_two_pixels(benchmark::State& state) { grain(state, 1); }

void look(benchmark::State& state, double glow, double amp, double radius) {
    const double blur = radius * 8 / width;
    run(state, image_film_effect,
        {{2, 1, 0, 0},
         {2.2, 2.2, 2.2, 2.2},
         {0},
         {1, 1, 1},
         {0, 1},
         {glow, glow, glow},
         {0.5},
         {0.1, 0.1, 0.1},
         {amp, amp, amp},
         {0.4, 0.4, 0.4, 0},
         {blur, blur, blur},
         {1, 0, 0.4, 0.3}});
}
void tones_alone(benchmark::State& state) { look(state, 0, 0, 0); }
void look_with_glow_and_grain(benchmark::State& state) { look(state, 0.1, 1, 0); }
void look_with_glow_and_blurred_grain(benchmark::State& state) { look(state, 0.1, 1, 1); }

// The tables of three colours anew, in time of its own.
void tables(benchmark::State& state) {
    const velloran_tests::HostOfTasks host(static_cast<int>(state.range(0)));
    const velloran_tests::FilmTextsInUse films(stocks);
    FilmSettings settings;
    settings.negative = settings.print = 1;
    for (auto _ : state) {
        forget_film_tables();
        set_film_tables(settings);
        benchmark::DoNotOptimize(film_table(0));
    }
}

// A plane's samples through a table, in place.
void table_look_up(benchmark::State& state) {
    const velloran_tests::FilterFrameRig rig(width, height, static_cast<int>(state.range(0)));
    const velloran_tests::FilmTextsInUse films(stocks);
    FilmSettings settings;
    settings.negative = settings.print = 1;
    set_film_tables(settings);
    auto image = picture();
    velloran_bench::run_against_limit(state, 6 * plane_samples * sizeof(FixPixel), static_cast<double>(plane_samples),
                                      [&] {
                                          for (int c = 0; c < 3; ++c)
                                              work_film_plane(image[static_cast<size_t>(c)].data(), nullptr, c,
                                                              {.table = film_table(c)}, filter_frame());
                                      });
}

// Arguments: tasks.
BENCHMARK(table_look_up)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(tones_alone)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(grain_of_a_pixel)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(grain_of_two_pixels)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(look_with_glow_and_grain)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(look_with_glow_and_blurred_grain)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(tables)->Arg(1)->Arg(2)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
