#include "operators/flares/flare_rows.h"

#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/flares/flare_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/fast_math-inl.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

// Above any sum of samples, and far from what an integer holds.
constexpr float most_light = 65535.0f;

HWY_INLINE FixPixel with_light(int32_t sample, float light) {
    light = light < most_light ? light : most_light;
    light = light > -most_light ? light : -most_light;
    int32_t sum = sample + static_cast<int32_t>(light);
    sum = sum < fix_image_limit ? sum : fix_image_limit;
    sum = sum > -fix_image_limit ? sum : -fix_image_limit;
    return static_cast<FixPixel>(sum);
}

void flat(const FlareSpan& span, const float* color) {
    for (int c = 0; c < 3; ++c) {
        FixPixel* const p = span.planes[c];
        const float light = color[c];
        INDEPENDENT_ITERATIONS
        for (int i = 0; i < span.n; ++i) p[i] = with_light(p[i], light);
    }
}

// All three planes with color + rise * share(i), share from a function of the place.
template <class Share>
HWY_INLINE void add_ramp(const FlareSpan& span, const float* color, const float* rise, Share share) {
    FixPixel *const r = span.planes[0], *const g = span.planes[1], *const b = span.planes[2];
    const float r0 = color[0], g0 = color[1], b0 = color[2], dr = rise[0], dg = rise[1], db = rise[2];
    const float fraction = span.fraction;
    const int32_t first = span.first;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < span.n; ++i) {
        const float t = share(static_cast<float>(first + i) - fraction);
        r[i] = with_light(r[i], r0 + dr * t);
        g[i] = with_light(g[i], g0 + dg * t);
        b[i] = with_light(b[i], b0 + db * t);
    }
}

HWY_INLINE float held(float t) {
    t = t > 0.0f ? t : 0.0f;
    return t < 1.0f ? t : 1.0f;
}

void ring(const FlareSpan& span, const FlareBand& band, float height) {
    const float square = height * height, radius = band.radius, scale = band.inverse_width;
    add_ramp(span, band.color, band.rise, [=](float u) { return held((std::sqrt(u * u + square) - radius) * scale); });
}

void hexagon(const FlareSpan& span, const FlareBand& band, float height) {
    const float rise = 0.8660254f * height, radius = band.radius, scale = band.inverse_width;
    add_ramp(span, band.color, band.rise, [=](float u) {
        const float across = u < 0.0f ? -u : u, slanting = 0.5f * across + rise;
        return held(((across > slanting ? across : slanting) - radius) * scale);
    });
}

void disc(const FlareSpan& span, const float* color, float radius, float height) {
    const float square = height * height, scale = 1.0f / radius;
    const float black[3] = {};
    add_ramp(span, black, color, [=](float u) {
        const float t = held(std::sqrt(u * u + square) * scale);
        return held(1.0f + t * (-2.467401f + t * (2.029356f + t * (-0.66763139f + t * 0.10567641f))));
    });
}

// Half a wave from 1 at d = 0 to 0 at d = 1: the square of the cosine of a quarter turn times d, whose series
// (Abramowitz and Stegun, Handbook of Mathematical Functions, 4.3.98) is exact to 1e-7.
HWY_INLINE float bell(float d) {
    const float z = d * d * 2.4674011003f;
    const float cosine =
        1.0f + z * (-0.5f + z * (0.0416666418f + z * (-0.0013888397f + z * (0.0000247609f + z * -0.0000002605f))));
    return cosine * cosine;
}

void line(const FlareSpan& span, const FlareLine& l) {
    FixPixel *const r = span.planes[0], *const g = span.planes[1], *const b = span.planes[2];
    const float offset = l.offset, slope = l.slope, along = l.along, step = l.along_step;
    const float r0 = l.color[0], g0 = l.color[1], b0 = l.color[2], dr = l.rise[0], dg = l.rise[1], db = l.rise[2];
    const float fraction = span.fraction;
    const int32_t first = span.first;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < span.n; ++i) {
        const float u = static_cast<float>(first + i) - fraction;
        float d = offset + slope * u;
        d = d < 0.0f ? -d : d;
        const float light = bell(d < 1.0f ? d : 1.0f);
        const float t = held(along + step * u);
        r[i] = with_light(r[i], (r0 + dr * t) * light);
        g[i] = with_light(g[i], (g0 + dg * t) * light);
        b[i] = with_light(b[i], (b0 + db * t) * light);
    }
}

HWY_INLINE F gather(const float* table, I index) { return hn::GatherIndex(DF(), table, index.v); }
HWY_INLINE I gather(const int32_t* table, I index) { return hn::GatherIndex(DI(), table, index.v); }

