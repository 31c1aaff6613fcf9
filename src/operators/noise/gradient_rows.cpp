// Rows of gradient noise: on a square lattice after K. Perlin, and on simplices.
#ifndef VELLORAN_NOISE_GRADIENT_ROWS_ONCE
#define VELLORAN_NOISE_GRADIENT_ROWS_ONCE
#include "operators/noise/noise_gradients.h"
#include "operators/noise/noise_permutation.h"
#include "operators/noise/noise_rows.h"
#include "operators/noise/octave_norm.h"

#include <type_traits>
#endif

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/noise/gradient_rows.cpp"
#include "hwy/foreach_target.h"
// After foreach_target.h.
#include "rows/row_targets.h"

#include "operators/noise/window-inl.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

// How much the first octave of lattice noise counts, by number of octaves. Two octaves are louder than they are in
// octave_norm.
constexpr float perlin_octave_norm[] = {0, 1, 0.75f, 0.57f, 0.5333f, 0.516f, 0.508f, 0.504f, 0.502f};

constexpr int most_octaves = 8;

// Truncates. small: |a| is below 2^30.
template <bool small>
HWY_INLINE I truncated(F a) {
    return small ? whole_of_small(a) : whole(a);
}

// Entry index & 255 of the permutation.
HWY_INLINE I permuted(I index) {
#if HWY_TARGET == HWY_AVX3
    const auto quarter = [&](int i) HWY_ATTR {
        const auto* const at = perm_words.data() + i * 64;
        return _mm512_permutex2var_epi16(_mm512_load_si512(at), index.v.raw, _mm512_load_si512(at + 32));
    };
    const __mmask16 bit6 = _mm512_test_epi32_mask(index.v.raw, _mm512_set1_epi32(64));
    const __mmask16 bit7 = _mm512_test_epi32_mask(index.v.raw, _mm512_set1_epi32(128));
    const __m512i lower = _mm512_mask_blend_epi32(bit6, quarter(0), quarter(1));
    const __m512i upper = _mm512_mask_blend_epi32(bit6, quarter(2), quarter(3));
    return I(hn::Vec<DI>{_mm512_mask_blend_epi32(bit7, lower, upper)}) & I(255);
#else
    return gather(perlin_perm.data(), index & I(255));
#endif
}

// The sum of octaves, each twice as fine and half as strong. Octave: F at<small>(x, y, z) gives one; each octave has
// one of its own, for what it remembers from register to register.
// small: all numbers that are taken to whole ones keep below 2^30.
template <class Octave>
HWY_INLINE void sum_octaves(const NoiseLine& line, int octaves, bool fold, int32_t x_offset, float norm, int32_t* out,
                            const Octave& start) {
    Octave layers[most_octaves];
    for (Octave& layer : layers) layer = start;
    const F kept_sign = float_of_bits(I(fold ? 0x7fffffff : -1));
    float amplitudes[most_octaves];
    for (float& amplitude : amplitudes) {
        amplitude = norm;
        norm *= 0.5f;
    }
    for (int i = 0; i < line.n; i += lane_count) {
        const int n = line.n - i;
        F x = real(load_some(line.x + i, n) + I(x_offset)) * F(line.scale_x);
        F y = real(load_some(line.y + i, n)) * F(line.scale_y);
        F z = line.z ? real(load_some(line.z + i, n)) * F(line.scale_z) : F(0.0f);
        F sum(0.0f);
        const auto add_octaves = [&](auto small) HWY_ATTR {
            for (int o = 0; o < octaves; ++o) {
                const F value = hn::And(layers[o].template at<decltype(small)::value>(x, y, z).v, kept_sign.v);
                sum = sum + value * F(amplitudes[o]);
                x = x + x;
                y = y + y;
                z = z + z;
            }
        };
        const MF near = max(max(abs(x), abs(y)), abs(z)) < F(512.0f);
        if (hn::AllTrue(DF(), near.m))
            add_octaves(std::true_type());
        else
            add_octaves(std::false_type());
        store_some(fix(sum), out + i, n);
    }
}

// ---- Square lattice

