// Elementary functions on registers of floats: polynomials in a fixed order of operations, the same bits on every
// target. Errors are relative to the exact function of the float given; each is well below 1/4096 where pictures live.

#if defined(VELLORAN_PIXEL_FAST_MATH_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef VELLORAN_PIXEL_FAST_MATH_INL_H
#undef VELLORAN_PIXEL_FAST_MATH_INL_H
#else
#define VELLORAN_PIXEL_FAST_MATH_INL_H
#endif

#include "rows/arc_tangent-inl.h"
#include "rows/lanes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {
#include "rows/fast_math.inc"

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();

#endif  // toggle
