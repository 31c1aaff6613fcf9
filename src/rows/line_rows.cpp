#include "rows/line_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "rows/line_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

void samples_to_line(const FixPixel* in, int32_t* out, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) out[i] = in[i];
}

void line_to_samples(const int32_t* in, FixPixel* out, int n, int limit) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t low = in[i] < -limit ? -limit : in[i];
        out[i] = static_cast<FixPixel>(low > limit ? limit : low);
    }
}

void average(const int32_t* a, const int32_t* b, int32_t* out, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) out[i] = (a[i] + b[i]) >> 1;
}

constexpr LineRows rows = {samples_to_line, line_to_samples, average};

}  // namespace
const LineRows* line_rows_of_target() { return &rows; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(line_rows_of_target);
const LineRows& line_rows() { return *HWY_DYNAMIC_DISPATCH(line_rows_of_target)(); }
}  // namespace velloran
#endif