// One level of a table: between the entries on both sides of a place, given in entries of level 0.
struct LevelPlace {
    I entry;  // in floats, of the entry to the left
    F fraction;
};
template <bool may_wrap>
HWY_INLINE LevelPlace place_in_level(F place, I level, const int32_t* offsets, int32_t size, bool wrap) {
    // Entry j of the level is the mean of 2^level entries.
    const F shrunk = (place + F(0.5f)) * float_of_bits(shl<23>(I(127) - level)) - F(0.5f);
    const I n = bits_of(F(static_cast<float>(size))) - shl<23>(level);  // size >> level, as the bits of a float
    const F count = float_of_bits(n);
    F at = shrunk;
    if (may_wrap && wrap) at = shrunk - count * floor(shrunk / count);
    at = clamp(at, F(-1.0f), count);
    const F low = min(floor(at), count - F(1.0f));
    return {shl<2>(whole(low) + gather(offsets, level)), at - low};
}

struct TrilinearPlace {
    LevelPlace fine, coarse;
    F to_coarse;
};
template <bool may_wrap>
HWY_INLINE TrilinearPlace place_in_table(F place, F footprint, const int32_t* offsets, int32_t size, int32_t levels,
                                         bool wrap) {
    const F level = clamp(log2(max(footprint, F(1e-20f))), F(0.0f), F(static_cast<float>(levels - 1)));
    const F low = min(floor(level), F(static_cast<float>(levels > 1 ? levels - 2 : 0)));
    const I fine = whole(low), coarse = levels > 1 ? fine + I(1) : fine;
    return {place_in_level<may_wrap>(place, fine, offsets, size, wrap),
            place_in_level<may_wrap>(place, coarse, offsets, size, wrap), level - low};
}
HWY_INLINE F look_up(const float* entries, const TrilinearPlace& at, int part) {
    const auto level = [&](const LevelPlace& p) {
        const F a = gather(entries + part, p.entry), b = gather(entries + part + 4, p.entry);
        return a + (b - a) * p.fraction;
    };
    const F fine = level(at.fine), coarse = level(at.coarse);
    return fine + (coarse - fine) * at.to_coarse;
}

// Light of a polar flare at lane_count samples, in units of a sample.
HWY_INLINE void polar_light(const PolarRow& row, F u, F* light) {
    const F v(row.v), least(0.5f * row.x_step);
    const F r = max(sqrt(u * u + v * v), least);
    F turns = atan2_turns(v, u) - F(row.arc_start);
    turns = turns - floor(turns);
    const F footprint = F(row.x_step) / r * F(row.angular_scale);
    const TrilinearPlace angular =
        place_in_table<true>(turns * F(two_pi) * F(row.angular_scale), footprint, row.angular_offsets, row.angular_size,
                             row.angular_levels, row.angular_wrap != 0);
    const F brightness = look_up(row.angular, angular, 0), factor = look_up(row.angular, angular, 3);
    const F s = r * factor;
    const TrilinearPlace radial = place_in_table<false>((s - F(row.radial_start)) * F(row.radial_scale),
                                                        F(row.x_step) * factor * F(row.radial_scale),
                                                        row.radial_offsets, row.radial_size, row.radial_levels, false);
    const F outside = select(turns > F(row.arc_turns), F(0.0f), F(1.0f));
    const F inside = select(s < F(row.first_radius), F(0.0f), select(s > F(row.last_radius), F(0.0f), outside));
    for (int c = 0; c < 3; ++c) light[c] = brightness * look_up(row.radial, radial, c) * F(row.color[c]) * inside;
}

void polar(const FlareSpan& span, const PolarRow& row) {
    HWY_ALIGN float light[3][lane_count];
    HWY_ALIGN float steps[lane_count];
    for (int k = 0; k < lane_count; ++k) steps[k] = static_cast<float>(k);
    const F step = hn::Load(DF(), steps);
    for (int i = 0; i < span.n; i += lane_count) {
        const F u = (F(static_cast<float>(span.first + i)) + step - F(span.fraction)) * F(row.x_step);
        F lanes[3];
        polar_light(row, u, lanes);
        const int n = span.n - i < lane_count ? span.n - i : lane_count;
        for (int c = 0; c < 3; ++c) {
            hn::Store(lanes[c].v, DF(), light[c]);
            FixPixel* const p = span.planes[c] + i;
            for (int k = 0; k < n; ++k) p[k] = with_light(p[k], light[c][k]);
        }
    }
}

void hold(FixPixel* p, int32_t top, int n) {
    const auto most = static_cast<FixPixel>(top);
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) p[i] = p[i] < most ? p[i] : most;
}

constexpr FlareRows flare_table = {flat, ring, hexagon, disc, line, polar, hold};

}  // namespace
const FlareRows* flare_rows_of_target() { return &flare_table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(flare_rows_of_target);
const FlareRows& flare_rows() { return *HWY_DYNAMIC_DISPATCH(flare_rows_of_target)(); }
}  // namespace velloran
#endif
