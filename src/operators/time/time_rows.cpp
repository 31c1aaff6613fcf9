#include "operators/time/time_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/time/time_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/row_targets.h"

#include <hwy/cache_control.h>

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

HWY_INLINE int32_t held(int32_t v) {
    v = v < -fix_image_limit ? -fix_image_limit : v;
    return v > fix_image_limit ? fix_image_limit : v;
}
HWY_INLINE int32_t mixed(int32_t earlier, int32_t later, int32_t fraction) {
    return earlier + (((later - earlier) * fraction) >> fix_bits);
}

void mix(const int32_t* samples, int32_t fraction, FixPixel* out, int n) {
    int i = 0;
#if !ROW_TARGET_PLAIN
    constexpr int ahead = 2048;  // samples; rows of a plane follow each other
    // Samples mostly are so near each other that 16 bits hold four times their difference; and a product of that and
    // four times the fraction is shifted by 16 where its high half is taken.
    namespace hn = hwy::HWY_NAMESPACE;
    const hn::ScalableTag<int16_t> d;
    const hn::ScalableTag<int32_t> d32;
    const int lanes = static_cast<int>(hn::Lanes(d)), half = lanes / 2;
    const auto lowest = hn::Set(d, int16_t{-fix_image_limit}), nearest = hn::Set(d, int16_t{8191});
    const auto four_fractions = hn::Set(d, static_cast<int16_t>(fraction << 2));
    for (; i + lanes <= n; i += lanes) {
        hwy::Prefetch(out + i + ahead);
        const auto low = hn::DemoteTo(hn::Half<decltype(d)>(), hn::LoadU(d32, samples + i));
        const auto high = hn::DemoteTo(hn::Half<decltype(d)>(), hn::LoadU(d32, samples + i + half));
        const auto later = hn::Max(hn::Combine(d, high, low), lowest);
        const auto earlier = hn::LoadU(d, out + i), between = hn::SaturatedSub(later, earlier);
        if (!hn::AllFalse(d, hn::Gt(hn::Max(between, hn::Neg(between)), nearest))) {
            for (int k = i; k < i + lanes; ++k)
                out[k] = static_cast<FixPixel>(mixed(out[k], held(samples[k]), fraction));
            continue;
        }
        hn::StoreU(hn::Add(earlier, hn::MulHigh(hn::ShiftLeft<2>(between), four_fractions)), d, out + i);
    }
#endif
    for (; i < n; ++i) out[i] = static_cast<FixPixel>(mixed(out[i], held(samples[i]), fraction));
}

void take(const int32_t* samples, const int32_t* times, int32_t frame, FixPixel* out, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<FixPixel>(times[i] >> fix_bits == frame ? held(samples[i]) : out[i]);
}

void take_or_mix(const int32_t* samples, const int32_t* times, int32_t frame, FixPixel* out, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t whole = times[i] >> fix_bits, fraction = times[i] & (fix_scale - 1);
        const int32_t sample = held(samples[i]), before = out[i];
        // A fraction of 0 of the frame behind is not looked at.
        const int32_t later = whole == frame - 1 ? mixed(before, sample, fraction) : before;
        out[i] = static_cast<FixPixel>(whole == frame ? sample : later);
    }
}

void hold(int32_t* times, int32_t most, int32_t* low, int32_t* high, int n) {
    int32_t least = *low, greatest = *high;
    for (int i = 0; i < n; ++i) {
        int32_t t = times[i] < 0 ? 0 : times[i];
        t = t > most ? most : t;
        times[i] = t;
        least = t < least ? t : least;
        greatest = t > greatest ? t : greatest;
    }
    *low = least;
    *high = greatest;
}

constexpr TimeRows time_table = {mix, take, take_or_mix, hold};

}  // namespace
const TimeRows* time_rows_of_target() { return &time_table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(time_rows_of_target);
const TimeRows& time_row_functions() { return *HWY_DYNAMIC_DISPATCH(time_rows_of_target)(); }
}  // namespace velloran
#endif
