// Records that describe the rasters of the frame in hand. Records only; pixel_formats.h and rasters.h work on them.
#pragma once

#include <cstdint>

namespace velloran {

// Codes of rinfo::pixel_type; pixel_types.h holds their attributes. The converters take rgb8, rgb16 and rgb10.
enum PixelType : int32_t { pixel_unknown = 0, pixel_rgb8 = 2, pixel_rgb16 = 7, pixel_rgb10 = 21 };

// Codes of rinfo::layout.
enum RasterLayout : int32_t {
    layout_unknown = 0,
    layout_rgb = 1,
    layout_rgba = 2,
    layout_a = 3,
    layout_rgbaz = 4,
    layout_l = 5,
    layout_la = 6
};

struct WrapDims {
    int32_t wrap_x, wrap_y, wrap_w, wrap_h;      // full-resolution pixels, on the step grid
    int32_t wrap_sx, wrap_sy, wrap_sw, wrap_sh;  // samples
    int32_t wrap_clipped;                        // 1: the wrap area does not cover the whole of the raster's area
};

// One raster. Zeroed, then filled for each frame.
struct rinfo {
    int32_t width, height;  // columns and rows stored, after down-sampling
    int32_t x, y, w, h;     // area covered, full-resolution pixels, y from the bottom row
    int32_t pixel_type;     // PixelType
    int32_t bit_depth;      // 8, 10, 16; 32 for temp_raster_info
    int32_t layout;         // RasterLayout
    int32_t bytes_per_pixel;
    int32_t reserved1[2];
    int32_t render_step;   // down-sampling factor, at least 1
    int32_t render_phase;  // phase of the sample grid in a block of render_step pixels: (render_step - 1) / 2
    int32_t stride;        // extra elements at each row's end
    float background[4];   // value outside the source, per channel, 1.0 is white
    int32_t reserved2;
    float add_noise;  // amount of the "add noise" control, 0 none; only in dest_raster_info
    WrapDims wrap;
};

struct RasterRect {
    int32_t x, y, w, h;
};

// The rectangles of the frame being rendered.
struct RenderInfo {
    RasterRect full_ren;     // the whole frame, x = y = 0, full resolution
    RasterRect croprect;     // the area to render, full resolution
    RasterRect downsampled;  // croprect in samples: x, y truncated, w, h rounded up
    double pix_scale;        // 1.0
    double ratio_scale[2];   // 1.0 both
    int32_t render_step;
    int32_t render_phase;
};

}  // namespace velloran
