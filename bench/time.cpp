// Clips at another time, each against a plain read of the source: a frame fetched from the host and put into planes.
#include "bench/bench_host.h"
#include "engine/evaluate.h"
#include "frame/pixel_formats.h"
#include "operators/time/frame_access.h"
#include "testing/engine_rig.h"

#include <cstring>

using namespace velloran;

namespace {

constexpr int width = 1920, height = 1080, frames = 8;

// What an effect of one function costs beyond the pass into the destination is its image function.
void time_warp_against_a_read(benchmark::State& state, const char* body, int reads) {
    velloran_tests::EngineRig rig(static_cast<int>(state.range(0)), {width, height});
    rig.host.info.TotalFrameNo = frames;
    std::vector<velloran_tests::HostFrame> clip(frames, rig.inputs[0]);
    rig.clips() = {spark_host::generated_clip(frames, [&](int f, const spark_host::FrameFormat& format, void* dest) {
        std::memcpy(dest, clip[static_cast<size_t>(f)].data(), static_cast<size_t>(format.bytes()));
        return true;
    })};
    rig.load_body(body);
    rig.render();
    Node* node = nullptr;
    for (int i = 0; i < rig.record.effect_genotype->node_number; ++i)
        if (rig.record.effect_genotype->nodes[i].image_fun) node = &rig.record.effect_genotype->nodes[i];
    std::vector<velloran_tests::HostVector<FixPixel>> planes(
        3, velloran_tests::HostVector<FixPixel>(size_t{width} * height));
    const fix_plane into[3] = {planes[0].data(), planes[1].data(), planes[2].data()};
    velloran_bench::Times warp, read;
    the_frame->failed = false;
    for (auto _ : state) {
        velloran_bench::time_of(read, [&] {
            FrameBuffer buffer;
            get_frame_buffer(&buffer);
            load_other_frame_into_images(0, 3, buffer, into);
            release_frame_buffer(buffer);
        });
        velloran_bench::time_of(warp, [&] { node->image_fun(node); });
        state.SetIterationTime(warp.wall.back());
    }
    state.counters["reads"] = velloran_bench::median(warp.wall) / velloran_bench::median(read.wall);
    state.counters["cpu_reads"] = velloran_bench::median(warp.cpu) / velloran_bench::median(read.cpu);
    state.counters["goal"] = reads;
    rig.clips().clear();
}

void one_frame(benchmark::State& state) { time_warp_against_a_read(state, "dest = (time_warp Source 3 0)", 1); }
void mixed(benchmark::State& state) { time_warp_against_a_read(state, "dest = (time_warp Source 2.5 1)", 2); }
void per_pixel(benchmark::State& state) {
    time_warp_against_a_read(state, "dest = (time_warp Source (+ 2 (* x 1.5)) 1)", 5);
}

// Arguments: tasks. Counters: reads is the time in plain reads, cpu_reads the same in processor time for busy machines;
// goal is the number of frames that are fetched.
BENCHMARK(one_frame)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(mixed)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(per_pixel)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
