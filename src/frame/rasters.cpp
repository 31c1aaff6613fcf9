#include "frame/rasters.h"

#include "frame/pixel_types.h"
#include "support/errors.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace velloran {

namespace {

int32_t round_up_div(int32_t a, int32_t b) { return (a + b - 1) / b; }

// Start and length of the wrap area along one axis.
struct WrapSpan {
    int32_t start, length;
};

WrapSpan wrap_span(double start, double length, int32_t raster_start, int32_t raster_length, int step) {
    const double s = step;
    const double first = std::trunc(start / s);
    WrapSpan span;
    span.length = static_cast<int32_t>(std::max(1.0, (std::ceil((start + length) / s) - first) * s));
    span.start = static_cast<int32_t>(first * s);
    if (span.start < raster_start)
        span.start = raster_start;
    else
        span.start = std::min(span.start, raster_start + raster_length - span.length);
    return span;
}

// New flags for a raster, if there are a layout and a pixel type for them.
void set_layout_flags(rinfo* raster, int32_t flags, int pixel_type) {
    const int layout = find_raster_layout(flags);
    if (!layout || !pixel_type) return;
    raster->layout = layout;
    raster->pixel_type = pixel_type;
}

void add_layout_flag(rinfo* raster, int32_t flag, int32_t excluded_by) {
    const int32_t flags = raster_layout_flags(raster->layout);
    if (flags & excluded_by) return;
    set_layout_flags(raster, flags | flag,
                     find_pixel_type(flags | flag, pixel_type_row(raster->pixel_type).bytes_per_element));
}

}  // namespace

void fill_host_raster(rinfo* raster, const SparkInfoStruct& info, int step, int phase) {
    *raster = {};
    raster->width = round_up_div(info.FrameWidth, step);
    raster->height = round_up_div(info.FrameHeight, step);
    raster->w = info.FrameWidth;
    raster->h = info.FrameHeight;
    raster->render_step = step;
    raster->render_phase = phase;
    switch (info.FrameDepth) {
        case SPARK_DEPTH_8:
            raster->pixel_type = pixel_rgb8;
            raster->bit_depth = 8;
            raster->bytes_per_pixel = 3;
            break;
        case SPARK_DEPTH_12:
            raster->pixel_type = pixel_rgb16;
            raster->bit_depth = 16;
            raster->bytes_per_pixel = 6;
            break;
        case SPARK_DEPTH_10:
            raster->pixel_type = pixel_rgb10;
            raster->bit_depth = 10;
            raster->bytes_per_pixel = 6;
            break;
        default:
            V_error(level_error, "Unknown spark pixel type %d\n", info.FrameDepth);
            return;
    }
    raster->layout = layout_rgb;
}

void fill_temp_raster(rinfo* raster, const SparkInfoStruct& info, int step, int phase, const RasterRect* area) {
    fill_host_raster(raster, info, step, phase);
    raster->bit_depth = 32;
    raster->bytes_per_pixel = 16;
    if (area) narrow_raster(raster, *area);
}

void narrow_raster(rinfo* raster, const RasterRect& area) {
    const int32_t step = raster->render_step;
    const int32_t right = std::clamp(area.x + area.w, 1, raster->w);
    const int32_t top = std::clamp(area.y + area.h, 1, raster->h);
    raster->x = std::clamp(area.x, 0, right - 1) / step * step;
    raster->y = std::clamp(area.y, 0, top - 1) / step * step;
    raster->w = right - raster->x;
    raster->h = top - raster->y;
    raster->width = round_up_div(raster->w, step);
    raster->height = round_up_div(raster->h, step);
}

void fill_render_info(RenderInfo* render, const SparkInfoStruct& info, int step, int phase, const RasterRect* crop) {
    *render = {};
    render->full_ren = {0, 0, info.FrameWidth, info.FrameHeight};
    render->croprect = crop ? *crop : render->full_ren;
    render->downsampled = downsampled_rect(render->croprect, step);
    render->pix_scale = 1.0;
    render->ratio_scale[0] = render->ratio_scale[1] = 1.0;
    render->render_step = step;
    render->render_phase = phase;
}

