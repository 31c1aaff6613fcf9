// The hash of support/hash.h on registers of numbers; lines and tables in registers.

#if defined(VELLORAN_NOISE_HASH_LANES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef VELLORAN_NOISE_HASH_LANES_INL_H
#undef VELLORAN_NOISE_HASH_LANES_INL_H
#else
#define VELLORAN_NOISE_HASH_LANES_INL_H
#endif

#include "rows/lanes-inl.h"
#include "support/hash.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

template <int bits>
HWY_INLINE I logical_shr(I a) {
    const hn::RebindToUnsigned<DI> du;
    return hn::BitCast(DI(), hn::ShiftRight<bits>(hn::BitCast(du, a.v)));
}
HWY_INLINE I gather(const int32_t* table, I index) { return hn::GatherIndex(DI(), table, index.v); }
HWY_INLINE F gather(const float* table, I index) { return hn::GatherIndex(DF(), table, index.v); }
// first, first + 1, ...
HWY_INLINE I count_from(int32_t first) { return hn::Iota(DI(), first); }
HWY_INLINE I load(const int32_t* at) { return hn::LoadU(DI(), at); }
HWY_INLINE void store(I value, int32_t* at) { hn::StoreU(value.v, DI(), at); }

// The samples from in on, of which there are n: if they are fewer than a register holds, the last one repeats.
HWY_INLINE I load_some(const int32_t* in, int n) {
    if (n >= lane_count) return load(in);
    HWY_ALIGN int32_t rest[lane_count];
    for (int k = 0; k < lane_count; ++k) rest[k] = in[k < n ? k : n - 1];
    return hn::Load(DI(), rest);
}
HWY_INLINE void store_some(I value, int32_t* out, int n) {
    if (n >= lane_count) {
        store(value, out);
        return;
    }
    HWY_ALIGN int32_t rest[lane_count];
    hn::Store(value.v, DI(), rest);
    for (int k = 0; k < n; ++k) out[k] = rest[k];
}

// Truncates numbers that are below 2^30 without their sign, and so need no holding.
HWY_INLINE I whole_of_small(F a) {
#if HWY_TARGET == HWY_AVX3
    return hn::Vec<DI>{_mm512_cvttps_epi32(a.v.raw)};
#else
    return whole(a);
#endif
}

HWY_INLINE I random_entry(I index) { return gather(reinterpret_cast<const int32_t*>(random_table.data()), index); }
HWY_INLINE I bit_hash_lanes(I x) {
    for (int round = 0; round < 4; ++round) x = logical_shr<8>(x) + random_entry(x & I(255));
    return x;
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();

#endif  // toggle
