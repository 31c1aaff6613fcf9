// Rows of elementary functions: samples to floats, the function, and back by truncation.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/pixel/function_rows.cpp"
#include "hwy/foreach_target.h"
// After foreach_target.h.
#include "operators/pixel/row_fills-inl.h"
#include "rows/fast_math-inl.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {
#include "operators/pixel/function_bodies.inc"

}  // namespace

void fill_function_rows(RowTable& table) { fill_function_into(table); }

}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();
