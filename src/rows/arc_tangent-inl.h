// The arc tangent, for rows in registers (fast_math-inl.h) and for plain loops over floats alike.

#if defined(VELLORAN_ROWS_ARC_TANGENT_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef VELLORAN_ROWS_ARC_TANGENT_INL_H
#undef VELLORAN_ROWS_ARC_TANGENT_INL_H
#else
#define VELLORAN_ROWS_ARC_TANGENT_INL_H
#endif

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

// Arc tangent of q, 0 to 1, in turns; error below 3e-8 of a turn. Abramowitz and Stegun, Handbook of Mathematical
// Functions, 4.4.49. T is float or a register of floats.
template <class T>
HWY_INLINE T arc_tangent_turns(T q) {
    const T z = q * q;
    T p = T(0.0028662257f);
    p = p * z + T(-0.0161657367f);
    p = p * z + T(0.0429096138f);
    p = p * z + T(-0.0752896400f);
    p = p * z + T(0.1065626393f);
    p = p * z + T(-0.1420889944f);
    p = p * z + T(0.1999355085f);
    p = p * z + T(-0.3333314528f);
    return (q + q * (z * p)) * T(0.15915494309f);
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();

#endif  // toggle