RasterRect downsampled_rect(const RasterRect& pixels, int step) {
    return {pixels.x / step, pixels.y / step, round_up_div(pixels.w, step), round_up_div(pixels.h, step)};
}

int32_t byte_row_pitch(const rinfo& raster) {
    return raster.width * raster.bytes_per_pixel + (raster.bit_depth >> 3) * raster.stride;
}

int32_t pixel_offset(const rinfo& raster, int px, int py) {
    const int32_t column = std::max(0, std::min(px - raster.x, raster.width - 1));
    const int32_t row = std::max(0, std::min(py - raster.y, raster.height - 1));
    return raster.bytes_per_pixel * column + row * byte_row_pitch(raster);
}

void raster_set_wrap_dims(rinfo* raster, double x, double w, double y, double h, int step) {
    const WrapSpan columns = wrap_span(x, w, raster->x, raster->w, step);
    const WrapSpan rows = wrap_span(y, h, raster->y, raster->h, step);
    WrapDims& wrap = raster->wrap;
    wrap.wrap_x = columns.start;
    wrap.wrap_y = rows.start;
    wrap.wrap_w = columns.length;
    wrap.wrap_h = rows.length;
    wrap.wrap_sx = wrap.wrap_x / step;
    wrap.wrap_sy = wrap.wrap_y / step;
    wrap.wrap_sw = round_up_div(wrap.wrap_w, step);
    wrap.wrap_sh = round_up_div(wrap.wrap_h, step);
    wrap.wrap_clipped =
        !(x <= raster->x && x + w >= raster->x + raster->w && y <= raster->y && y + h >= raster->y + raster->h);
}

void raster_add_alpha(rinfo* raster) { add_layout_flag(raster, layout_has_alpha, 0); }

void raster_add_luminance(rinfo* raster) { add_layout_flag(raster, layout_has_luminance, layout_has_colour); }

void raster_add_colour(rinfo* raster) { add_layout_flag(raster, layout_has_colour, layout_has_luminance); }

void raster_remove_alpha(rinfo* raster) {
    set_layout_flags(raster, raster_layout_flags(raster->layout) & ~layout_has_alpha,
                     pixel_remove_alpha(raster->pixel_type));
}

void rinfo_text(char* out, size_t size, const char* label, const rinfo* raster) {
    if (!raster) {
        std::snprintf(out, size, " %s rinfo: NULL.\n", label);
        return;
    }
    char type[16], stride[32] = "";
    if (raster->stride) std::snprintf(stride, sizeof(stride), ", stride=%d", raster->stride);
    std::snprintf(out, size, "%s rinfo: %s,%dbit %s (%d B), %dx%d (%d,%d->%d,%d)%s", label,
                  pixel_type_name(raster->pixel_type, type), raster->bit_depth, raster_layout_name(raster->layout),
                  raster->bytes_per_pixel, raster->width, raster->height, raster->x, raster->y,
                  raster->x + raster->w - 1, raster->y + raster->h - 1, stride);
}

void render_info_text(char* out, size_t size, const char* label, const RenderInfo* render) {
    if (!render) {
        std::snprintf(out, size, " %s render info: NULL.\n", label);
        return;
    }
    const RasterRect &crop = render->croprect, &full = render->full_ren, &down = render->downsampled;
    char samples[96] = "";
    if (down.x != crop.x || down.y != crop.y || down.w != crop.w || down.h != crop.h)
        std::snprintf(samples, sizeof(samples), "\tdownsampled = (%d,%d->%d,%d)\n", down.x, down.y,
                      down.x + down.w - render->render_step, down.y + down.h - render->render_step);
    std::snprintf(out, size,
                  " %s render info: pix scale: %g,\n\tcroprect=%dx%d (%d,%d->%d,%d); full_ren=%dx%d "
                  "(%d,%d->%d,%d)\n%s",
                  label, render->pix_scale, crop.w, crop.h, crop.x, crop.y, crop.x + crop.w - 1, crop.y + crop.h - 1,
                  full.w, full.h, full.x, full.y, full.x + full.w - 1, full.y + full.h - 1, samples);
}

}  // namespace velloran
