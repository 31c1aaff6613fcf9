#include "operators/flares/flare_rows.h"

#include <cstring>

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

// Of a whole number below 2^22 in size: it stands in the last bits of its sum with 3 * 2^22.
HWY_INLINE I small_whole(F a) { return bits_of(a + F(12582912.0f)) - I(0x4b400000); }

HWY_INLINE void add_light(FixPixel* p, F light) {
    const hn::Rebind<FixPixel, DI> narrow;
    const F held = clamp(light, F(-most_light), F(most_light));
    const I sum = I(hn::PromoteTo(DI(), hn::LoadU(narrow, p))) + small_whole(hn::Trunc(held.v));
    hn::StoreU(hn::DemoteTo(narrow, max(min(sum, I(fix_image_limit)), I(-fix_image_limit)).v), narrow, p);
}

// Adds the light that light_at(u, light) puts into three registers, at the places u from the centre, to all samples;
// where it answers false there is none.
template <class LightAt>
HWY_INLINE void add_to_span(const FlareSpan& span, LightAt light_at) {
    HWY_ALIGN float steps[lane_count];
    for (int k = 0; k < lane_count; ++k) steps[k] = static_cast<float>(k);
    const F step = hn::Load(DF(), steps), fraction(span.fraction);
    FixPixel *const r = span.planes[0], *const g = span.planes[1], *const b = span.planes[2];
    F light[3];
    const auto lit = [&](int i) HWY_ATTR {
        return light_at((F(static_cast<float>(span.first + i)) + step) - fraction, light);
    };
    int i = 0;
    for (; i + lane_count <= span.n; i += lane_count) {
        if (!lit(i)) continue;
        add_light(r + i, light[0]);
        add_light(g + i, light[1]);
        add_light(b + i, light[2]);
    }
    const int n = span.n - i;
    if (n <= 0 || !lit(i)) return;
    for (int c = 0; c < 3; ++c) {
        HWY_ALIGN FixPixel buffer[lane_count] = {};
        std::memcpy(buffer, span.planes[c] + i, static_cast<size_t>(n) * sizeof(FixPixel));
        add_light(buffer, light[c]);
        std::memcpy(span.planes[c] + i, buffer, static_cast<size_t>(n) * sizeof(FixPixel));
    }
}

void flat(const FlareSpan& span, const float* color) {
    const F r(color[0]), g(color[1]), b(color[2]);
    add_to_span(span, [=](F, F* light) HWY_ATTR {
        light[0] = r;
        light[1] = g;
        light[2] = b;
        return true;
    });
}

// color + rise * share(u)
template <class Share>
HWY_INLINE void add_ramp(const FlareSpan& span, const float* color, const float* rise, Share share) {
    const F r(color[0]), g(color[1]), b(color[2]), dr(rise[0]), dg(rise[1]), db(rise[2]);
    add_to_span(span, [=](F u, F* light) HWY_ATTR {
        const F t = share(u);
        light[0] = r + dr * t;
        light[1] = g + dg * t;
        light[2] = b + db * t;
        return true;
    });
}

HWY_INLINE F held(F t) { return min(max(t, F(0.0f)), F(1.0f)); }

void ring(const FlareSpan& span, const FlareBand& band, float height) {
    const F square(height * height), radius(band.radius), scale(band.inverse_width);
    add_ramp(span, band.color, band.rise, [=](F u) HWY_ATTR { return held((sqrt(u * u + square) - radius) * scale); });
}

void hexagon(const FlareSpan& span, const FlareBand& band, float height) {
    const F rise(0.8660254f * height), radius(band.radius), scale(band.inverse_width);
    add_ramp(span, band.color, band.rise, [=](F u) HWY_ATTR {
        const F across = abs(u);
        return held((max(across, F(0.5f) * across + rise) - radius) * scale);
    });
}

void disc(const FlareSpan& span, const float* color, float radius, float height) {
    const F square(height * height), scale(1.0f / radius);
    const float black[3] = {};
    add_ramp(span, black, color, [=](F u) HWY_ATTR {
        const F t = held(sqrt(u * u + square) * scale);
        const F p = F(-0.66763139f) + t * F(0.10567641f);
        return held(F(1.0f) + t * (F(-2.467401f) + t * (F(2.029356f) + t * p)));
    });
}

// Half a wave from 1 at d = 0 to 0 at d = 1: the square of the cosine of a quarter turn times d, whose series
// (Abramowitz and Stegun, Handbook of Mathematical Functions, 4.3.98) is exact to 1e-7.
HWY_INLINE F bell(F d) {
    const F z = d * d * F(2.4674011003f);
    F p = F(0.0000247609f) + z * F(-0.0000002605f);
    p = F(-0.0013888397f) + z * p;
    p = F(0.0416666418f) + z * p;
    p = F(-0.5f) + z * p;
    const F cosine = F(1.0f) + z * p;
    return cosine * cosine;
}