struct PerlinGradients {
    HWY_INLINE Gradient operator()(I u, I v) const {
        const I direction = permuted(permuted(u) + v) & I(7);
#if HWY_TARGET == HWY_AVX3
        const hn::Half<DF> half;
        const auto index = hn::IndicesFromVec(DF(), direction.v);
        const auto both = [&](const float* table) HWY_ATTR {
            const auto eight = hn::LoadU(half, table);
            return F(hn::TableLookupLanes(hn::Combine(DF(), eight, eight), index));
        };
        return {both(grad2_x), both(grad2_y)};
#else
        return {gather(grad2_x, direction), gather(grad2_y, direction)};
#endif
    }
};

HWY_INLINE F s_curve(F t) { return t * t * (F(3.0f) - F(2.0f) * t); }
HWY_INLINE F lerp(F t, F a, F b) { return a + t * (b - a); }

struct Perlin2 {
    GradientWindow<PerlinGradients> window;

    template <class Corner>
    static HWY_INLINE F blend(F x, F y, Corner corner) {
        const F x1 = x - F(1.0f), y1 = y - F(1.0f);
        const Gradient g00 = corner(0, 0), g10 = corner(1, 0), g01 = corner(0, 1), g11 = corner(1, 1);
        const F n00 = g00.x * x + g00.y * y, n10 = g10.x * x1 + g10.y * y;
        const F n01 = g01.x * x + g01.y * y1, n11 = g11.x * x1 + g11.y * y1;
        const F u = s_curve(x);
        return lerp(s_curve(y), lerp(u, n00, n10), lerp(u, n01, n11));
    }
    template <bool small>
    HWY_INLINE F at(F x, F y, F) {
        const F cell_x = floor(x), cell_y = floor(y);
        const F in_x = x - cell_x, in_y = y - cell_y;
        const I u = truncated<small>(cell_x), v = truncated<small>(cell_y);
        const PerlinGradients gradients;
        if (window.covers(gradients, u, v)) {
            const I index = window.index(u, v);
            return blend(in_x, in_y, [&](int i, int j) HWY_ATTR { return window.at(index + I(i + 4 * j)); });
        }
        return blend(in_x, in_y, [&](int i, int j) HWY_ATTR { return gradients(u + I(i), v + I(j)); });
    }
};

void perlin2(const NoiseLine& line, int octaves, bool fold, int32_t x_offset, int32_t* out) {
    sum_octaves(line, octaves, fold, x_offset, perlin_octave_norm[octaves], out, Perlin2());
}

// ---- Simplices

constexpr float simplex_gain = 40.0f;

// Truncates, as coordinates are taken to fixed point.
template <bool small>
HWY_INLINE I to_fixed(F a) {
    return truncated<small>(a * F(4096.0f));
}

// The fourth power of what is left of the corner's reach, times the ramp.
HWY_INLINE F corner_part(F left, F ramp) {
    const F held = max(left, F(0.0f));
    const F square = held * held;
    return square * square * ramp;
}

struct SimplexGradients2 {
    int32_t seed;
    HWY_INLINE Gradient operator()(I u, I v) const {
        const I entry = permuted(u + I(seed) + permuted(v + I(seed)));
        return {gather(simplex_gradients.x2.data(), entry), gather(simplex_gradients.y2.data(), entry)};
    }
};

struct Simplex2 {
    static constexpr float skew = 0.3660254f, unskew = 0.21132487f;
    SimplexGradients2 gradients;
    GradientWindow<SimplexGradients2> window;

    static HWY_INLINE F corner(Gradient g, F x, F y) { return corner_part(F(0.5f) - x * x - y * y, g.x * x + g.y * y); }
    template <bool small>
    HWY_INLINE F at(F x, F y, F) {
        const I fixed_x = to_fixed<small>(x), fixed_y = to_fixed<small>(y);
        const F xf = real(fixed_x), yf = real(fixed_y);
        const I s = to_fixed<small>((xf + yf) * F(skew));
        const I u = shr<12>(fixed_x + s), v = shr<12>(fixed_y + s);
        const F t = number(u + v) * F(unskew);
        const F x0 = xf - (number(u) - t), y0 = yf - (number(v) - t);
        const MF right = x0 > y0;
        const F step_x = select(right, F(1.0f), F(0.0f)), step_y = select(right, F(0.0f), F(1.0f));
        const F x1 = x0 - step_x + F(unskew), y1 = y0 - step_y + F(unskew);
        const F x2 = x0 - F(1.0f) + F(2 * unskew), y2 = y0 - F(1.0f) + F(2 * unskew);
        const MI right_i = {hn::RebindMask(DI(), right.m)};
        Gradient g0, g1, g2;
        if (window.covers(gradients, u, v)) {
            const I index = window.index(u, v);
            g0 = window.at(index);
            g1 = window.at(index + select(right_i, I(1), I(4)));
            g2 = window.at(index + I(5));
        } else {
            g0 = gradients(u, v);
            g1 = gradients(u + select(right_i, I(1), I(0)), v + select(right_i, I(0), I(1)));
            g2 = gradients(u + I(1), v + I(1));
        }
        return (corner(g0, x0, y0) + corner(g1, x1, y1) + corner(g2, x2, y2)) * F(simplex_gain);
    }
};

