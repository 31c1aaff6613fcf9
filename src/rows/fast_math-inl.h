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

constexpr float two_pi = 6.2831853071795865f;

// sin(2 pi a) for a in [-0.25, 0.25], error 2e-7; exactly +-1 at the ends and 0 at 0. Abramowitz and Stegun, Handbook
// of Mathematical Functions, 4.3.97, with the last coefficient one float nearer to 0 for the sake of the ends.
HWY_INLINE F sin_quarter(F a) {
    const F x = a * F(two_pi);
    const F z = x * x;
    F p = F(-0.0000000239f);
    p = p * z + F(0.0000027526f);
    p = p * z + F(-0.0001984090f);
    p = p * z + F(0.0083333315f);
    p = p * z + F(-0.1666666567f);
    return x + x * (z * p);
}

// sin and cos of a whole turn times t. t is first brought to [-0.5, 0.5], which is exact.
HWY_INLINE F sin_turns(F t) {
    const F r = t - round(t);
    const F a = abs(r);
    return with_sign(abs(sin_quarter(min(a, F(0.5f) - a))), r);
}
HWY_INLINE F cos_turns(F t) { return sin_quarter(F(0.25f) - abs(t - round(t))); }

// Radians to turns in [-0.5, 0.5]. 2 pi is taken off in three parts (Cody and Waite, Software Manual for the Elementary
// Functions), so that a thousand turns leave the error below 1e-6.
HWY_INLINE F turns_of_radians(F x) {
    const F n = round(x * F(1.0f / two_pi));
    const F r = ((x - n * F(6.28125f)) - n * F(1.9340515136718750e-3f)) - n * F(1.2556659146e-6f);
    return r * F(1.0f / two_pi);
}

// Base-2 logarithm in two parts: exponent, a whole number, and rest in [-0.5, 0.5] with a relative error of 2e-7.
struct Log2Parts {
    F exponent, rest;
};
// x above 0. The mantissa m is in [sqrt(1/2), sqrt(2)); log2(m) = 2 / ln 2 * atanh((m - 1) / (m + 1)).
HWY_INLINE Log2Parts log2_parts(F x) {
    const I sqrt_half(0x3f3504f3);
    const I t = bits_of(x) - sqrt_half;
    const F m = float_of_bits((t & I(0x007fffff)) + sqrt_half);
    const F s = (m - F(1.0f)) / (m + F(1.0f));
    const F z = s * s;
    F p = F(0.11111111f);
    p = p * z + F(0.14285714f);
    p = p * z + F(0.2f);
    p = p * z + F(0.33333333f);
    return {number(shr<23>(t)), (s + s * (z * p)) * F(2.8853900818f)};
}
HWY_INLINE F log2(F x) {
    const Log2Parts p = log2_parts(x);
    return p.exponent + p.rest;
}

// 2 to the power whole + rest, whole a whole number and rest of any size; relative error 2e-7 for |rest| up to 8.
// Beyond the range of a float: 0 or infinity. Taylor's series of exp.
HWY_INLINE F exp2_parts(F whole_part, F rest) {
    const F k = round(rest);
    const F r = (rest - k) * F(0.69314718056f);
    F p = F(1.0f / 5040.0f);
    p = p * r + F(1.0f / 720.0f);
    p = p * r + F(1.0f / 120.0f);
    p = p * r + F(1.0f / 24.0f);
    p = p * r + F(1.0f / 6.0f);
    p = p * r + F(0.5f);
    p = p * r + F(1.0f);
    p = p * r + F(1.0f);
    const I e = whole(clamp(whole_part + k, F(-127.0f), F(128.0f)));
    return p * float_of_bits(shl<23>(e + I(127)));
}

// base to the power, base at least 0. 0 to a negative power is infinite; to the power 0 anything gives 1. The whole
// part of the logarithm times the power is kept apart, where it is exact for powers of a few bits, so that the relative
// error is 4e-7 for powers up to 8.
HWY_INLINE F pow(F base, F power) {
    const Log2Parts log = log2_parts(max(base, F(1e-30f)));
    const F product = power * log.exponent;
    const F steps = round(product);
    const F value = exp2_parts(steps, (product - steps) + power * log.rest);
    const F of_zero = select(power > F(0.0f), F(0.0f), select(power == F(0.0f), F(1.0f), F(3e38f)));
    return select(base > F(0.0f), value, of_zero);
}

// Angle of (x, y) in turns, -0.5 to 0.5, error below 5e-8 of a turn; 0 for the zero vector.
HWY_INLINE F atan2_turns(F y, F x) {
    const F ax = abs(x), ay = abs(y);
    const F large = max(ax, ay);
    const F q = min(ax, ay) / select(large > F(0.0f), large, F(1.0f));
    F a = arc_tangent_turns(q);
    a = select(ay > ax, F(0.25f) - a, a);
    a = select(x < F(0.0f), F(0.5f) - a, a);
    return with_sign(a, y);
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();

#endif  // toggle
