#include "operators/edges/edge_rows.h"

#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/edges/edge_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/arc_tangent-inl.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

HWY_INLINE FixPixel to_sample(float v) {
    v *= 4096.0f;
    v += v < 0.0f ? -0.5f : 0.5f;
    v = v < -32767.0f ? -32767.0f : v;
    v = v > 32767.0f ? 32767.0f : v;
    return static_cast<FixPixel>(static_cast<int32_t>(v));
}

void scaled_difference(const FixPixel* a, const FixPixel* b, FixPixel* out, int32_t offset, int32_t scale, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        // In 64 bits no scale wraps.
        int64_t v = offset + ((static_cast<int64_t>(a[i] - b[i]) * scale) >> fix_bits);
        v = v < -fix_image_limit ? -fix_image_limit : v > fix_image_limit ? fix_image_limit : v;
        out[i] = static_cast<FixPixel>(v);
    }
}

void add_difference(const FixPixel* a, const FixPixel* b, FixPixel* out, int32_t scale, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        int64_t v = a[i] + ((static_cast<int64_t>(a[i] - b[i]) * scale) >> fix_bits);
        v = v < -fix_image_limit ? -fix_image_limit : v > fix_image_limit ? fix_image_limit : v;
        out[i] = static_cast<FixPixel>(v);
    }
}

// Calls body(i, slope in x, slope in y) for the samples first + i of the row, i from 0 to n - 1: the ends by
// themselves, the rest in one loop.
template <class Body>
HWY_INLINE void each_slope(const SlopeRow& in, int first, int n, Body body) {
    const int32_t *row = in.row + first, *above = in.above + first, *below = in.below + first;
    const float x_factor = in.x_factor, y_factor = in.y_factor;
    const auto at = [&](int i, int left, int right) {
        body(i, static_cast<float>(row[right] - row[left]) * x_factor,
             static_cast<float>(above[i] - below[i]) * y_factor);
    };
    const int last = n - 1;
    const int begin = first == 0 ? 0 : -1, end = first + n == in.n ? last : n;  // what there is of the row
    at(0, begin, end < 1 ? end : 1);
    INDEPENDENT_ITERATIONS
    for (int i = 1; i < last; ++i) at(i, i - 1, i + 1);
    if (last > 0) at(last, last - 1, end);
}
template <class Body>
HWY_INLINE void each_slope(const SlopeRow& in, Body body) {
    each_slope(in, 0, in.n, body);
}

void slopes(const SlopeRow& in, FixPixel* x, FixPixel* y) {
    each_slope(in, [&](int i, float sx, float sy) {
        x[i] = to_sample(sx);
        y[i] = to_sample(sy);
    });
}

void slope_length(const SlopeRow& in, FixPixel* out) {
    each_slope(in, [&](int i, float sx, float sy) { out[i] = to_sample(std::sqrt(sx * sx + sy * sy)); });
}

void slope_direction(const SlopeRow& in, float offset, FixPixel* out) {
    each_slope(in, [&](int i, float sx, float sy) {
        const float ax = sx < 0.0f ? -sx : sx, ay = sy < 0.0f ? -sy : sy;
        const float least = ax < ay ? ax : ay, most = ax < ay ? ay : ax;
        float a = arc_tangent_turns(least / (most > 0.0f ? most : 1.0f));
        a = ay > ax ? 0.25f - a : a;
        a = sx < 0.0f ? 0.5f - a : a;
        a = sy < 0.0f ? 1.0f - a : a;
        a += offset;
        a -= std::floor(a);
        a = a >= 0.99987793f ? 0.0f : a;  // what would round up to 1.0
        out[i] = to_sample(a);
    });
}

void slope_along(const SlopeRow& in, int first, int n, const FixPixel* x, const FixPixel* y, FixPixel* out) {
    each_slope(in, first, n, [&](int i, float sx, float sy) {
        const float px = static_cast<float>(x[i]) * fix_to_float_scale,
                    py = static_cast<float>(y[i]) * fix_to_float_scale;
        out[i] = to_sample(sx * px + sy * py);
    });
}

void moved_slope_length(const SlopeRow& in, float x, float y, FixPixel* out) {
    each_slope(in, [&](int i, float sx, float sy) {
        sx += x;
        sy += y;
        out[i] = to_sample(std::sqrt(sx * sx + sy * sy));
    });
}

