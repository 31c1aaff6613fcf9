#include "operators/depth/z_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/depth/z_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

HWY_INLINE FixPixel held(float v) {
    v += v < 0.0f ? -0.5f : 0.5f;
    v = v < -32767.0f ? -32767.0f : v;
    v = v > 32767.0f ? 32767.0f : v;
    return static_cast<FixPixel>(static_cast<int32_t>(v));
}

HWY_INLINE int32_t within_all(float v) {
    v = v < 0.0f ? 0.0f : v;
    return static_cast<int32_t>(v > 4096.0f ? 4096.0f : v);
}

void mask(const FixPixel* depth, FixPixel* mask, const z_mask& m, int n) {
    const float rise_scale = m.rise_scale, rise_offset = m.rise_offset, fall_scale = m.fall_scale,
                fall_offset = m.fall_offset;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        float z = static_cast<float>(depth[i]);
        z = z < 0.0f ? 0.0f : z;
        z = z > 4096.0f ? 4096.0f : z;
        const int32_t rise = within_all(z * rise_scale + rise_offset);
        const int32_t fall = 4096 - within_all(z * fall_scale + fall_offset);
        mask[i] = static_cast<FixPixel>(rise < fall ? rise : fall);
    }
}

void multiply(const FixPixel* in, const FixPixel* m, FixPixel* out, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) out[i] = static_cast<FixPixel>((in[i] * m[i] + 2048) >> fix_bits);
}

// How much of what is behind stays.
HWY_INLINE float stays(int32_t matte, int32_t covered) {
    const float room = static_cast<float>(4096 - matte), there = static_cast<float>(covered);
    return room < there ? room / there : 1.0f;
}

void over(FixPixel* behind, const FixPixel* slice, const FixPixel* matte, const FixPixel* covered, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i)
        behind[i] = held(static_cast<float>(behind[i]) * stays(matte[i], covered[i]) + static_cast<float>(slice[i]));
}

void over_sharp(FixPixel* behind, const FixPixel* picture, const FixPixel* matte, const FixPixel* covered, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i)
        behind[i] = held(static_cast<float>(behind[i]) * stays(matte[i], covered[i]) +
                         static_cast<float>(picture[i] * matte[i]) * (1.0f / 4096.0f));
}

void cover(FixPixel* covered, const FixPixel* matte, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t sum = covered[i] + matte[i];
        covered[i] = static_cast<FixPixel>(sum > 4096 ? 4096 : sum);
    }
}

// How sure the colour of such a share is.
HWY_INLINE float surety(int32_t share) {
    const int32_t held_share = share < 0 ? 0 : share > sure_share ? sure_share : share;
    return static_cast<float>(held_share) * (1.0f / sure_share);
}

// The colour of what covers a part of a pixel.
HWY_INLINE float whole(float v, int32_t there, float picture) {
    return picture + (v * 4096.0f / static_cast<float>(there > 0 ? there : 1) - picture) * surety(there);
}

// Most of a picture is covered wholly or not at all: stretches of so many samples are looked at first.
constexpr int stretch = 64;

struct Range {
    int32_t least, most;
};
HWY_INLINE Range range_of(const FixPixel* p, int n) {
    FixPixel least = p[0], most = p[0];
    for (int i = 0; i < n; ++i) {
        least = p[i] < least ? p[i] : least;
        most = p[i] > most ? p[i] : most;
    }
    return {least, most};
}

template <class Body>
HWY_INLINE void each_stretch(int n, const Body& body) {
    for (int i = 0; i < n; i += stretch) body(i, n - i < stretch ? n - i : stretch);
}

HWY_INLINE void settle_stretch(FixPixel* const* sums, const FixPixel* const* pictures, int n_sums, FixPixel* covered,
                               int at, int n) {
    constexpr int factor = 4096 / sure_share;
    const Range range = range_of(covered + at, n);
    for (int c = 0; c < n_sums && range.least < 4095; ++c) {
        FixPixel* const sum = sums[c] + at;
        const FixPixel *const picture = pictures[c] + at, *const cover = covered + at;
        if (range.most == 0 && range.least == 0) {
            for (int i = 0; i < n; ++i) sum[i] = 0;
            continue;
        }
        INDEPENDENT_ITERATIONS
        for (int i = 0; i < n; ++i) {
            const int32_t there = cover[i], grown = there * factor > 4096 ? 4096 : there * factor;
            const float color = whole(static_cast<float>(sum[i]), there, static_cast<float>(picture[i]));
            sum[i] = there < 4095 ? held(color * static_cast<float>(grown) * (1.0f / 4096.0f)) : sum[i];
        }
    }
    FixPixel* const cover = covered + at;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) cover[i] = static_cast<FixPixel>(cover[i] * factor > 4096 ? 4096 : cover[i] * factor);
}
void settle(FixPixel* const* sums, const FixPixel* const* pictures, int n_sums, FixPixel* covered, int n) {
    each_stretch(n, [&](int at, int count) { settle_stretch(sums, pictures, n_sums, covered, at, count); });
}

HWY_INLINE void resolve_alone(FixPixel* sum, const FixPixel* covered, const FixPixel* picture, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const float v = static_cast<float>(sum[i]);
        sum[i] = held(covered[i] < 4095 ? whole(v, covered[i], static_cast<float>(picture[i])) : v);
    }
}

HWY_INLINE void resolve_on_ground(FixPixel* sum, const FixPixel* covered, const FixPixel* picture,
                                  const FixPixel* ground, const FixPixel* ground_weight, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t w = ground_weight[i];
        const float part = static_cast<float>(ground[i]) * 4096.0f / static_cast<float>(w > 0 ? w : 1);
        const int32_t below = held(w > 0 ? part : 0.0f);
        const float v = static_cast<float>(sum[i]);
        const float alone = whole(v, covered[i], static_cast<float>(picture[i]));
        const float filled = v + static_cast<float>(below * (4096 - covered[i])) * (1.0f / 4096.0f);
        sum[i] = held(covered[i] < 4095 ? alone + (filled - alone) * surety(w) : v);
    }
}

void resolve(FixPixel* sum, const FixPixel* covered, const FixPixel* picture, const FixPixel* ground,
             const FixPixel* ground_weight, int n) {
    each_stretch(n, [&](int at, int count) {
        if (range_of(covered + at, count).least >= 4095) return;
        if (ground)
            resolve_on_ground(sum + at, covered + at, picture + at, ground + at, ground_weight + at, count);
        else
            resolve_alone(sum + at, covered + at, picture + at, count);
    });
}

void add(FixPixel* sum, const FixPixel* in, float gain, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) sum[i] = held(static_cast<float>(sum[i]) + static_cast<float>(in[i]) * gain);
}

constexpr ZRows z_table = {mask, multiply, over, over_sharp, cover, settle, resolve, add};

}  // namespace
const ZRows* z_rows_of_target() { return &z_table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(z_rows_of_target);
const ZRows& z_rows() { return *HWY_DYNAMIC_DISPATCH(z_rows_of_target)(); }
}  // namespace velloran
#endif
