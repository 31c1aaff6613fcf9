#include "operators/polygons/polygon_buffer.h"

#include "operators/polygons/coverage_rows.h"
#include "support/errors.h"
#include "support/memory.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace velloran {

namespace {

// The part of an edge within one row: from (x_low, .) to (x_high, .), x_low <= x_high, over height of the row.
struct RowPart {
    double x_low, x_high, height, height_per_x;

    // Area to the right of the edge in the pixel of column i, for a column that it passes through.
    double area_in(double i) const {
        if (x_high <= i + 1) {
            if (x_low >= i) return height * (i + 1 - 0.5 * (x_low + x_high));
            return height - 0.5 * (x_high - i) * (x_high - i) * height_per_x;
        }
        if (x_low >= i) return 0.5 * (i + 1 - x_low) * (i + 1 - x_low) * height_per_x;
        return (i + 0.5 - x_low) * height_per_x;
    }
};

// std::floor for what an int holds, without a call.
int floor_of(double v) {
    const int i = static_cast<int>(v);
    return i - (v < i);
}

// Adds the part to its row. Columns before the first one give it all that they hold.
void add_row_part(const CoverageRows& rows, const RowPart& part, float sign, float* row, int left, int width) {
    const int low = floor_of(part.x_low) - left, high = floor_of(part.x_high) - left;
    constexpr int least_slope = 6;  // columns that are worth a call
    if (high - low > least_slope && low >= 0 && high + 1 < width && part.x_high > left + high) {
        const double area = in_coverage_units(part.area_in(left + low)), at_last = left + high;
        row[low] += sign * static_cast<float>(area);
        rows.add_slope(row + low + 1, high - low - 1, left + low + 1, part.x_low, part.height_per_x, area, sign);
        const double before = in_coverage_units(part.area_in(at_last - 1)),
                     last = in_coverage_units(part.area_in(at_last));
        row[high] += sign * static_cast<float>(last - before);
        row[high + 1] += sign * static_cast<float>(in_coverage_units(part.height) - last);
        return;
    }
    const int first = std::max(low, 0);
    if (first >= width) return;
    const int last = std::clamp(high, -1, width - 1);
    double before = 0.0;
    for (int i = first; i <= last; ++i) {
        const double area = in_coverage_units(part.area_in(left + i));
        row[i] += sign * static_cast<float>(area - before);
        before = area;
    }
    const int beyond = std::max(last + 1, 0);
    if (beyond < width) row[beyond] += sign * static_cast<float>(in_coverage_units(part.height) - before);
}

void add_edge(PolygonBuffer* pb, double x0, double y0, double x1, double y1, int row_lo, int row_hi) {
    if (y0 == y1) return;
    float sign = 1.0f;
    if (y0 > y1) {
        std::swap(x0, x1);
        std::swap(y0, y1);
        sign = -1.0f;
    }
    const double low = std::max<double>(row_lo + pb->bottom, y0), high = std::min<double>(row_hi + pb->bottom, y1);
    if (low >= high) return;
    const double slope = (x1 - x0) / (y1 - y0);
    constexpr double upright = 1e6;
    const double height_per_x = slope == 0.0 ? upright : std::min(std::fabs(1.0 / slope), 1e300);
    const auto x_at = [&](double y) { return y == y0 ? x0 : y == y1 ? x1 : x0 + (y - y0) * slope; };
    const CoverageRows& rows = coverage_rows();
    int row_begin = floor_of(low);
    constexpr double steep = 2.0;
    for (double y = low, x = x_at(low); y < high;) {
        // Whole rows, but for the one in which the edge ends.
        const int whole = y == row_begin && std::fabs(slope) <= steep ? floor_of(high) - row_begin - 1 : 0;
        if (whole > 0) {
            const int done = rows.add_steep_rows(pb->buffer + ptrdiff_t{row_begin - pb->bottom} * pb->width, pb->width,
                                                 pb->left, whole, {x0, y0, slope, height_per_x, sign, row_begin});
            if (done > 0) {
                row_begin += done;
                y = row_begin;
                x = x_at(y);
                continue;
            }
        }
        const double end = std::min(row_begin + 1.0, high), x_end = x_at(end);
        float* const row = pb->buffer + ptrdiff_t{row_begin - pb->bottom} * pb->width;
        add_row_part(rows, {std::min(x, x_end), std::max(x, x_end), end - y, height_per_x}, sign, row, pb->left,
                     pb->width);
        y = end;
        x = x_end;
        ++row_begin;
    }
}

// What a point may be: beyond any frame, and rounding does no harm yet.
double held(double v) { return v != v ? 0.0 : std::clamp(v, -1e7, 1e7); }

}  // namespace

void init_polygon_buffer(PolygonBuffer* pb, int width, int height, float* buffer, bool clear) {
    if (!pb) {
        V_error(level_error, "Null ptr in init_polygon_buffer");
        return;
    }
    *pb = {};
    pb->width = width;
    pb->height = height;
    pb->scale = 1.0;
    const size_t n = static_cast<size_t>(width) * static_cast<size_t>(height);
    pb->owns_buffer = !buffer;
    pb->buffer = buffer ? buffer : frame_array<float>(n);
    if (clear) std::fill_n(pb->buffer, n, 0.0f);
}

PolygonBuffer clone_polygon_buffer(const PolygonBuffer& pb) {
    PolygonBuffer clone = pb;
    clone.owns_buffer = false;
    return clone;
}

void free_polygon_buffer(PolygonBuffer* pb) {
    if (pb->owns_buffer) frame_free(pb->buffer);
    *pb = {};
}

void start_polygon(PolygonBuffer* pb) { pb->started = false; }

void add_polygon_point(PolygonBuffer* pb, double x, double y, int row_lo, int row_hi) {
    x = held(x * pb->scale);
    // On a multiple of the unit, so that the parts of an edge in a row add up to the whole of it.
    y = in_coverage_units(held(y * pb->scale));
    if (!pb->started) {
        pb->started = true;
        pb->first_x = x;
        pb->first_y = y;
    } else {
        add_edge(pb, pb->current_x, pb->current_y, x, y, row_lo, row_hi);
    }
    pb->current_x = x;
    pb->current_y = y;
}

void close_polygon(PolygonBuffer* pb, int row_lo, int row_hi) {
    if (!pb->started) return;
    add_edge(pb, pb->current_x, pb->current_y, pb->first_x, pb->first_y, row_lo, row_hi);
    pb->started = false;
}

void finish_polygon_stripe(PolygonBuffer* pb, int row_lo, int row_hi) {
    const CoverageRows& rows = coverage_rows();
    for (int y = row_lo; y < row_hi; ++y) rows.finish(pb->buffer + ptrdiff_t{y} * pb->width, pb->width);
}

void finish_polygon(PolygonBuffer* pb) {
    fork_rows_if_big_image(pb->width, pb->height,
                           [pb](int first, int n) { finish_polygon_stripe(pb, first, first + n); });
}

}  // namespace velloran