void line(const FlareSpan& span, const FlareLine& l) {
    const F offset(l.offset), slope(l.slope), along(l.along), step(l.along_step);
    const F r(l.color[0]), g(l.color[1]), b(l.color[2]), dr(l.rise[0]), dg(l.rise[1]), db(l.rise[2]);
    add_to_span(span, [=](F u, F* light) HWY_ATTR {
        const F profile = bell(min(abs(offset + slope * u), F(1.0f))), t = held(along + step * u);
        light[0] = (r + dr * t) * profile;
        light[1] = (g + dg * t) * profile;
        light[2] = (b + db * t) * profile;
        return true;
    });
}

#if !ROW_TARGET_PLAIN
// Block j of the register: the four floats at place at[4 j].
template <class D>
HWY_INLINE hn::Vec<D> load_blocks(D d, const float* table, const int32_t* at) {
    if constexpr (hn::MaxLanes(D()) <= 4) {
        return hn::LoadU(d, table + at[0]);
    } else {
        const hn::Half<D> half;
        const auto low = load_blocks(half, table, at);
        return hn::Combine(d, load_blocks(half, table, at + hn::MaxLanes(half)), low);
    }
}
#endif

// Four floats from each lane's place in a table, as four registers. Loads of four at once and a transposition cost a
// fraction of four gathers.
HWY_INLINE void load_fours(const float* table, I index, F* parts) {
    HWY_ALIGN int32_t at[lane_count];
    hn::Store(index.v, DI(), at);
#if ROW_TARGET_PLAIN
    for (int k = 0; k < 4; ++k) parts[k] = F(table[at[0] + k]);
#else
    const auto fours = [&](int q) HWY_ATTR { return load_blocks(DF(), table, at + q); };
    const auto a = fours(0), b = fours(1), c = fours(2), e = fours(3);
    const hn::RepartitionToWide<DF> pairs;
    const auto join = [&](hn::Vec<DF> left, hn::Vec<DF> right, bool upper) HWY_ATTR {
        const auto l = hn::BitCast(pairs, left), r = hn::BitCast(pairs, right);
        return hn::BitCast(DF(), upper ? hn::InterleaveUpper(pairs, l, r) : hn::InterleaveLower(pairs, l, r));
    };
    const auto ab_low = hn::InterleaveLower(DF(), a, b), ab_high = hn::InterleaveUpper(DF(), a, b);
    const auto ce_low = hn::InterleaveLower(DF(), c, e), ce_high = hn::InterleaveUpper(DF(), c, e);
    parts[0] = join(ab_low, ce_low, false);
    parts[1] = join(ab_low, ce_low, true);
    parts[2] = join(ab_high, ce_high, false);
    parts[3] = join(ab_high, ce_high, true);
#endif
}

// One level of a table: between the entries on both sides of a place, given in entries of level 0.
struct LevelPlace {
    I entry;  // to the left
    F fraction;
};
// A level of a table, in all lanes the same or not.
struct PolarLevel {
    I offset;  // of its entry 0
    F shrink, count, inverse_count;
};
HWY_INLINE PolarLevel polar_level(I level, int32_t size) {
    // size >> level, as the bits of a float. All are powers of two.
    const I bits = bits_of(F(static_cast<float>(size))) - shl<23>(level);
    const F count = float_of_bits(bits);
    // The levels below take 2 size - 2 count entries, and two guards each.
    return {I(1 + 2 * size) + shl<1>(level - small_whole(count)), float_of_bits(shl<23>(I(127) - level)), count,
            float_of_bits(I(254 << 23) - bits)};
}
template <bool may_wrap>
HWY_INLINE LevelPlace place_in_level(F place, const PolarLevel& level, bool wrap) {
    // Entry j of the level is the mean of 2^level entries.
    const F shrunk = (place + F(0.5f)) * level.shrink - F(0.5f);
    F at = shrunk;
    if (may_wrap && wrap) at = shrunk - level.count * floor(shrunk * level.inverse_count);
    at = clamp(at, F(-1.0f), level.count);
    const F low = min(floor(at), level.count - F(1.0f));
    return {small_whole(low) + level.offset, at - low};
}

