// Dirt over a frame: the image functions with their picture read from the host's frame, the shipped stamps, and as many
// of them as film usually has.
#include "bench/bench_host.h"
#include "operators/stamps/stamp_collections.h"
#include "support/files.h"
#include "testing/engine_rig.h"

using namespace velloran;
using namespace velloran_tests;

namespace {

constexpr int width = 3840, height = 2160, channels = 3;

void render(benchmark::State& state, const char* function, const char* text, const char* collection = nullptr) {
    EngineRig rig(static_cast<int>(state.range(0)), {.width = width, .height = height});
    spark_set_config_dir(SHIPPED_EFFECTS);
    const Genotype* const genotype = rig.load_body(std::string("dest = ") + text);
    Node* found = nullptr;
    for (int i = 0; genotype && i < genotype->node_number; ++i) {
        Node& node = genotype->nodes[i];
        if (node.type == node_function && std::strcmp(node.fun_info->name, function) == 0) found = &node;
    }
    if (!found || rig.render() || (collection && !load_stamp_collection(collection)->count)) {
        state.SkipWithError("not rendered");
        return;
    }
    // Every time another frame.
    int frame = 0;
    constexpr size_t samples = size_t{width} * height;
    velloran_bench::run_against_limit(state, 2 * channels * samples * sizeof(FixPixel), samples, [&] {
        rig.set_frame(frame++ % 24);
        found->image_fun(found);
    });
}

void nothing(benchmark::State& state) {
    render(state, "dust", "(dust Source 1 [1 1 1] [1 1 1] 0 0 1 0 0.0003 0 1 0)", "dust");
}
void dust(benchmark::State& state) {
    render(state, "dust", "(dust Source 1 [1 1 1] [0.8 0.8 0.8] 0.1 0.2 0.9 0.3 12 10 1 1.2)", "dust");
}
void heavy_dust(benchmark::State& state) {
    render(state, "dust", "(dust Source 1 [1 1 1] [0.8 0.8 0.8] 0.1 0.2 0.9 0.3 120 10 1 1.2)", "dust");
}
void hairs(benchmark::State& state) {
    render(state, "hairs", "(hairs Source 1 [0 0 0] 0.9 4 0.05 0.25 1 0.6 0.015 0.4)", "hairs");
}
void stains(benchmark::State& state) {
    render(state, "stains", "(stains Source 1 [0.1 0 0] [0.3 0.2 0.1] 0.05 0.4 0.6 0.5 1 1 1.2 1)", "film-stains");
}
void scratches(benchmark::State& state) {
    render(state, "scratches",
           "(scratches Source 1 [2 1] [5 5] [1.5 1.2 1.5 1.2] [0.9 0.9 0.9] [0.5 0.4 0.5 0.4] [0.3 0.3] "
           "[0.015 0.25 0.015 0.25] 0.5)");
}

// Arguments: tasks.
BENCHMARK(nothing)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(dust)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(heavy_dust)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(hairs)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(stains)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(scratches)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
