#ifndef VELLORAN_FILM_IMAGE_ROWS_ONCE
#define VELLORAN_FILM_IMAGE_ROWS_ONCE
#include "operators/film/film_image_rows.h"

#include <algorithm>
#endif

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/film/film_image_rows.cpp"
#include "hwy/foreach_target.h"
// After foreach_target.h.
#include "rows/row_targets.h"

#include "operators/noise/hash_lanes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

HWY_INLINE FixPixel held(int32_t v) {
    v = v < -fix_image_limit ? -fix_image_limit : v;
    v = v > fix_image_limit ? fix_image_limit : v;
    return static_cast<FixPixel>(v);
}

// Places first, so that they are vectorised; the loads that follow are as fast as they get one by one.
void tone(FixPixel* p, const FixPixel* table, int n) {
    constexpr int block = 256;
    uint16_t places[block];
    for (int done = 0; done < n; done += block) {
        const int some = n - done < block ? n - done : block;
        FixPixel* const at = p + done;
        INDEPENDENT_ITERATIONS
        for (int i = 0; i < some; ++i) {
            const FixPixel v = at[i] < 0 ? FixPixel{0} : at[i];
            places[i] = static_cast<uint16_t>(v > fix_scale ? FixPixel{fix_scale} : v);
        }
        for (int i = 0; i < some; ++i) at[i] = table[places[i]];
    }
}

void add_glow(FixPixel* p, const FixPixel* glow, int32_t keep, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) p[i] = held(((p[i] * keep) >> fix_bits) + glow[i]);
}

void add(FixPixel* p, const FixPixel* q, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) p[i] = held(p[i] + q[i]);
}

// Groups that are hashed at a time, with room for those of a whole register more.
constexpr int grain_groups = 64;
constexpr int grain_samples = 4 * grain_groups;

// Their noise, a byte for each sample: machines are little-endian, so that the lowest byte is the first.
HWY_INLINE const uint8_t* hash_groups(uint32_t sequence, int groups, int32_t* hashes) {
    for (int g = 0; g < groups; g += lane_count)
        store(bit_hash_lanes(shl<2>(count_from(g)) + I(static_cast<int32_t>(sequence))), hashes + g);
    return reinterpret_cast<const uint8_t*>(hashes);
}

constexpr int room_for_groups = grain_groups + 1 + lane_count;

HWY_INLINE int32_t one_grain(FixPixel on, const float* amounts, uint8_t byte) {
    int32_t level = on >> 6;
    level = level < 0 ? 0 : level;
    level = level > grain_levels - 1 ? grain_levels - 1 : level;
    return held(static_cast<int32_t>(static_cast<float>(byte * 16 - 2048) * amounts[level]));
}

template <bool added>
HWY_INLINE void work_grain(const FixPixel* p, FixPixel* out, const float* amounts, GrainRow row, int n) {
    HWY_ALIGN int32_t hashes[room_for_groups];
    for (int done = 0; done < n; done += grain_samples) {
        const int some = n - done < grain_samples ? n - done : grain_samples;
        const uint8_t* const bytes =
            hash_groups(row.sequence + static_cast<uint32_t>(done), (row.skip + some + 3) / 4, hashes) + row.skip;
        int i = 0;
#if !ROW_TARGET_PLAIN
        const hn::Rebind<int16_t, DI> samples;
        const hn::Rebind<uint8_t, DI> noises;
        const I limit(fix_image_limit), least(-fix_image_limit);
        for (; i + lane_count <= some; i += lane_count) {
            const I on = I(hn::PromoteTo(DI(), hn::LoadU(samples, p + done + i)));
            const I level = min(max(shr<6>(on), I(0)), I(grain_levels - 1));
            const I noise = shl<4>(I(hn::PromoteTo(DI(), hn::LoadU(noises, bytes + i)))) - I(2048);
            I grain = min(max(whole(number(noise) * gather(amounts, level)), least), limit);
            if constexpr (added) grain = min(max(on + grain, least), limit);
            hn::StoreU(hn::DemoteTo(samples, grain.v), samples, out + done + i);
        }
#endif
        for (; i < some; ++i) {
            const int32_t grain = one_grain(p[done + i], amounts, bytes[i]);
            out[done + i] = held(added ? p[done + i] + grain : grain);
        }
    }
}

void make_grain(const FixPixel* p, FixPixel* grain, const float* amounts, GrainRow row, int n) {
    work_grain<false>(p, grain, amounts, row, n);
}
void add_grain(FixPixel* p, const float* amounts, GrainRow row, int n) { work_grain<true>(p, p, amounts, row, n); }

constexpr FilmImageRows rows = {tone, add_glow, make_grain, add_grain, add};

}  // namespace

const FilmImageRows* film_image_rows_of_target() { return &rows; }

}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(film_image_rows_of_target);
const FilmImageRows& film_image_rows() { return *HWY_DYNAMIC_DISPATCH(film_image_rows_of_target)(); }
}  // namespace velloran
#endif
