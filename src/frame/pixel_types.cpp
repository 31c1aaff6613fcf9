#include "frame/pixel_types.h"

#include <cstdio>
#include <iterator>

namespace velloran {
namespace {

constexpr int32_t colour = layout_has_colour, alpha = layout_has_alpha, depth = layout_has_depth,
                  luminance = layout_has_luminance;

// The four channels of the types with luminance and alpha are what their readers count, not what they hold.
constexpr PixelTypeRow pixel_types[] = {
    // flags                bytes channels without alpha
    {0, 1, 0, 0},                       // 0
    {alpha, 1, 1, 0},                   // 1 a8
    {colour, 1, 3, 2},                  // 2 rgb8
    {colour, 1, 3, 3},                  // 3 bgr8
    {colour | alpha, 1, 4, 2},          // 4 rgba8
    {colour | alpha, 1, 4, 3},          // 5 bgra8
    {alpha, 2, 1, 0},                   // 6 a16
    {colour, 2, 3, 7},                  // 7 rgb16
    {colour | alpha, 2, 4, 7},          // 8 rgba16
    {colour | alpha, 2, 4, 0},          // 9 bgra16
    {colour | alpha, 2, 4, 7},          // 10 argb16
    {alpha, 4, 1, 0},                   // 11 af
    {colour, 4, 3, 12},                 // 12 rgbf
    {colour | alpha, 4, 4, 12},         // 13 rgbaf
    {colour | alpha | depth, 2, 4, 0},  // 14 rgba16z
    {luminance, 1, 1, 15},              // 15 l8
    {luminance, 2, 1, 16},              // 16 l16
    {luminance, 4, 1, 17},              // 17 lf
    {luminance | alpha, 1, 4, 15},      // 18 la8
    {luminance | alpha, 2, 4, 16},      // 19 la16
    {luminance | alpha, 4, 4, 17},      // 20 laf
    {colour, 2, 3, 21},                 // 21 rgb10
};
static_assert(std::size(pixel_types) == n_pixel_types);

// One name short, and the last one holds two names: texts have always shown them so.
constexpr const char* pixel_type_names[] = {
    "   ?", "a8",   "rgb8",  "bgr8",    "rgba8", "bgra8", "a16", "rgb16", "rgba16", "bgra16",   "argb16",
    "af",   "rgbf", "rgbaf", "rgba16z", "l8",    "l16",   "lf",  "la8",   "la16",   "lafrgb10",
};
static_assert(std::size(pixel_type_names) == n_pixel_types - 1);

struct RasterLayoutRow {
    const char* name;
    int32_t flags;
};
constexpr RasterLayoutRow raster_layouts[] = {
    {"  ?", 0},
    {"rgb", colour},
    {"rgba", colour | alpha},
    {"a", alpha},
    {"rgbaz", colour | alpha | depth},
    {"l", luminance},
    {"la", luminance | alpha},
};
static_assert(std::size(raster_layouts) == n_raster_layouts);

const RasterLayoutRow& raster_layout_row(int layout) {
    return raster_layouts[layout >= 0 && layout < n_raster_layouts ? layout : 0];
}

}  // namespace

const PixelTypeRow& pixel_type_row(int pixel_type) {
    return pixel_types[pixel_type >= 0 && pixel_type < n_pixel_types ? pixel_type : 0];
}

int32_t raster_layout_flags(int layout) { return raster_layout_row(layout).flags; }

const char* raster_layout_name(int layout) { return raster_layout_row(layout).name; }

const char* pixel_type_name(int pixel_type, char* buffer) {
    if (pixel_type >= 0 && pixel_type < static_cast<int>(std::size(pixel_type_names)))
        return pixel_type_names[pixel_type];
    std::snprintf(buffer, 16, "%x??", static_cast<unsigned>(pixel_type));
    return buffer;
}

int pixel_remove_alpha(int pixel_type) {
    const int without = pixel_type_row(pixel_type).without_alpha;
    return without ? without : pixel_type;
}

int find_raster_layout(int32_t flags) {
    for (int i = 1; i < n_raster_layouts; ++i)
        if (raster_layouts[i].flags == flags) return i;
    return 0;
}

int find_pixel_type(int32_t flags, int32_t bytes_per_element) {
    for (int i = 1; i < n_pixel_types; ++i)
        if (pixel_types[i].flags == flags && pixel_types[i].bytes_per_element == bytes_per_element) return i;
    return 0;
}

}  // namespace velloran
