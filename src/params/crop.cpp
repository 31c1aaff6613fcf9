// What the crop does to a frame: the area worked on, the area painted, and what is shown outside it.
#include "compile/need_walk.h"
#include "frame/host_buffers.h"
#include "frame/pixel_formats.h"
#include "frame/rasters.h"
#include "params/param_values.h"
#include "params/standard_controls.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cstring>

namespace velloran {

namespace {

constexpr long small_band = 500;  // pixels below which a fork costs more than the band

// What is painted outside the crop.
struct Surround {
    unsigned char* dest;
    const unsigned char* source;  // null: the colour, or black
    bool black;
    const int32_t* rgb;
};

void fill_band_row(const Surround& f, int row, int first, int count) {
    if (count <= 0) return;
    const rinfo& dest = the_frame->dest_raster_info;
    const auto bytes = static_cast<size_t>(dest.bytes_per_pixel);
    const size_t offset = static_cast<size_t>(row) * host_row_pitch(dest) + static_cast<size_t>(first) * bytes;
    if (f.source)
        std::memcpy(f.dest + offset, f.source + offset, static_cast<size_t>(count) * bytes);
    else if (f.black)
        std::memset(f.dest + offset, 0, static_cast<size_t>(count) * bytes);
    else
        fill_dest_row(dest, f.dest, row, first, count, f.rgb, false);
}

// Bands of the same rows.
void fill_bands(const Surround& f, const RasterRect* bands, int n_bands) {
    const int rows = bands[0].h;
    const auto fill = [&](int first, int n) {
        for (int row = first; row < first + n; ++row)
            for (int b = 0; b < n_bands; ++b) fill_band_row(f, bands[b].y + row, bands[b].x, bands[b].w);
    };
    long pixels = 0;
    for (int b = 0; b < n_bands; ++b) pixels += static_cast<long>(bands[b].w) * rows;
    if (pixels < small_band)
        fill(0, rows);
    else
        fork_rows(rows, fill);
}

}  // namespace

bool crop_enabled_p() { return global_param_get_value(global_crop_enable) != 0; }

bool crop_input_p() {
    const Genotype* const genotype = Globals_V4->effect_genotype;
    return genotype && genotype->warp_crop && crop_enabled_p() && global_param_get_value(global_crop_input) != 0;
}

RasterRect get_crop_rect(int frame_width, int frame_height) {
    if (!crop_enabled_p() || frame_width < 1 || frame_height < 1) return {0, 0, frame_width, frame_height};
    const auto edge = [](int index, int low, int high) {
        return std::clamp(static_cast<int>(global_param_get_value(index)), low, high);
    };
    // Edges that were set past each other by other ways than their callbacks still leave a pixel.
    const int left = edge(global_crop_left, 0, frame_width - 1);
    const int bottom = edge(global_crop_bottom, 0, frame_height - 1);
    const int right = edge(global_crop_right, left + 1, frame_width);
    const int top = edge(global_crop_top, bottom + 1, frame_height);
    return {left, bottom, right - left, top - bottom};
}

void make_render_info(RenderInfo* out, const SparkInfoStruct& info, int step, int phase) {
    const RasterRect crop = get_crop_rect(info.FrameWidth, info.FrameHeight);
    fill_render_info(out, info, step, phase, crop_input_p() ? nullptr : &crop);
}

void set_temp_raster_crop(rinfo* temp, const RenderInfo* render, Genotype* genotype) {
    Globals_V4->wrapped = 0;
    if (!crop_enabled_p()) return;
    const RasterRect& frame = render->full_ren;
    if (crop_input_p()) {
        const RasterRect wrap = get_crop_rect(frame.w, frame.h);
        raster_set_wrap_dims(temp, wrap.x, wrap.w, wrap.y, wrap.h, render->render_step);
        Globals_V4->wrapped = 1;
        return;
    }
    if (!genotype || (genotype->effect_flags_1 & effect_renders_everywhere)) return;
    RasterRect area = render->croprect;
    get_expanded_src(genotype, render->croprect, frame, &area);
    narrow_raster(temp, area);
}

bool get_surround_color(int32_t color[4]) {
    std::fill(color, color + 4, 0);
    Param* const p = Globals_V4->global_params[global_surround_color];
    if (!p || !crop_enabled_p() || global_param_get_value(global_crop_surround) != 0) return false;
    param_sync_from_button(p);
    for (int i = 0; i < 3; ++i) color[i] = static_cast<int32_t>(p->value[i] * 4096.0f);
    color[3] = fix_scale;
    return true;
}

void fill_crop_surround(void* dest) {
    if (!dest || !the_frame->dest_raster_info.render_step || !the_frame->render_info.render_step || !crop_enabled_p() ||
        crop_input_p())
        return;
    const RasterRect& frame = the_frame->render_info.full_ren;
    const RasterRect& crop = the_frame->render_info.croprect;
    Surround f = {static_cast<unsigned char*>(dest), nullptr, false, the_frame->surround_color.color};
    const int mode = static_cast<int>(global_param_get_value(global_crop_surround));
    if (mode > 0) {
        f.source = mode <= Globals_V4->n_inputs ? static_cast<const unsigned char*>(get_spark_buffer(mode)) : nullptr;
        if (!f.source) {
            if (fail_frame()) V_error(level_error, "There is no frame for the surround of the crop.");
            return;
        }
    }
    f.black = !f.rgb[0] && !f.rgb[1] && !f.rgb[2];

    const int top = crop.y + crop.h, right = crop.x + crop.w;
    const RasterRect below = {0, 0, frame.w, crop.y}, above = {0, top, frame.w, frame.h - top};
    // Whole rows lie in one piece: they are filled or copied at once.
    for (const RasterRect& band : {below, above}) {
        if (band.h <= 0) continue;
        const bool piece = f.source || f.black;
        if (!piece || static_cast<long>(band.w) * band.h < small_band) {
            fill_bands(f, &band, 1);
            continue;
        }
        const size_t pitch = host_row_pitch(the_frame->dest_raster_info);
        const size_t offset = static_cast<size_t>(band.y) * pitch, bytes = static_cast<size_t>(band.h) * pitch;
        if (f.source)
            mp_memcpy(f.dest + offset, f.source + offset, bytes);
        else
            mp_memset(f.dest + offset, 0, bytes);
    }
    const RasterRect sides[] = {{0, crop.y, crop.x, crop.h}, {right, crop.y, frame.w - right, crop.h}};
    if (crop.x > 0 || right < frame.w) fill_bands(f, sides, 2);
}

}  // namespace velloran
