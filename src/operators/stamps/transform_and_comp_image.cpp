// Places are whole numbers of 2^-32 of a sample, counted from the picture's own first sample: so what a pixel gets does
// not hang on where a stripe or a crop begins.
#include "operators/stamps/transform_and_comp_image.h"

#include "operators/stamps/comp_rows.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

constexpr double one = 4294967296.0;
constexpr int block = 512;
constexpr double largest_scale = 1e6, smallest_scale = 1e-9;
// No frame is as wide, and a place times the size of a stamp's level has to fit 31 bits.
constexpr double farthest = 60000;

int64_t floor_div(int64_t a, int64_t b) {
    const int64_t q = a / b;
    return q * b == a || (a < 0) == (b < 0) ? q : q - 1;
}

int64_t ceil_div(int64_t a, int64_t b) { return -floor_div(-a, b); }

// Places in a level along an axis, and the samples of the picture whose places are not beyond its border.
struct Axis {
    int64_t start, step;
    int32_t first, last;
    double share;  // of the opacity: of less than a sample a part
};

Axis make_axis(double middle, double scale, bool flip, int size, int level, int level_size) {
    const double whole = std::ldexp(1.0, level);
    double step = 1 / (scale * whole);  // samples of the level
    Axis axis = {0, 0, 0, -1, 1};
    const double drawn = level_size / step;
    if (drawn < 1) {
        axis.share = drawn;
        step = level_size;
    }
    if (flip) step = -step;
    axis.step = static_cast<int64_t>(step * one);
    if (!axis.step) return axis;
    const double middle_of_level = (size / 2.0) / whole - 0.5;
    axis.start = static_cast<int64_t>((middle_of_level - middle * step) * one);
    // Samples -1 and level_size are 0, and beyond them there is nothing.
    const int64_t low = -(int64_t{1} << 32), high = (int64_t{level_size} << 32) - 1;
    const bool rising = axis.step > 0;
    const int64_t a = ceil_div((rising ? low : high) - axis.start, axis.step);
    const int64_t b = floor_div((rising ? high : low) - axis.start, axis.step);
    constexpr int64_t limit = 1 << 24;
    axis.first = static_cast<int32_t>(std::clamp(a, -limit, limit));
    axis.last = static_cast<int32_t>(std::clamp(b, -limit, limit));
    return axis;
}

int32_t color_sample(float v) {
    return static_cast<int32_t>(std::lround(std::clamp(static_cast<double>(v) * fix_scale, -32767.0, 32767.0)));
}

int best_level(const Stamp& stamp, double x_scale, double y_scale) {
    const double levels = -std::log2(std::min(x_scale, y_scale));
    return std::clamp(static_cast<int>(std::floor(levels + 0.5)), 0, stamp.level_count - 1);
}

}  // namespace

PlacedStamp place_stamp(const Stamp& stamp, const StampPlace& place, const float color[3], float opacity) {
    const double x_scale = std::clamp(place.x_scale, smallest_scale, largest_scale);
    const double y_scale = std::clamp(place.y_scale, smallest_scale, largest_scale);
    const int level = best_level(stamp, x_scale, y_scale);
    PlacedStamp placed = {};
    placed.level = &stamp.levels[level];
    // Rows of the stamp run downwards.
    const Axis x = make_axis(std::clamp(place.x, -farthest, farthest), x_scale, place.flip_x, stamp.width, level,
                             placed.level->width);
    const Axis y = make_axis(std::clamp(place.y, -farthest, farthest), y_scale, !place.flip_y, stamp.height, level,
                             placed.level->height);
    placed.u = x.start;
    placed.u_step = x.step;
    placed.v = y.start;
    placed.v_step = y.step;
    placed.left = x.first;
    placed.right = x.last;
    placed.bottom = y.first;
    placed.top = y.last;
    for (int c = 0; c < 3; ++c) placed.color[c] = color_sample(color[c]);
    placed.color[3] = fix_scale;
    const double covers = std::clamp(static_cast<double>(opacity), 0.0, 1.0) * x.share * y.share;
    placed.opacity = static_cast<int32_t>(std::lround(covers * fix_scale));
    if (placed.opacity == 0) placed.right = placed.left - 1;
    return placed;
}

void transform_and_comp_image(const StampCanvas& canvas, const PlacedStamp& stamp, int first, int n) {
    const int begin = std::max(canvas.bottom + first, stamp.bottom),
              end = std::min(canvas.bottom + first + n - 1, stamp.top);
    const int left = std::max(canvas.left, stamp.left), right = std::min(canvas.left + canvas.width - 1, stamp.right);
    if (left > right) return;
    const CompRows& rows = comp_rows();
    alignas(64) int32_t covered[block];
    for (int y = begin; y <= end; ++y) {
        const int64_t v = stamp.v + y * stamp.v_step;
        const FixPixel* const near = stamp.level->samples + (v >> 32) * stamp.level->pitch;
        CoverRow row = {near,         near + stamp.level->pitch, static_cast<int32_t>(v >> 20) & 4095, 0, stamp.u_step,
                        stamp.opacity};
        for (int x = left; x <= right; x += block) {
            const int count = std::min(block, right - x + 1);
            row.first = stamp.u + x * stamp.u_step;
            rows.cover(row, covered, count);
            const ptrdiff_t at = ptrdiff_t{y - canvas.bottom} * canvas.width + (x - canvas.left);
            for (int c = 0; c < canvas.channels; ++c) rows.comp(canvas.planes[c] + at, covered, stamp.color[c], count);
        }
    }
}

}  // namespace velloran
