#include "operators/looks/paint_strokes.h"

#include "support/hash.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>

namespace velloran {

namespace {

constexpr float two_pi = 6.2831853f;
// The hand of a painter: strokes rise to the right, each a little otherwise.
constexpr float hand_turns = 0.11f, hand_spread = 0.09f;
// A slope of so much in a brush's size is followed as far as can be.
constexpr float steep = 0.03f * fix_scale;
// The mean difference in a cell from which on there is something to mend.
constexpr float visible = 0.035f * fix_scale;

// 0 to 1, another for each number.
float chance(uint32_t seed, uint32_t number) { return static_cast<float>(unit_hash(bit_hash2(seed, number))); }

int row_samples(const Canvas& canvas, float y) {
    return std::clamp(static_cast<int>(y / canvas.row_height), 0, canvas.height - 1);
}
int column_samples(const Canvas& canvas, float x) { return std::clamp(static_cast<int>(x), 0, canvas.width - 1); }
ptrdiff_t sample_at(const Canvas& canvas, float x, float y) {
    return ptrdiff_t{row_samples(canvas, y)} * canvas.width + column_samples(canvas, x);
}

int difference(const Canvas& canvas, const FixPixel* const* reference, ptrdiff_t at) {
    int sum = 0;
    for (int c = 0; c < canvas.channels; ++c) sum += std::abs(canvas.planes[c][at] - reference[c][at]);
    return sum;
}

// The place of the largest difference in a cell; false where the mean of all is not worth a stroke.
bool find_difference(const Canvas& canvas, const FixPixel* const* reference, float size, float* x, float* y) {
    const int left = column_samples(canvas, *x), right = column_samples(canvas, *x + size);
    const int low = row_samples(canvas, *y), high = row_samples(canvas, *y + size);
    int64_t sum = 0;
    int most = -1, n = 0;
    for (int j = low; j <= high; ++j)
        for (int i = left; i <= right; ++i, ++n) {
            const int d = difference(canvas, reference, ptrdiff_t{j} * canvas.width + i);
            sum += d;
            if (d <= most) continue;
            most = d;
            *x = static_cast<float>(i) + 0.5f;
            *y = (static_cast<float>(j) + 0.5f) * canvas.row_height;
        }
    return static_cast<float>(sum) > visible * static_cast<float>(n) * static_cast<float>(canvas.channels);
}

void set_direction(const Canvas& canvas, const FixPixel* luma, const Brush& brush, Stroke* stroke) {
    const float reach = std::max(brush.size * 0.3f, 1.0f);
    const auto at = [&](float x, float y) { return static_cast<float>(luma[sample_at(canvas, x, y)]); };
    const float slope_x = at(stroke->x + reach, stroke->y) - at(stroke->x - reach, stroke->y),
                slope_y = at(stroke->x, stroke->y + reach) - at(stroke->x, stroke->y - reach);
    const float slope = std::sqrt(slope_x * slope_x + slope_y * slope_y);
    const float angle = two_pi * (hand_turns + hand_spread * (chance(stroke->seed, 3) - 0.5f));
    float x = std::cos(angle), y = std::sin(angle);
    const float follow = slope > 0.0f ? brush.follow * std::min(slope / steep, 1.0f) : 0.0f;
    if (follow > 0.0f) {
        float across_x = -slope_y / slope, across_y = slope_x / slope;
        if (across_x * x + across_y * y < 0.0f) {
            across_x = -across_x;
            across_y = -across_y;
        }
        x += (across_x - x) * follow;
        y += (across_y - y) * follow;
    }
    const float length = std::sqrt(x * x + y * y);
    stroke->along_x = length > 0.0f ? x / length : 1.0f;
    stroke->along_y = length > 0.0f ? y / length : 0.0f;
}

// The paint along each bristle of a stroke's width.
struct Bristles {
    float opacity[n_bristles], reach[n_bristles], light[n_bristles];
};

Bristles make_bristles(uint32_t seed) {
    Bristles b;
    for (uint32_t k = 0; k < n_bristles; ++k) {
        b.opacity[k] = 0.78f + 0.22f * chance(seed, 10 + k);
        b.reach[k] = 0.72f + 0.28f * chance(seed, 30 + k);
        b.light[k] = (chance(seed, 50 + k) - 0.5f) * (0.07f * fix_scale);
    }
    return b;
}

// Half the size of the box around a stroke, along an axis on which it has these parts.
float half_extent(const Stroke& s, float along, float across) {
    return s.half_length * std::fabs(along) + s.half_width * (1.0f + std::fabs(s.bend)) * std::fabs(across) + 1.0f;
}

// The columns between low and high, beside the stroke's middle, in which |dx * slope + offset| <= most.
void narrow_columns(float slope, float offset, float most, float* low, float* high) {
    if (std::fabs(slope) < 1e-3f) return;
    const float a = (-most - offset) / slope, b = (most - offset) / slope;
    *low = std::max(*low, std::min(a, b));
    *high = std::min(*high, std::max(a, b));
}

}  // namespace

void draw_stroke(const Stroke& s, const Canvas& canvas, int first, int end) {
    const float up = half_extent(s, s.along_y, s.along_x) / canvas.row_height, middle = s.y / canvas.row_height;
    const int low = std::max(first, static_cast<int>(std::floor(middle - up)));
    const int high = std::min(end, static_cast<int>(std::ceil(middle + up)));
    if (low >= high) return;
    const float wide = half_extent(s, s.along_x, s.along_y);
    const Bristles bristles = make_bristles(s.seed);
    for (int y = low; y < high; ++y) {
        const float dy = (static_cast<float>(y) + 0.5f) * canvas.row_height - s.y;
        const ptrdiff_t row = ptrdiff_t{y} * canvas.width;
        float low_dx = -wide, high_dx = wide;
        narrow_columns(s.along_x, dy * s.along_y, s.half_length + 2.0f, &low_dx, &high_dx);
        narrow_columns(-s.along_y, dy * s.along_x, s.half_width * (1.0f + std::fabs(s.bend) * 1.5f) + 2.0f, &low_dx,
                       &high_dx);
        if (low_dx > high_dx) continue;
        const int left = std::max(0, static_cast<int>(std::floor(s.x + low_dx)));
        const int right = std::min(canvas.width, static_cast<int>(std::ceil(s.x + high_dx)));
        for (int x = left; x < right; ++x) {
            const float dx = static_cast<float>(x) + 0.5f - s.x;
            const float along = (dx * s.along_x + dy * s.along_y) / s.half_length;
            const float across = (dy * s.along_x - dx * s.along_y) / s.half_width + s.bend * along * along;
            if (!(std::fabs(across) < 1.5f && std::fabs(along) < 1.5f)) continue;
            // Between two bristles.
            const float place = std::clamp((across + 1.0f) * (0.5f * (n_bristles - 1)), 0.0f, n_bristles - 1.001f);
            const int k = static_cast<int>(place);
            const float part = place - static_cast<float>(k);
            const auto between = [&](const float* of) { return of[k] + (of[k + 1] - of[k]) * part; };
            // The ends run out bristle by bristle, the sides over a sample.
            const float ends =
                std::clamp((between(bristles.reach) - std::fabs(along)) * s.half_length * 0.5f + 0.5f, 0.0f, 1.0f);
            const float sides = std::clamp((1.0f - std::fabs(across)) * s.half_width + 0.5f, 0.0f, 1.0f);
            const float alpha = ends * sides * between(bristles.opacity);
            if (alpha <= 0.0f) continue;
            const float light = between(bristles.light);
            for (int c = 0; c < canvas.channels; ++c) {
                FixPixel* const p = canvas.planes[c] + row + x;
                // Alpha has no light of its own.
                const float color =
                    static_cast<float>(s.color[c]) + (canvas.channels % 2 || c < canvas.channels - 1 ? light : 0.0f);
                const float v = static_cast<float>(*p) + (color - static_cast<float>(*p)) * alpha;
                *p = clip_to_image(static_cast<int32_t>(std::floor(v + 0.5f)));
            }
        }
    }
}

int stroke_columns(const Canvas& canvas, const Brush& brush) {
    return static_cast<int>(std::ceil(static_cast<float>(canvas.width) / brush.size));
}
int stroke_rows(const Canvas& canvas, const Brush& brush) {
    return static_cast<int>(std::ceil(static_cast<float>(canvas.height) * canvas.row_height / brush.size));
}

void place_strokes(const Canvas& canvas, const FixPixel* const* reference, const FixPixel* luma, const Brush& brush,
                   int row, Stroke* strokes) {
    const int n = stroke_columns(canvas, brush);
    for (int i = 0; i < n; ++i) {
        Stroke& s = strokes[i];
        s = {};
        s.x = static_cast<float>(i) * brush.size;
        s.y = static_cast<float>(row) * brush.size;
        const uint32_t seed =
            bit_hash2(bit_hash2(brush.seed, static_cast<uint32_t>(i)), static_cast<uint32_t>(row)) | 1u;
        if (brush.everywhere) {
            s.x += brush.size * chance(seed, 1);
            s.y += brush.size * chance(seed, 2);
        } else if (!find_difference(canvas, reference, brush.size, &s.x, &s.y)) {
            continue;
        }
        s.seed = seed;
        set_direction(canvas, luma, brush, &s);
        s.half_length = brush.size * (1.0f + 0.8f * chance(seed, 4));
        s.half_width = brush.size * (brush.everywhere ? 0.62f : 0.42f);
        s.bend = 0.7f * (chance(seed, 5) - 0.5f);
        const ptrdiff_t at = sample_at(canvas, s.x, s.y);
        for (int c = 0; c < canvas.channels; ++c) s.color[c] = reference[c][at];
    }
}

}  // namespace velloran
