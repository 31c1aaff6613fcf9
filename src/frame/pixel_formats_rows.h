// Row functions of the pixel formats: runs of neighbouring pixels, no steps, no clipping against rasters.
#pragma once

#include "records/fix_pixel.h"
#include "records/rinfo.h"

#include <cstdint>

namespace velloran {

enum HostForm : int { form_rgb8 = 0, form_rgb10 = 1, form_rgb16 = 2 };
constexpr int n_host_forms = 3;
constexpr int host_form_pixel_bytes[n_host_forms] = {3, 6, 6};
constexpr int no_form = -1;

// The form of a raster's pixel_type, no_form for types that are no host frame's.
constexpr int host_form_of(int pixel_type) {
    switch (pixel_type) {
        case pixel_rgb8:
            return form_rgb8;
        case pixel_rgb10:
            return form_rgb10;
        case pixel_rgb16:
            return form_rgb16;
        default:
            return no_form;
    }
}

// Whether a row's result is about to be read again, or goes past the caches.
enum RowStores : int { stores_cached = 0, stores_streamed = 1 };

// pixels: interleaved R G B of the form, any alignment. Nothing beyond n pixels is read or written. table: the LUT of
// the form where the row function takes one (input_lut_8 for rgb8, else input_lut_12).
template <class Sample>
using SourceRow = void (*)(const uint8_t* pixels, Sample* const* planes, int n, const int32_t* table, RowStores stores);

// table: output_lut_8 for rgb8, else output_lut_16. Mono functions read planes[0] alone.
template <class Sample>
using DestRow = void (*)(const Sample* const* planes, uint8_t* pixels, int n, const void* table, RowStores stores);

struct PixelFormatRows {
    // [form][with a LUT]
    SourceRow<FixPixel> to_planes[n_host_forms][2];
    SourceRow<int32_t> to_lines[n_host_forms][2];
    // [form][with a LUT][mono]
    DestRow<FixPixel> from_planes[n_host_forms][2][2];
    DestRow<int32_t> from_lines[n_host_forms][2][2];
    // Streamed stores of this thread become visible to others; at the end of a stripe that used them.
    void (*finish_stores)();
};

// The table for the best instruction set of this machine.
const PixelFormatRows& pixel_format_rows();

}  // namespace velloran
