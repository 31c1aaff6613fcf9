// The tables of pixel types and raster layouts: what the codes of rinfo mean.
#pragma once

#include <cstdint>

namespace velloran {

// Bits of what a pixel holds.
enum LayoutFlags : int32_t {
    layout_has_colour = 1,
    layout_has_alpha = 2,
    layout_has_depth = 4,
    layout_has_luminance = 8
};

constexpr int n_pixel_types = 22;
constexpr int n_raster_layouts = 7;

struct PixelTypeRow {
    int32_t flags;
    int32_t bytes_per_element;
    int32_t channels;
    int32_t without_alpha;  // code of the type without its alpha; 0: stays as it is
};

// The row of a code; that of code 0 for any code out of range.
const PixelTypeRow& pixel_type_row(int pixel_type);
int32_t raster_layout_flags(int layout);

// Name of a pixel type for texts. Codes without a name print as "%x??", for which buffer must hold 16 characters.
const char* pixel_type_name(int pixel_type, char* buffer);
const char* raster_layout_name(int layout);

// Code of the same type without alpha.
int pixel_remove_alpha(int pixel_type);

// First code with exactly these flags, or 0. Pixel types also have to have as many bytes in an element.
int find_raster_layout(int32_t flags);
int find_pixel_type(int32_t flags, int32_t bytes_per_element);

}  // namespace velloran
