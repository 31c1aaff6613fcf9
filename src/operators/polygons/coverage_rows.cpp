#include "operators/polygons/coverage_rows.h"

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

void paint(const float* coverage, FixPixel* out, int32_t color, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<FixPixel>((static_cast<int32_t>(coverage[i] * 4096.0f) * color) >> fix_bits);
}

constexpr CoverageRows table = {finish, paint};

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
