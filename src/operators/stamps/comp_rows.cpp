#include "operators/stamps/comp_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/stamps/comp_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

// Look-ups of single 16-bit samples are loads of their own on every machine, so the loop stays plain.
void cover(const CoverRow& row, int32_t* out, int n) {
    const FixPixel *const near = row.near, *const far = row.far;
    const int32_t weight = row.far_weight, opacity = row.opacity;
    int64_t at = row.first;
    for (int i = 0; i < n; ++i, at += row.step) {
        const auto x = static_cast<int32_t>(at >> 32);
        const auto f = static_cast<int32_t>(at >> 20) & 4095;
        const int32_t a = near[x] + ((near[x + 1] - near[x]) * f >> 12);
        const int32_t b = far[x] + ((far[x + 1] - far[x]) * f >> 12);
        const int32_t s = a + ((b - a) * weight >> 12);
        out[i] = (s + (s >> 11)) * opacity >> 12;  // 4095, white, covers all
    }
}

void comp(FixPixel* p, const int32_t* covered, int32_t color, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) p[i] = static_cast<FixPixel>(p[i] + ((color - p[i]) * covered[i] >> 12));
}

constexpr CompRows comp_table = {cover, comp};

}  // namespace
const CompRows* comp_rows_of_target() { return &comp_table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(comp_rows_of_target);
const CompRows& comp_rows() { return *HWY_DYNAMIC_DISPATCH(comp_rows_of_target)(); }
}  // namespace velloran
#endif
