#include "operators/blur/mask_rows.h"

#include <cmath>
#include <cstdint>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/blur/mask_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

void apply_mask(FixPixel* p, const FixPixel* m, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t mask = m[i] >= fix_max ? fix_scale : m[i] < 0 ? 0 : m[i];
        p[i] = static_cast<FixPixel>((p[i] * mask) >> fix_bits);
    }
}

// In double precision: whole numbers below 2^40 and their products by a sample are exact, and so is the truncated
// quotient of two samples.
void resolve_mask(FixPixel* c, const FixPixel* p, const FixPixel* b, const FixPixel* m, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t mask = m[i], blurred = b[i], old = c[i];
        const bool divide = blurred > 0 && blurred < fix_max;
        const double divisor = divide ? blurred : fix_scale;
        const double whole = std::trunc(static_cast<double>(p[i] * fix_scale) / divisor);
        const double mixed = old + std::floor((whole - old) * mask * (1.0 / fix_scale));
        double v = mask < fix_max ? mixed : whole;
        v = v < -fix_image_limit ? -fix_image_limit : v;
        v = v > fix_image_limit ? fix_image_limit : v;
        c[i] = mask > 0 ? static_cast<FixPixel>(static_cast<int32_t>(v)) : static_cast<FixPixel>(old);
    }
}

constexpr MaskRows mask_table = {apply_mask, resolve_mask};

}  // namespace
const MaskRows* mask_rows_of_target() { return &mask_table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(mask_rows_of_target);
const MaskRows& mask_rows() { return *HWY_DYNAMIC_DISPATCH(mask_rows_of_target)(); }
}  // namespace velloran
#endif