// The indices of a corner wrap at 256; so does the sum of a number and a permuted one, the permutation being repeated.
struct Simplex3 {
    static constexpr float skew = 0.33333334f, unskew = 0.16666667f;
    const int32_t* perm;

    HWY_INLINE F corner(I u, I v, I w, F x, F y, F z) const {
        const I in_z = gather(perm, w & I(255));
        const I entry = gather(perm, (u & I(255)) + gather(perm, (v & I(255)) + in_z));
        const F ramp = gather(simplex_gradients.x3.data(), entry) * x + gather(simplex_gradients.y3.data(), entry) * y +
                       gather(simplex_gradients.z3.data(), entry) * z;
        return corner_part(F(0.5f) - x * x - y * y - z * z, ramp);
    }
    template <bool small>
    HWY_INLINE F at(F x, F y, F z) {
        const I fixed_x = to_fixed<small>(x), fixed_y = to_fixed<small>(y), fixed_z = to_fixed<small>(z);
        const F xf = real(fixed_x), yf = real(fixed_y), zf = real(fixed_z);
        const I s = to_fixed<small>((xf + yf + zf) * F(skew));
        const I u = shr<12>(fixed_x + s), v = shr<12>(fixed_y + s), w = shr<12>(fixed_z + s);
        const F t = number(u + v + w) * F(unskew);
        const F x0 = xf - (number(u) - t), y0 = yf - (number(v) - t), z0 = zf - (number(w) - t);
        // From the lowest corner to the highest, one axis at a time, that of the largest offset first.
        const I x_y = flag(x0 >= y0), y_z = flag(y0 >= z0), x_z = flag(x0 >= z0), one(1);
        const I u1 = x_y & x_z, v1 = (one - x_y) & y_z, w1 = one - u1 - v1;
        const I w2 = one - (x_z & y_z), u2 = x_y | x_z, v2 = I(2) - u2 - w2;
        const auto corner_at = [&](I du, I dv, I dw, float back) HWY_ATTR {
            return corner(u + du, v + dv, w + dw, x0 - number(du) + F(back), y0 - number(dv) + F(back),
                          z0 - number(dw) + F(back));
        };
        const I none(0);
        return (corner_at(none, none, none, 0.0f) + corner_at(u1, v1, w1, unskew) + corner_at(u2, v2, w2, 0.33333334f) +
                corner_at(one, one, one, 0.5f)) *
               F(simplex_gain);
    }

private:
    static HWY_INLINE I flag(MF m) { return select(MI{hn::RebindMask(DI(), m.m)}, I(1), I(0)); }
};

const int32_t* seeded_perm(uint32_t seed) { return simplex_perm.data() + (seed & 255); }

void simplex2(const NoiseLine& line, int octaves, bool fold, int32_t x_offset, int32_t* out) {
    Simplex2 start;
    start.gradients.seed = static_cast<int32_t>(line.seed & 255);
    sum_octaves(line, octaves, fold, x_offset, octave_norm(octaves), out, start);
}
void simplex3(const NoiseLine& line, int octaves, bool fold, int32_t x_offset, int32_t* out) {
    sum_octaves(line, octaves, fold, x_offset, octave_norm(octaves), out, Simplex3{seeded_perm(line.seed)});
}

constexpr GradientRows rows = {perlin2, simplex2, simplex3};

}  // namespace

const GradientRows* gradient_rows_of_target() { return &rows; }

}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(gradient_rows_of_target);
const GradientRows& gradient_rows() { return *HWY_DYNAMIC_DISPATCH(gradient_rows_of_target)(); }
}  // namespace velloran
#endif
