// Rows of colour. Hue, saturation and value after A. R. Smith, "Color Gamut Transform Pairs", SIGGRAPH 1978; hue in
// turns, red at 0, green at 1/3.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/pixel/color_rows.cpp"
#include "hwy/foreach_target.h"
// After foreach_target.h.
#include "operators/pixel/luma.h"
#include "operators/pixel/row_fills-inl.h"
#include "rows/lanes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {
#include "operators/pixel/color_bodies.inc"

}  // namespace

void fill_color_rows(RowTable& table) { fill_color_into(table); }

}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();
