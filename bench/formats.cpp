// Whole frames of 3840 x 2160 between the host's forms and planes. Goals on two tasks: 1.3 times the limit without a
// LUT, 4 times with one.
#include "bench_host.h"
#include "frame/lut_files.h"
#include "frame/pixel_formats.h"
#include "frame/rasters.h"
#include "rows/row_target.h"

#include <hwy/targets.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <string>

using namespace velloran;
using namespace velloran_bench;

namespace {

constexpr int width = 3840, height = 2160;
constexpr size_t samples = size_t{width} * height;

struct Form {
    const char* name;
    int depth;
    size_t element_bytes;
};
constexpr Form forms[] = {{"rgb8", SPARK_DEPTH_8, 1}, {"rgb10", SPARK_DEPTH_10, 2}, {"rgb16", SPARK_DEPTH_12, 2}};

// A soft picture with grain, as film has: neighbouring samples differ, but look up entries that lie close.
double picture(size_t x, size_t y, size_t c) {
    const double fx = static_cast<double>(x), fy = static_cast<double>(y);
    const uint32_t grain = static_cast<uint32_t>(x * 2654435761u + y * 40503u + c * 97u) * 2246822519u;
    return 0.5 + 0.4 * std::sin(fx * 0.003 + static_cast<double>(c)) * std::cos(fy * 0.004) + (grain >> 8) * 3e-9;
}

struct Material {
    std::vector<uint8_t> frame = std::vector<uint8_t>(samples * 6);
    std::unique_ptr<FixPixel, void (*)(void*)> planes{
        static_cast<FixPixel*>(std::aligned_alloc(64, samples * 3 * sizeof(FixPixel))), std::free};
    std::vector<int32_t> in8, in12, out16;
    std::vector<uint8_t> out8;

    explicit Material(const Form& form) {
        for (size_t y = 0; y < height; ++y)
            for (size_t x = 0; x < width; ++x)
                for (size_t c = 0; c < 3; ++c) {
                    const double v = picture(x, y, c);
                    const size_t i = y * width + x;
                    planes.get()[c * samples + i] = static_cast<FixPixel>(v * 4096);
                    if (form.element_bytes == 1) {
                        frame[i * 3 + c] = static_cast<uint8_t>(v * 255);
                    } else {
                        const auto element = static_cast<uint16_t>(v * 65535);
                        std::memcpy(&frame[(i * 3 + c) * 2], &element, 2);
                    }
                }
        for (int i = 0; i < 256; ++i) in8.push_back(4095 - 16 * i);
        for (int i = 0; i < 4096; ++i) {
            in12.push_back(4095 - i);
            out16.push_back(4095 - i);
            out8.push_back(static_cast<uint8_t>(255 - i / 16));
        }
        input_lut_8 = in8.data();
        input_lut_12 = in12.data();
        output_lut_8 = out8.data();
        output_lut_16 = out16.data();
    }
};

void convert(benchmark::State& state, const Form& form, bool out, bool lut, int tasks, int64_t target) {
    force_row_target(target);
    const HostOfTasks host(tasks, width, height, form.depth);
    Material m(form);
    rinfo raster, working;
    RenderInfo area;
    fill_host_raster(&raster, host.info, 1, 0);
    fill_temp_raster(&working, host.info, 1, 0, nullptr);
    fill_render_info(&area, host.info, 1, 0, nullptr);
    const fix_plane planes[3] = {m.planes.get(), m.planes.get() + samples, m.planes.get() + 2 * samples};
    // A destination of 16-bit elements is read as well: it keeps its low bits.
    const size_t frame_bytes = samples * 3 * form.element_bytes;
    const size_t moved = samples * 3 * sizeof(FixPixel) + frame_bytes * (out && form.element_bytes == 2 ? 2 : 1);
    run_against_limit(state, moved, samples, [&] {
        if (out)
            dest_img_converter(planes, 3, working, area, raster, m.frame.data(), 0, 1, lut);
        else
            source_converter(raster, m.frame.data(), working, planes, 3, lut);
    });
    force_row_target(0);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const std::vector<int64_t> targets = hwy::SupportedAndGeneratedTargets();
    for (const int64_t target : targets)
        for (const Form& form : forms)
            for (const bool out : {false, true})
                for (const bool lut : {false, true})
                    for (const int tasks : {1, 2}) {
                        const std::string name = std::string("formats/") + form.name + (out ? "/out" : "/in") +
                                                 (lut ? "/lut" : "") + "/tasks:" + std::to_string(tasks) + "/" +
                                                 hwy::TargetName(target);
                        benchmark::RegisterBenchmark(
                            name.c_str(),
                            [=, &form](benchmark::State& state) { convert(state, form, out, lut, tasks, target); })
                            ->UseManualTime()
                            ->Unit(benchmark::kMillisecond);
                    }
    benchmark::RunSpecifiedBenchmarks();
}
