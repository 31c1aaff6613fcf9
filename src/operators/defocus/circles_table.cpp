#include "operators/defocus/circles_table.h"

#include "records/fix_pixel.h"
#include "support/memory.h"
#include "support/unload.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>

namespace velloran {

int circles_tables_built = 0;

namespace {

constexpr float least_radius = 0.001f;
constexpr int lines_of_row = 16;  // on which the area within a row is measured

circles_table table;  // row_span null: none

void free_table() {
    safe_free(table.row_span);
    safe_free(table.row_width);
    safe_free(table.row_weight);
    table = {};
}

// Half the width of a shape at height t, both as parts of what it has at its centre and at its top: 0 beyond the top.
float half_width(int shape, float t) {
    if (t >= 1.0f) return 0.0f;
    switch (shape) {
        case defocus_circle:
            return std::sqrt(1.0f - t * t);
        case defocus_hexagon_flat:
            return 1.0f - 0.5f * t;
        case defocus_hexagon_point:
            return std::min(1.0f, 2.0f - 2.0f * t);
        case defocus_octagon_flat:
            return std::min(1.0f, 1.4142f - t);
        default:
            return std::min(1.0f - 0.4142f * t, 2.4142f - 2.4142f * t);
    }
}

// What lies left of u of an edge at 0 that falls from full to nothing over `blur`: the integral from far left.
float area_before(float u, float blur) {
    if (u <= -0.5f * blur) return 0.0f;
    if (u >= 0.5f * blur) return u;
    const float part = u + 0.5f * blur;
    return part * part / (2.0f * blur);
}

// The part of cell `column` that a line from the centre to `end` covers; the centre's cell lies on both sides.
float covered(float end, float blur, int column) {
    const float left = static_cast<float>(column) - 0.5f;
    if (column == 0) return std::min(2.0f * (area_before(end, blur) - area_before(end - 0.5f, blur)), 1.0f);
    return area_before(end - left, blur) - area_before(end - left - 1.0f, blur);
}

// The mean over lines within a row of what they cover of its cells, in weights.
void fill_row(int row, int shape, float ex, float ey, float blur) {
    uint16_t* const span = table.row_span + row * table.table_w;
    float ends[lines_of_row];
    float nearest = ex, farthest = 0.0f;
    for (int i = 0; i < lines_of_row; ++i) {
        const float within = (static_cast<float>(i) + 0.5f) / lines_of_row;
        const float y = row == 0 ? 0.5f * within : static_cast<float>(row) - 0.5f + within;
        ends[i] = half_width(shape, y / ey) * ex;
        nearest = std::min(nearest, ends[i]);
        farthest = std::max(farthest, ends[i]);
    }
    const float step = static_cast<float>(table.weight_step), unit = static_cast<float>(fix_scale) / step;
    for (int c = 0; c < table.table_w; ++c) {
        const float x = static_cast<float>(c);
        float part = 1.0f;
        if (x + 0.5f > nearest - 0.5f * blur) {
            part = 0.0f;
            if (x - 0.5f < farthest + 0.5f * blur)
                for (const float end : ends) part += end > 0.0f ? covered(end, blur, c) : 0.0f;
            part /= lines_of_row;
        }
        span[c] = static_cast<uint16_t>(std::lround(std::clamp(part, 0.0f, 1.0f) * unit) * table.weight_step);
    }
}

// Cells whose centre is inside.
void fill_whole_row(int row, int shape, float ex, float ey) {
    const float end = half_width(shape, static_cast<float>(row) / ey) * ex;
    const bool inside = static_cast<float>(row) < ey;
    for (int c = 0; c < table.table_w; ++c)
        table.row_span[row * table.table_w + c] = inside && (c == 0 || static_cast<float>(c) <= end) ? fix_scale : 0;
}

void sum_weights() {
    const int w = table.table_w;
    for (int row = 0; row < table.table_h; ++row) {
        double sum = 0.0;
        table.row_width[row] = 0;
        for (int c = 0; c < w; ++c) {
            const double weight = table.row_span[row * w + c] / 4096.0;
            if (weight > 0.0) table.row_width[row] = c + 1;
            sum += (c == 0 ? 0.5 : 1.0) * weight;
            const double below = row > 0 ? static_cast<double>(table.row_weight[(row - 1) * w + c]) : 0.0;
            table.row_weight[row * w + c] = static_cast<float>(below + (row == 0 ? 0.5 : 1.0) * sum);
        }
    }
    // The sample itself is always there, so that there is something to divide by.
    if (table.row_weight[0] > 0.0f) return;
    table.row_span[0] = fix_scale;
    table.row_width[0] = std::max(table.row_width[0], 1);
    for (int i = 0; i < table.table_h * w; ++i) table.row_weight[i] += 0.25f;
}

// Sums of differences of weights times samples have to fit 32 bits: the more rows, the coarser the weights.
int32_t step_for_rows(int rows) {
    const int bits = std::clamp(15 - static_cast<int>(std::bit_width(static_cast<unsigned>(2 * rows))), 0, 8);
    return fix_scale >> bits;
}

void resize_table(int w, int h) {
    if (table.row_span && w == table.table_w && h == table.table_h) return;
    free_table();
    free_at_unload(free_table);
    const size_t cells = static_cast<size_t>(w) * static_cast<size_t>(h);
    table.row_span = static_cast<uint16_t*>(safe_malloc(2 * cells));
    table.row_weight = static_cast<float*>(safe_malloc(sizeof(float) * cells));
    table.row_width = static_cast<int32_t*>(safe_malloc(4 * static_cast<size_t>(h)));
    table.table_w = w;
    table.table_h = h;
}

}  // namespace

ShapeFactors defocus_shape_factors(int shape) {
    static constexpr ShapeFactors factors[defocus_shapes] = {
        {1.0f, 1.0f}, {1.1f, 0.9526f}, {0.9526f, 1.1f}, {0.97368f, 0.97368f}, {1.0539f, 1.0539f}};
    return shape >= 0 && shape < defocus_shapes ? factors[shape] : factors[defocus_circle];
}

bool set_circles_table(float rx, float ry, float blur, int subpixel, int max_w, int max_h, int shape) {
    if (table.row_span && table.key_rx == rx && table.key_ry == ry && table.key_blur == blur &&
        table.key_subpixel == subpixel && table.key_max_w == max_w && table.key_max_h == max_h &&
        table.key_shape == shape)
        return true;
    table.key_rx = -1.0f;  // no radius
    if (shape < 0 || shape >= defocus_shapes) {
        std::printf("WARNING: Unknown defocus shape type: %d! \n", shape);
        return false;
    }
    ++circles_tables_built;
    const ShapeFactors factors = defocus_shape_factors(shape);
    const float ex = std::max(rx * factors.x, least_radius) + 0.5f, ey = std::max(ry * factors.y, least_radius) + 0.5f;
    const auto cells = [&](float end, int limit) {
        const float outer = std::min(end + 0.5f * blur, 1e6f);
        return std::clamp(static_cast<int>(std::ceil(outer + 0.5f)), 1, std::max(limit / 2, 1));
    };
    resize_table(cells(ex, max_w), cells(ey, max_h));
    table.weight_step = step_for_rows(2 * table.table_h - 1);
    for (int row = 0; row < table.table_h; ++row) {
        if (subpixel || blur > 0.0f)
            fill_row(row, shape, ex, ey, blur);
        else
            fill_whole_row(row, shape, ex, ey);
    }
    sum_weights();
    table.key_rx = rx;
    table.key_ry = ry;
    table.key_blur = blur;
    table.key_subpixel = subpixel;
    table.key_max_w = max_w;
    table.key_max_h = max_h;
    table.key_shape = shape;
    return true;
}

const circles_table& get_circles_table() { return table; }

float circles_table_weight(const circles_table& t, int left, int right, int down, int up) {
    const int l = std::min(left, t.table_w - 1), r = std::min(right, t.table_w - 1);
    const float* const below = t.row_weight + std::min(down, t.table_h - 1) * t.table_w;
    const float* const above = t.row_weight + std::min(up, t.table_h - 1) * t.table_w;
    return below[l] + below[r] + above[l] + above[r];
}

}  // namespace velloran
