// The search for a cadence: comparing the fields of two frames, against reading them into planes.
#include "bench/bench_host.h"
#include "operators/fields/field_compare.h"
#include "operators/time/frame_access.h"
#include "records/frame.h"
#include "testing/engine_rig.h"

#include <cstring>

using namespace velloran;

namespace {

constexpr int width = 720, height = 486, frames = 4;

void compare_two_frames(benchmark::State& state) {
    velloran_tests::EngineRig rig(static_cast<int>(state.range(0)), {width, height});
    rig.host.info.TotalFrameNo = frames;
    rig.clips() = {spark_host::generated_clip(frames, [&](int f, const spark_host::FrameFormat& format, void* dest) {
        std::memcpy(dest, rig.inputs[f].data(), static_cast<size_t>(format.bytes()));
        return true;
    })};
    std::vector<velloran_tests::HostVector<FixPixel>> storage(
        6, velloran_tests::HostVector<FixPixel>(size_t{width} * height));
    fix_plane planes[6];
    for (size_t i = 0; i < 6; ++i) planes[i] = storage[i].data();
    the_frame->failed = false;
    const auto read = [&](int frame, const fix_plane* into) {
        FrameBuffer buffer;
        get_frame_buffer(&buffer);
        load_other_frame_into_images(0, frame, buffer, into);
        release_frame_buffer(buffer);
    };
    velloran_bench::Times compare, reads;
    for (auto _ : state) {
        velloran_bench::time_of(reads, [&] {
            read(1, planes);
            read(2, planes + 3);
        });
        velloran_bench::time_of(compare, [&] {
            FieldCompare fields(planes, planes + 3, 3, 1, 2, frames, 0);
            benchmark::DoNotOptimize(fields.compare_fields(1, field_second_in_time, 2, field_first_in_time));
        });
        state.SetIterationTime(compare.wall.back());
    }
    state.counters["reads"] = velloran_bench::median(compare.wall) / velloran_bench::median(reads.wall);
    state.counters["cpu_reads"] = velloran_bench::median(compare.cpu) / velloran_bench::median(reads.cpu);
    rig.clips().clear();
}

// Arguments: tasks. The counter reads is the time, reading and all, in reads of the two frames.
BENCHMARK(compare_two_frames)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
