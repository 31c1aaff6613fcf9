#include "operators/warps/pattern_rows.h"

#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/warps/pattern_rows.cpp"
#include "hwy/foreach_target.h"
#include "operators/mipmap/taps-inl.h"
#include "rows/fast_math-inl.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

constexpr float half_root_3 = 0.8660254038f;

void coordinates(const int32_t* positions, float offset, float scale, float* out, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) out[i] = (static_cast<float>(positions[i]) + offset) * scale;
}

void positions(const float* coords, float scale, float offset, int32_t* out, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) out[i] = rounded(held(coords[i] * scale + offset, static_cast<float>(farthest)));
}

HWY_INLINE float smooth(float t) {
    t = t < 0.0f ? 0.0f : t;
    t = t > 1.0f ? 1.0f : t;
    return t * t * (3.0f - 2.0f * t);
}

HWY_INLINE float without_sign(float v) { return v < 0.0f ? -v : v; }

// Facets are hexagons that stand on a corner: rows are half the root of 3 apart, and every other one is shifted by half
// a facet. A place belongs to the nearest middle, which lies in the row below or above it.
void facets(const Facets& of, float* px, float* py, float* fade, int n) {
    const Facets f = of;
    const float sharpness = f.softness > 0.0f ? 1.0f / f.softness : 0.0f, least = f.softness > 0.0f ? 0.0f : 1.0f;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const float x = f.to_lattice[0] * px[i] + f.to_lattice[1] * py[i] + f.offset[0];
        const float y = f.to_lattice[2] * px[i] + f.to_lattice[3] * py[i] + f.offset[1];
        const float row = std::floor(y * (1.0f / half_root_3));
        const float odd = row - 2.0f * std::floor(row * 0.5f);
        const float shift_a = odd * 0.5f, shift_b = 0.5f - shift_a;
        const float ax = x - shift_a - std::floor(x - shift_a + 0.5f), ay = y - row * half_root_3;
        const float bx = x - shift_b - std::floor(x - shift_b + 0.5f), by = ay - half_root_3;
        const bool above = bx * bx + by * by < ax * ax + ay * ay;
        const float lx = above ? bx : ax, ly = above ? by : ay;
        // The border is half a facet from the middle along each of its three axes.
        const float along_1 = without_sign(lx), along_2 = without_sign(0.5f * lx + half_root_3 * ly),
                    along_3 = without_sign(0.5f * lx - half_root_3 * ly);
        float most = along_1 > along_2 ? along_1 : along_2;
        most = most > along_3 ? most : along_3;
        const float faded = smooth((1.0f - 2.0f * most) * sharpness);
        fade[i] = faded > least ? faded : least;
        px[i] = f.to_picture[0] * lx + f.to_picture[1] * ly;
        py[i] = f.to_picture[2] * lx + f.to_picture[3] * ly;
    }
}

HWY_INLINE F smooth(F t) {
    t = clamp(t, F(0.0f), F(1.0f));
    return t * t * (F(3.0f) - F(2.0f) * t);
}

void rings(const Drop& drop, const float* x, const float* y, float* moved_x, float* moved_y, int n) {
    // Blocks are as long as whole registers.
    for (int i = 0; i < n; i += lane_count) {
        const F dx = F(hn::LoadU(DF(), x + i)) - F(drop.x), dy = F(hn::LoadU(DF(), y + i)) - F(drop.y);
        const F r = sqrt(dx * dx + dy * dy);
        const F wave = sin_turns(r * F(drop.frequency) - F(drop.phase));
        const F inside = smooth(F(1.0f) - (F(drop.inner) - r) * F(drop.inner_slope));
        const F outside = smooth(F(1.0f) - (r - F(drop.outer)) * F(drop.outer_slope));
        const F strength = F(drop.amplitude) * wave * inside * outside / max(r, F(1e-6f));
        hn::StoreU((F(hn::LoadU(DF(), moved_x + i)) + dx * strength).v, DF(), moved_x + i);
        hn::StoreU((F(hn::LoadU(DF(), moved_y + i)) + dy * strength).v, DF(), moved_y + i);
    }
}

void turned(const float* x, const float* y, float a, float b, FixPixel* out, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i)
        out[i] =
            static_cast<FixPixel>(rounded(held((x[i] * a + y[i] * b) * 4096.0f, static_cast<float>(fix_image_limit))));
}

constexpr PatternRows rows = {coordinates, positions, facets, rings, turned};

}  // namespace
const PatternRows* pattern_rows_of_target() { return &rows; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(pattern_rows_of_target);
const PatternRows& pattern_rows() { return *HWY_DYNAMIC_DISPATCH(pattern_rows_of_target)(); }
}  // namespace velloran
#endif
