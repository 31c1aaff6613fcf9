#include "bench/multiply_adds.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "bench/multiply_adds.cpp"
#include "hwy/foreach_target.h"
// After foreach_target.h.
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran_bench::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

float multiply_adds_of_target(size_t count) {
    const hn::ScalableTag<float> d;
    constexpr int chains = 12;
    const auto factor = hn::Set(d, 0.9999f), term = hn::Set(d, 0.5f);
    // Chains that begin alike would be one for the compiler.
    auto a = hn::Set(d, 1.0f), b = hn::Set(d, 2.0f), c = hn::Set(d, 3.0f), e = hn::Set(d, 4.0f);
    auto f = hn::Set(d, 5.0f), g = hn::Set(d, 6.0f), h = hn::Set(d, 7.0f), i = hn::Set(d, 8.0f);
    auto j = hn::Set(d, 9.0f), k = hn::Set(d, 10.0f), l = hn::Set(d, 11.0f), m = hn::Set(d, 12.0f);
    const size_t steps = count / (chains * hn::MaxLanes(d));
    for (size_t step = 0; step < steps; ++step) {
        a = hn::MulAdd(a, factor, term);
        b = hn::MulAdd(b, factor, term);
        c = hn::MulAdd(c, factor, term);
        e = hn::MulAdd(e, factor, term);
        f = hn::MulAdd(f, factor, term);
        g = hn::MulAdd(g, factor, term);
        h = hn::MulAdd(h, factor, term);
        i = hn::MulAdd(i, factor, term);
        j = hn::MulAdd(j, factor, term);
        k = hn::MulAdd(k, factor, term);
        l = hn::MulAdd(l, factor, term);
        m = hn::MulAdd(m, factor, term);
    }
    const auto all = hn::Add(hn::Add(hn::Add(a, b), hn::Add(c, e)),
                             hn::Add(hn::Add(hn::Add(f, g), hn::Add(h, i)), hn::Add(hn::Add(j, k), hn::Add(l, m))));
    return hn::GetLane(all);
}

}  // namespace velloran_bench::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran_bench {
HWY_EXPORT(multiply_adds_of_target);
float multiply_adds(size_t count) { return HWY_DYNAMIC_DISPATCH(multiply_adds_of_target)(count); }
}  // namespace velloran_bench
#endif
