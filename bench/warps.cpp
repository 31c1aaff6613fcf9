// Warps of a frame: the image function of one node, with the source read from the host's frame and the coordinates
// computed, against a copy of the planes that it reads and writes.
#include "bench/bench_host.h"
#include "operators/mipmap/mipmap.h"
#include "testing/engine_rig.h"

using namespace velloran;
using namespace velloran_tests;

namespace {

constexpr int width = 3840, height = 2160, channels = 3;

const Node* find_node(const Genotype& genotype, const char* function) {
    for (int i = 0; i < genotype.node_number; ++i) {
        const Node& node = genotype.nodes[i];
        if (node.type == node_function && std::strcmp(node.fun_info->name, function) == 0) return &node;
    }
    return nullptr;
}

// body(node) for the node of that function in an effect that was rendered once.
template <class Body>
void run(benchmark::State& state, const char* function, const char* text, const Body& body) {
    EngineRig rig(static_cast<int>(state.range(0)), {.width = width, .height = height});
    const Genotype* const genotype = rig.load_body(std::string("dest = ") + text);
    const Node* const found = genotype ? find_node(*genotype, function) : nullptr;
    if (!found || rig.render()) {
        state.SkipWithError("not rendered");
        return;
    }
    Node node = *found;
    constexpr size_t samples = size_t{width} * height;
    velloran_bench::run_against_limit(state, 2 * channels * samples * sizeof(FixPixel), samples, [&] { body(node); });
}

void render(benchmark::State& state, const char* function, const char* text) {
    run(state, function, text, [](Node& node) {
        the_frame->mipmap_holds = false;
        node.image_fun(&node);
    });
}

// 40 pixels are 0.0208 of half the width.
const char* const sine = "(warp_rel Source (* (v2 (nsin (* y 3)) (nsin (* x 3))) 0.0208) [2 2] 0)";
const char* const floor_plane = "(warp Source (perspective xy 2 0.2 0.1) [1 1] 1)";
const char* const floor_bilinear = "(warp Source (perspective xy 2 0.2 0.1) [1 1] 0)";
const char* const zoom_blur = "(repeat_warp Source xy (* xy 0.9) [1 1] [2 2] 32)";
const char* const turn = "(repeat_warp Source xy (rotate xy 0.01 [0 0]) [1 1] [2 2] 32)";
const char* const smear = "(blur_warp Source xy (+ xy [0.0208 0.01]) [1 1] 1 [0 0] 0 0)";
const char* const fine_smear = "(blur_warp Source xy (+ xy [0.0208 0.01]) [1 1] 1 [0 0] 1 0)";
// Every pixel's line has a course of its own, up to 40 pixels long.
const char* const zoom_smear = "(blur_warp Source xy (* xy 0.9792) [1 1] 1 [0 0] 0 0)";
const char* const zoom_fine_smear = "(blur_warp Source xy (* xy 0.9792) [1 0] 1 [0 0] 1 0)";
const char* const fringe = "(chroma_warp Source (* xy 0.99) (* xy 1.01) [2 2] 8 [1 0 0] [0 1 0] [0 0 1] 1 1)";

void bilinear(benchmark::State& state) { render(state, "warp_rel", sine); }
void perspective(benchmark::State& state) { render(state, "warp", floor_bilinear); }
void perspective_filtered(benchmark::State& state) { render(state, "warp", floor_plane); }
void repeat_32(benchmark::State& state) { render(state, "repeat_warp", zoom_blur); }
void turn_32(benchmark::State& state) { render(state, "repeat_warp", turn); }
void blur_40(benchmark::State& state) { render(state, "blur_warp", smear); }
void blur_40_subpixel(benchmark::State& state) { render(state, "blur_warp", fine_smear); }
void blur_zoom(benchmark::State& state) { render(state, "blur_warp", zoom_smear); }
void blur_zoom_subpixel(benchmark::State& state) { render(state, "blur_warp", zoom_fine_smear); }
void chroma_8(benchmark::State& state) { render(state, "chroma_warp", fringe); }
void levels(benchmark::State& state) {
    run(state, "warp", floor_plane, [](Node& node) {
        the_frame->mipmap_holds = false;
        mipmap_setup(node.args[0], {.multi_level = true});
    });
}

// Arguments: tasks.
BENCHMARK(bilinear)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(perspective)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(perspective_filtered)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(levels)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(repeat_32)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(turn_32)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(blur_40)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(blur_40_subpixel)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(blur_zoom)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(blur_zoom_subpixel)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(chroma_8)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
