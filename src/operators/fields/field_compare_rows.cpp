#include "operators/fields/field_compare_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/fields/field_compare_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

// Sums of block b: the even line, the odd line, and the odd lines at the even line's place.
struct BlockSums {
    int64_t even, odd, between;
};
HWY_INLINE BlockSums sums_of_block(const LinePair& lines, int b) {
    BlockSums sums = {0, 0, 0};
    for (int i = 4 * b; i < 4 * b + 4; ++i) {
        sums.even += lines.even[i];
        sums.odd += lines.odd[i];
        sums.between += (lines.odd[i] + lines.odd_below[i]) >> 1;
    }
    return sums;
}

void add_blocks(const LinePair& one, const LinePair& two, int first, int end, uint64_t* sums) {
    const auto add = [sums](FieldSum which, int64_t difference) {
        sums[which] += static_cast<uint64_t>(difference * difference);
    };
    for (int b = first; b < end; ++b) {
        const BlockSums s1 = sums_of_block(one, b), s2 = sums_of_block(two, b);
        add(sum_e1_o1, s1.even - s1.between);
        add(sum_e1_e2, s1.even - s2.even);
        add(sum_e1_o2, s1.even - s2.between);
        add(sum_o1_e2, s1.between - s2.even);
        add(sum_o1_o2, s1.odd - s2.odd);
        add(sum_e2_o2, s2.even - s2.between);
    }
}

#if ROW_TARGET_PLAIN

void add_differences(const LinePair& one, const LinePair& two, int blocks, uint64_t* sums) {
    add_blocks(one, two, 0, blocks, sums);
}

#else

namespace hn = hwy::HWY_NAMESPACE;

// A block is four samples of 16 bits, so it fills 64 bits: its sum stands in both 32-bit halves of them.
const hn::ScalableTag<int16_t> d16;
const hn::RepartitionToWide<decltype(d16)> d32;
const hn::RepartitionToWide<decltype(d32)> d64;
using V16 = hn::Vec<decltype(d16)>;
using V32 = hn::Vec<decltype(d32)>;
using V64 = hn::Vec<decltype(d64)>;

HWY_INLINE V32 sum_of_four(V16 samples) {
    const V32 pairs = hn::BitCast(d32, samples);
    const V32 sums = hn::Add(hn::ShiftRight<16>(hn::ShiftLeft<16>(pairs)), hn::ShiftRight<16>(pairs));
    return hn::Add(sums, hn::Shuffle2301(sums));
}
// The mean rounded down, which does not leave 16 bits.
HWY_INLINE V16 mean(V16 a, V16 b) { return hn::Add(hn::And(a, b), hn::ShiftRight<1>(hn::Xor(a, b))); }
HWY_INLINE V64 plus_square(V64 sum, V32 a, V32 b) {
    const V32 difference = hn::Sub(a, b);
    return hn::Add(sum, hn::MulEven(difference, difference));
}

void add_differences(const LinePair& one, const LinePair& two, int blocks, uint64_t* sums) {
    const int lanes = static_cast<int>(hn::Lanes(d64));
    V64 e1_o1 = hn::Zero(d64), e1_e2 = e1_o1, e1_o2 = e1_o1, o1_e2 = e1_o1, o1_o2 = e1_o1, e2_o2 = e1_o1;
    int b = 0;
    for (; b + lanes <= blocks; b += lanes) {
        const int i = 4 * b;
        const V16 odd1 = hn::LoadU(d16, one.odd + i), odd2 = hn::LoadU(d16, two.odd + i);
        const V32 e1 = sum_of_four(hn::LoadU(d16, one.even + i)), e2 = sum_of_four(hn::LoadU(d16, two.even + i));
        const V32 b1 = sum_of_four(mean(odd1, hn::LoadU(d16, one.odd_below + i)));
        const V32 b2 = sum_of_four(mean(odd2, hn::LoadU(d16, two.odd_below + i)));
        e1_o1 = plus_square(e1_o1, e1, b1);
        e1_e2 = plus_square(e1_e2, e1, e2);
        e1_o2 = plus_square(e1_o2, e1, b2);
        o1_e2 = plus_square(o1_e2, b1, e2);
        o1_o2 = plus_square(o1_o2, sum_of_four(odd1), sum_of_four(odd2));
        e2_o2 = plus_square(e2_o2, e2, b2);
    }
    const auto add = [sums](FieldSum which, V64 v) {
        alignas(64) int64_t each[HWY_MAX_BYTES / 8];
        hn::Store(v, d64, each);
        for (size_t i = 0; i < hn::Lanes(d64); ++i) sums[which] += static_cast<uint64_t>(each[i]);
    };
    add(sum_e1_o1, e1_o1);
    add(sum_e1_e2, e1_e2);
    add(sum_e1_o2, e1_o2);
    add(sum_o1_e2, o1_e2);
    add(sum_o1_o2, o1_o2);
    add(sum_e2_o2, e2_o2);
    add_blocks(one, two, b, blocks, sums);
}

#endif

constexpr FieldCompareRows field_compare_table = {add_differences};

}  // namespace
const FieldCompareRows* field_compare_rows_of_target() { return &field_compare_table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(field_compare_rows_of_target);
const FieldCompareRows& field_compare_rows() { return *HWY_DYNAMIC_DISPATCH(field_compare_rows_of_target)(); }
}  // namespace velloran
#endif