// The two levels that a footprint, in entries, lies between.
struct PolarLevels {
    PolarLevel fine, coarse;
    F to_coarse;
};
HWY_INLINE PolarLevels levels_of_footprint(F footprint, int32_t size, int32_t levels) {
    const F level = clamp(log2(max(footprint, F(1e-20f))), F(0.0f), F(static_cast<float>(levels - 1)));
    const F low = min(floor(level), F(static_cast<float>(levels > 1 ? levels - 2 : 0)));
    const I fine = small_whole(low), coarse = levels > 1 ? fine + I(1) : fine;
    return {polar_level(fine, size), polar_level(coarse, size), level - low};
}

HWY_INLINE F between(F a, F b, F t) { return a + (b - a) * t; }

// Brightness over the angle and what a radius is multiplied by.
HWY_INLINE void look_up_angle(const PolarRow& row, F place, const PolarLevels& levels, F* brightness, F* factor) {
    const bool wrap = row.angular_wrap != 0;
    const LevelPlace fine = place_in_level<true>(place, levels.fine, wrap),
                     coarse = place_in_level<true>(place, levels.coarse, wrap);
    F a[4], b[4];
    load_fours(row.angular, shl<1>(fine.entry), a);
    load_fours(row.angular, shl<1>(coarse.entry), b);
    *brightness = between(between(a[0], a[2], fine.fraction), between(b[0], b[2], coarse.fraction), levels.to_coarse);
    *factor = between(between(a[1], a[3], fine.fraction), between(b[1], b[3], coarse.fraction), levels.to_coarse);
}

HWY_INLINE void look_up_radius(const PolarRow& row, F place, const PolarLevels& levels, F* light) {
    const LevelPlace fine = place_in_level<false>(place, levels.fine, false),
                     coarse = place_in_level<false>(place, levels.coarse, false);
    F a[4], b[4], c[4], d[4];
    load_fours(row.radial, shl<2>(fine.entry), a);
    load_fours(row.radial + 4, shl<2>(fine.entry), b);
    load_fours(row.radial, shl<2>(coarse.entry), c);
    load_fours(row.radial + 4, shl<2>(coarse.entry), d);
    for (int k = 0; k < 3; ++k)
        light[k] = between(between(a[k], b[k], fine.fraction), between(c[k], d[k], coarse.fraction), levels.to_coarse);
}

HWY_INLINE PolarLevels radial_levels(const PolarRow& row, F factor) {
    return levels_of_footprint(F(row.x_step) * factor * F(row.radial_scale), row.radial_size, row.radial_levels);
}

HWY_INLINE bool none(MF m) { return hn::AllFalse(DF(), m.m); }

// Light of a polar flare at lane_count samples, in units of a sample; false: there is none. round: the radius is the
// same at every angle, whose levels are given.
template <bool round>
HWY_INLINE bool polar_light(const PolarRow& row, const PolarLevels& round_levels, F u, F* light) {
    const F v(row.v), least(0.5f * row.x_step);
    const F r = max(sqrt(u * u + v * v), least);
    if (round && none({hn::And(hn::Ge(r.v, F(row.first_radius).v), hn::Le(r.v, F(row.last_radius).v))})) return false;
    F turns = atan2_turns(v, u) - F(row.arc_start);
    turns = turns - floor(turns);
    const F within = select(turns > F(row.arc_turns), F(0.0f), F(1.0f));
    if (none(within > F(0.0f))) return false;
    const F footprint = F(row.x_step) / r * F(row.angular_scale);
    F brightness, factor;
    look_up_angle(row, turns * F(two_pi) * F(row.angular_scale),
                  levels_of_footprint(footprint, row.angular_size, row.angular_levels), &brightness, &factor);
    const F s = round ? r : r * factor;
    const F inside = select(s < F(row.first_radius), F(0.0f), select(s > F(row.last_radius), F(0.0f), within));
    if (hn::AllTrue(DF(), hn::Eq((brightness * inside).v, hn::Zero(DF())))) return false;
    F radial[3];
    look_up_radius(row, (s - F(row.radial_start)) * F(row.radial_scale),
                   round ? round_levels : radial_levels(row, factor), radial);
    for (int c = 0; c < 3; ++c) light[c] = brightness * radial[c] * F(row.color[c]) * inside;
    return true;
}

template <bool round>
HWY_INLINE void polar_span(const FlareSpan& span, const PolarRow& row) {
    const PolarLevels round_levels = radial_levels(row, F(1.0f));
    const F x_step(row.x_step);
    add_to_span(span, [&](F u, F* light) HWY_ATTR { return polar_light<round>(row, round_levels, u * x_step, light); });
}

void polar(const FlareSpan& span, const PolarRow& row) {
    if (row.is_round)
        polar_span<true>(span, row);
    else
        polar_span<false>(span, row);
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
