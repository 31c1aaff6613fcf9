#include "operators/defocus/aperture_rows.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/defocus/aperture_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

void pair(const FixPixel* in, int32_t* out, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<int32_t>(static_cast<uint16_t>(in[i]) | static_cast<uint32_t>(in[i + 1]) << 16);
}

#if ROW_TARGET_PLAIN
void changes(const TapPlace* taps, int n_taps, int n, int32_t* out) {
    std::fill(out, out + n, 0);
    for (int t = 0; t < n_taps; ++t) {
        const int32_t* const from = taps[t].from;
        const int32_t w0 = static_cast<int16_t>(taps[t].weights & 0xffff),
                      w1 = static_cast<int16_t>(taps[t].weights >> 16);
        for (int i = 0; i < n; ++i) out[i] += static_cast<int16_t>(from[i] & 0xffff) * w0 + (from[i] >> 16) * w1;
    }
}
#else
constexpr int tap_vectors = 8;

// The sums of a block stay in registers while all taps go by.
HWY_ATTR void changes(const TapPlace* taps, int n_taps, int n, int32_t* out) {
    const hn::ScalableTag<int32_t> d;
    const hn::Repartition<int16_t, decltype(d)> d16;
    const hn::Repartition<uint32_t, decltype(d)> d32;
    using Vec = hn::VFromD<decltype(d)>;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(d)), step = tap_vectors * lanes;
    static_assert(aperture_block % step == 0);
    for (int i = 0; i < n; i += step) {
        Vec sums[tap_vectors], others[tap_vectors];  // some machines add a part of the products up elsewhere
#pragma GCC unroll 8
        for (int v = 0; v < tap_vectors; ++v) sums[v] = others[v] = hn::Zero(d);
        for (int t = 0; t < n_taps; ++t) {
            const int32_t* const from = taps[t].from + i;
            const auto weights = hn::BitCast(d16, hn::Set(d32, taps[t].weights));
#pragma GCC unroll 8
            for (int v = 0; v < tap_vectors; ++v) {
                const auto pairs = hn::BitCast(d16, hn::LoadU(d, from + v * lanes));
                sums[v] = hn::ReorderWidenMulAccumulate(d, pairs, weights, sums[v], others[v]);
            }
        }
#pragma GCC unroll 8
        for (int v = 0; v < tap_vectors; ++v)
            hn::StoreU(hn::RearrangeToOddPlusEven(sums[v], others[v]), d, out + i + v * lanes);
    }
}
#endif

void divide(const float* sums, const float* inverse, FixPixel* out, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        float v = sums[i] * inverse[i];
        v += v < 0.0f ? -0.5f : 0.5f;
        v = v < -32767.0f ? -32767.0f : v;
        v = v > 32767.0f ? 32767.0f : v;
        out[i] = static_cast<FixPixel>(static_cast<int32_t>(v));
    }
}

constexpr ApertureRows aperture_table = {pair, changes, divide};

}  // namespace
const ApertureRows* aperture_rows_of_target() { return &aperture_table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(aperture_rows_of_target);
const ApertureRows& aperture_rows() { return *HWY_DYNAMIC_DISPATCH(aperture_rows_of_target)(); }
}  // namespace velloran
#endif
