#include "operators/polygons/coverage_rows.h"

#include "operators/polygons/polygon_buffer.h"

#include <cstddef>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/polygons/coverage_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

HWY_INLINE float coverage_of(float sum) {
    const float size = sum < 0.0f ? -sum : sum;
    return size < 1.0f ? size : 1.0f;
}

constexpr int block = 16;

HWY_INLINE bool untouched(const float* areas) {
    uint32_t bits[block];
    std::memcpy(bits, areas, sizeof bits);
    uint32_t any = 0;
    for (int i = 0; i < block; ++i) any |= bits[i];
    return any == 0;
}

// Most of a row is crossed by no edge, and there the sum stands still.
void finish(float* row, int n) {
    float sum = 0.0f;
    int x = 0;
    for (; x + block <= n; x += block) {
        if (untouched(row + x)) {
            const float coverage = coverage_of(sum);
            if (coverage != 0.0f)
                for (int i = 0; i < block; ++i) row[x + i] = coverage;
            continue;
        }
        for (int i = 0; i < block; ++i) {
            sum += row[x + i];
            row[x + i] = coverage_of(sum);
        }
    }
    for (; x < n; ++x) {
        sum += row[x];
        row[x] = coverage_of(sum);
    }
}

HWY_INLINE FixPixel painted(float coverage, int32_t color) {
    return static_cast<FixPixel>((static_cast<int32_t>(coverage * 4096.0f) * color) >> fix_bits);
}

void finish_painted(const float* row, int n, FixPixel* const* out, const int32_t* colors, int channels) {
    float sum = 0.0f;
    int x = 0;
    for (; x + block <= n; x += block) {
        if (untouched(row + x)) {
            const float coverage = coverage_of(sum);
            for (int c = 0; c < channels; ++c) {
                const FixPixel color = painted(coverage, colors[c]);
                for (int i = 0; i < block; ++i) out[c][x + i] = color;
            }
            continue;
        }
        float coverage[block];
        for (int i = 0; i < block; ++i) {
            sum += row[x + i];
            coverage[i] = coverage_of(sum);
        }
        for (int c = 0; c < channels; ++c)
            for (int i = 0; i < block; ++i) out[c][x + i] = painted(coverage[i], colors[c]);
    }
    for (; x < n; ++x) {
        sum += row[x];
        for (int c = 0; c < channels; ++c) out[c][x] = painted(coverage_of(sum), colors[c]);
    }
}

void add_slope(float* at, int n, double column, double x_low, double height_per_x, double before, float sign) {
    const auto area = [=](int i) HWY_ATTR { return in_coverage_units((column + i + 0.5 - x_low) * height_per_x); };
    at[0] += sign * static_cast<float>(area(0) - before);
    INDEPENDENT_ITERATIONS
    for (int i = 1; i < n; ++i) at[i] += sign * static_cast<float>(area(i) - area(i - 1));
}

// A number at most as large; of such as an int holds.
HWY_INLINE double floor_of(double v) {
    const double whole = static_cast<double>(static_cast<int32_t>(v));
    return whole > v ? whole - 1.0 : whole;
}

// The rows of a block are worked together up to the areas, and these are added row by row. Which columns an edge passes
// through nobody can foresee: so three of them are worked out, and what is behind the last holds the whole height.
int add_steep_rows(float* rows, int width, int left, int n, const SteepEdge& edge) {
    constexpr int most_columns = 3;
    const double x0 = edge.x0, y0 = edge.y0, slope = edge.slope, height_per_x = edge.height_per_x;
    for (int done = 0; done < n; done += block) {
        double first[block], last[block], areas[most_columns][block];
        INDEPENDENT_ITERATIONS
        for (int k = 0; k < block; ++k) {
            const double y = edge.row + done + k, x = x0 + (y - y0) * slope, next = x0 + (y + 1.0 - y0) * slope;
            const double x_low = x < next ? x : next, x_high = x < next ? next : x;
            first[k] = floor_of(x_low);
            last[k] = floor_of(x_high);
            for (int j = 0; j < most_columns; ++j) {
                const double i = first[k] + j, right = i + 1 - x_low, beyond = x_high - i;
                const bool ends = x_high <= i + 1, begins = x_low >= i;
                const double ending =
                    begins ? i + 1 - 0.5 * (x_low + x_high) : 1.0 - 0.5 * beyond * beyond * height_per_x;
                const double passing = begins ? 0.5 * right * right * height_per_x : (i + 0.5 - x_low) * height_per_x;
                areas[j][k] = i > last[k] ? 1.0 : in_coverage_units(ends ? ending : passing);
            }
        }
        for (int k = 0; k < block; ++k) {
            if (done + k == n) return n;
            const double column = first[k] - left;
            if (!(column >= 0 && column + most_columns < width && last[k] - first[k] < most_columns)) return done + k;
            float* const at = rows + static_cast<ptrdiff_t>(done + k) * width + static_cast<int>(column);
            at[0] += edge.sign * static_cast<float>(areas[0][k]);
            at[1] += edge.sign * static_cast<float>(areas[1][k] - areas[0][k]);
            at[2] += edge.sign * static_cast<float>(areas[2][k] - areas[1][k]);
            at[3] += edge.sign * static_cast<float>(1.0 - areas[2][k]);
        }
    }
    return n;
}

constexpr CoverageRows table = {finish, finish_painted, add_slope, add_steep_rows};

}  // namespace
const CoverageRows* coverage_rows_of_target() { return &table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(coverage_rows_of_target);
const CoverageRows& coverage_rows() { return *HWY_DYNAMIC_DISPATCH(coverage_rows_of_target)(); }
}  // namespace velloran
#endif
