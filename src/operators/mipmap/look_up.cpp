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
    look_up.taps = &look_up_rows();
    look_up.source = {map.data, static_cast<ptrdiff_t>(mipmap_data_bytes(map) / sizeof(int16_t))};
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
    look_up.taps->bilinear[look_up.elements - 1](look_up.source, look_up.top, p.x, p.y, planes, n);
}

void look_up_filtered(const LookUp& look_up, const Positions& p, const int32_t* x_level, const int32_t* y_level,
                      FixPixel* const* planes, int n) {
    look_up.taps->filtered[look_up.elements - 1](look_up.source, look_up.table, p.x, p.y, x_level, y_level, planes, n);
}

int look_up_parts(const LookUp& look_up, float t, int32_t x_level, int32_t y_level, const float weights[4],
                  StepPart* parts) {
    const float fx = static_cast<float>(x_level & (fix_scale - 1)) * fix_to_float_scale;
    const float fy = static_cast<float>(y_level & (fix_scale - 1)) * fix_to_float_scale;
    const float shares[most_look_up_parts] = {(1.0f - fx) * (1.0f - fy), fx * (1.0f - fy), (1.0f - fx) * fy, fx * fy};
    int n = 0;
    for (int k = 0; k < most_look_up_parts; ++k) {
        if (shares[k] == 0.0f) continue;
        StepPart& part = parts[n++];
        part.t = t;
        part.plan = level_plan(look_up, (x_level >> fix_bits) + (k & 1), (y_level >> fix_bits) + (k >> 1));
        for (int c = 0; c < 4; ++c) part.weights[c] = weights[c] * (shares[k] * fix_to_float_scale);
    }
    return n;
}

}  // namespace velloran