// Three loops, since one with the look-up in it would not be vectorised.
void shade(const SlopeRow& in, const Light& light, float* scattered, float* reflected) {
    const float to_x = light.to_light[0], to_y = light.to_light[1], to_z = light.to_light[2];
    const float half_x = light.half[0], half_y = light.half[1], half_z = light.half[2];
    each_slope(in, [&](int i, float sx, float sy) {
        const float nz = 1.0f / std::sqrt(sx * sx + sy * sy + 1.0f);
        const float nx = -sx * nz, ny = -sy * nz;
        const float lit = nx * to_x + ny * to_y + nz * to_z;
        float shine = nx * half_x + ny * half_y + nz * half_z;
        shine = shine > 0.0f ? shine : 0.0f;
        scattered[i] = lit > 0.0f ? lit : 0.0f;
        reflected[i] = (shine < 1.0f ? shine : 1.0f) * highlight_entries;
    });
    const float* table = light.highlights;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < in.n; ++i) {
        const float position = reflected[i];
        const int entry = static_cast<int>(position);
        reflected[i] = table[entry] + (table[entry + 1] - table[entry]) * (position - static_cast<float>(entry));
    }
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < in.n; ++i) reflected[i] = scattered[i] > 0.0f ? reflected[i] : 0.0f;
}

void apply_light(FixPixel* p, const float* scattered, const float* reflected, float color, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        float v = color * (static_cast<float>(p[i]) * scattered[i] + reflected[i]);
        v = v < -32767.0f ? -32767.0f : v;
        v = v > 32767.0f ? 32767.0f : v;
        p[i] = static_cast<FixPixel>(static_cast<int32_t>(v));
    }
}

void extremes(const FixPixel* below, const FixPixel* row, const FixPixel* above, FixPixel* high, FixPixel* low, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const FixPixel a = below[i], b = row[i], c = above[i];
        const FixPixel most = a > b ? a : b, least = a < b ? a : b;
        high[i] = most > c ? most : c;
        low[i] = least < c ? least : c;
    }
}

// Differences of two samples, counted without a sign, fit 16 bits.
void mark_steps(const FixPixel* row, const FixPixel* high, const FixPixel* low, uint16_t threshold, FixPixel* out,
                int n) {
    const auto mark = [&](int i, int left, int right) {
        const FixPixel here = row[i];
        FixPixel most = high[left] > high[i] ? high[left] : high[i], least = low[left] < low[i] ? low[left] : low[i];
        most = most > high[right] ? most : high[right];
        least = least < low[right] ? least : low[right];
        const auto up = static_cast<uint16_t>(most - here), down = static_cast<uint16_t>(here - least);
        const uint16_t step = up > down ? up : down;
        out[i] = step > threshold ? FixPixel{fix_scale} : out[i];
    };
    mark(0, 0, n > 1 ? 1 : 0);
    INDEPENDENT_ITERATIONS
    for (int i = 1; i < n - 1; ++i) mark(i, i - 1, i + 1);
    if (n > 1) mark(n - 1, n - 2, n - 1);
}

void count_rows(const FixPixel* matte, const FixPixel* matte_beside, const uint16_t* beside, uint16_t* counted, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const uint16_t b = beside[i];
        uint16_t v = static_cast<uint16_t>(b + (b != edge_no_row ? 1 : 0));
        v = (matte[i] >= edge_inside) != (matte_beside[i] >= edge_inside) ? uint16_t{1} : v;
        counted[i] = v < counted[i] ? v : counted[i];
    }
}

// The roots by themselves: a compiler that has to set errno for less than 0 does not vectorise them.
void distances(float* squares, float factor, FixPixel* out, int n) {
    namespace hn = hwy::HWY_NAMESPACE;
    const hn::ScalableTag<float> d;
    const int lanes = static_cast<int>(hn::Lanes(d));
    int x = 0;
    for (; x + lanes <= n; x += lanes) hn::StoreU(hn::Sqrt(hn::LoadU(d, squares + x)), d, squares + x);
    for (; x < n; ++x) squares[x] = std::sqrt(squares[x]);
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        float v = (squares[i] - 0.5f) * factor;
        v += v < 0.0f ? -0.5f : 0.5f;
        v = v < -32767.0f ? -32767.0f : v;
        v = v > 32767.0f ? 32767.0f : v;
        out[i] = static_cast<FixPixel>(static_cast<int32_t>(v));
    }
}

constexpr EdgeRows edge_table = {scaled_difference, add_difference,     slopes,   slope_length, slope_direction,
                                 slope_along,       moved_slope_length, shade,    apply_light,  extremes,
                                 mark_steps,        count_rows,         distances};

}  // namespace
const EdgeRows* edge_rows_of_target() { return &edge_table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(edge_rows_of_target);
const EdgeRows& edge_rows() { return *HWY_DYNAMIC_DISPATCH(edge_rows_of_target)(); }
}  // namespace velloran
#endif
