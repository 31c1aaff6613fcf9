#include "operators/mipmap/look_up.h"

#include "records/frame.h"

#include <algorithm>

namespace velloran {
namespace {

AxisWrap axis_wrap(WrapKind kind, int samples) {
    AxisWrap wrap;
    wrap.on = kind != wrap_none;
    wrap.mirrored = kind == wrap_mirror;
    wrap.period = samples << fix_bits;
    wrap.inverse_period = 1.0f / static_cast<float>(wrap.period);
    return wrap;
}

void fill_levels(const int32_t* scale_fix, int n, float* ratio, int32_t* size) {
    for (int i = 0; i <= max_mipmap_levels; ++i) {
        const int level = std::min(i, n - 1);
        size[i] = scale_fix[level] >> fix_bits;
        ratio[i] = static_cast<float>(size[i]) / static_cast<float>(size[0]);
    }
}

LevelTable level_table(const Mipmap& map) {
    LevelTable table;
    fill_levels(map.x_scale_fix, map.n_x_levels, table.x_ratio, table.x_size);
    fill_levels(map.y_scale_fix, map.n_y_levels, table.y_ratio, table.y_size);
    for (int i = 0; i <= max_mipmap_levels; ++i) {
        table.x_origin[i] = static_cast<uint32_t>(map.x_level_offset[std::min(i, map.n_x_levels - 1)]);
        table.y_origin[i] = static_cast<uint32_t>(map.y_level_ptr[std::min(i, map.n_y_levels - 1)] - map.data);
    }
    table.row_samples = static_cast<uint32_t>(map.row_samples);
    table.elements = map.elements;
    table.max_x = map.max_x_level_fix;
    table.max_y = map.max_y_level_fix;
    return table;
}

}  // namespace

LookUp make_look_up(const Mipmap& map) {
    LookUp look_up;
    look_up.rows = &sample_rows();
    look_up.data = map.data;
    look_up.elements = map.elements;
    look_up.row_samples = static_cast<uint32_t>(map.row_samples);
    look_up.left = map.left;
    look_up.bottom = map.bottom;
    look_up.table = level_table(map);
    look_up.top = level_plan(look_up, 0, 0);
    const RenderInfo& frame = the_frame->render_info;
    const double step = std::max(frame.render_step, 1);
    const double half_width = frame.full_ren.w * frame.pix_scale / (2 * step);
    look_up.x_scale = static_cast<float>(half_width);
    look_up.y_scale = static_cast<float>(half_width / the_frame->pixel_aspect_ratio);
    // The last sample of a frame that is no multiple of the step counts whole.
    look_up.x_wrap = axis_wrap(map.settings.wrap_x, map.top_w);
    look_up.y_wrap = axis_wrap(map.settings.wrap_y, map.top_h);
    return look_up;
}

TapPlan level_plan(const LookUp& look_up, int x, int y) {
    const LevelTable& table = look_up.table;
    return {{table.x_ratio[x], table.x_size[x], x > 0},
            {table.y_ratio[y], table.y_size[y], y > 0},
            table.x_origin[x] + table.y_origin[y],
            table.row_samples,
            table.elements};
}

void look_up_bilinear(const LookUp& look_up, const Positions& p, FixPixel* const* planes, int n) {
    const SampleRows& rows = *look_up.rows;
    Taps taps;
    Block16 samples;
    rows.taps(p.x, p.y, look_up.top, &taps, n);
    rows.bilinear[look_up.elements - 1](look_up.data, taps, look_up.row_samples, &samples, n);
    rows.store(samples, planes, look_up.elements, n);
}

void look_up_filtered(const LookUp& look_up, const Positions& p, const int32_t* x_level, const int32_t* y_level,
                      FixPixel* const* planes, int n) {
    const SampleRows& rows = *look_up.rows;
    Taps taps;
    Block32 sums;
    int32_t weights[4][Taps::entries];
    const int used = rows.level_weights(x_level, y_level, weights, n);
    bool first = true;
    for (int k = 0; k < 4; ++k) {
        if (!(used >> k & 1)) continue;
        rows.level_taps(p.x, p.y, x_level, y_level, k & 1, k >> 1, look_up.table, &taps, n);
        rows.mix[look_up.elements - 1](look_up.data, taps, look_up.row_samples, weights[k], first, &sums, n);
        first = false;
    }
    rows.store_mixed(sums, planes, look_up.elements, n);
}

void look_up_add(const LookUp& look_up, const Positions& p, int32_t x_level, int32_t y_level, const float weights[4],
                 bool first, BlockFloat* out, int n) {
    const SampleRows& rows = *look_up.rows;
    const float fx = static_cast<float>(x_level & (fix_scale - 1)) * fix_to_float_scale;
    const float fy = static_cast<float>(y_level & (fix_scale - 1)) * fix_to_float_scale;
    const float parts[4] = {(1.0f - fx) * (1.0f - fy), fx * (1.0f - fy), (1.0f - fx) * fy, fx * fy};
    Taps taps;
    for (int k = 0; k < 4; ++k) {
        if (parts[k] == 0.0f) continue;
        float scaled[4];
        for (int c = 0; c < 4; ++c) scaled[c] = weights[c] * (parts[k] * fix_to_float_scale);
        rows.taps(p.x, p.y, level_plan(look_up, (x_level >> fix_bits) + (k & 1), (y_level >> fix_bits) + (k >> 1)),
                  &taps, n);
        rows.accumulate[look_up.elements - 1](look_up.data, taps, look_up.row_samples, scaled, first, out, n);
        first = false;
    }
}

}  // namespace velloran
