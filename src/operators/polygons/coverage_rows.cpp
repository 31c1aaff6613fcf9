#include "operators/polygons/coverage_rows.h"

#include "operators/polygons/polygon_buffer.h"

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

constexpr CoverageRows table = {finish, finish_painted, add_slope};

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
