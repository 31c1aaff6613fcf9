#include "operators/noise/fractal_plan.h"

#include <algorithm>
#include <cmath>

namespace velloran {
namespace {

// Part of the lattice that the whole frame spans along one axis, 12 fraction bits: from its first sample to one behind
// its last.
struct Span {
    int64_t from, to;
    int samples;
    // Numbers of a grid: one cell more on the low side, two on the high side.
    int64_t columns() const { return (to >> 12) - (from >> 12) + 4; }
    bool doubles(int64_t room) const { return to > from && 2 * columns() - 3 <= room; }
};

// middle: of the first sample, in coordinates; pitch: from sample to sample.
Span span_of(double frequency, double middle, double pitch, int samples) {
    const auto fixed = [frequency](double at) { return static_cast<int64_t>(std::floor(frequency * at * 4096 + 0.5)); };
    return {fixed(middle), fixed(middle + pitch * samples), samples};
}

int64_t half_below(int64_t a) { return a >> 1; }

// The numbers of a grid that its doubling reads for span: a number between two others reads these, one on another reads
// its neighbours too.
GridSpan before_doubling(const GridSpan& span) {
    const int64_t first = half_below(span.first - 1), last = half_below(span.first + span.count + 1);
    return {first, static_cast<int>(last - first + 1)};
}

// How the planes' samples lie in the last grid, and from there back to the lattice.
void place_planes(FractalAxis& axis, const Span& span, int doublings, int first_sample, int samples) {
    const int64_t from = (span.from << 1), to = (span.to << 1);
    axis.pitch = (to - from) * 16 / span.samples;
    axis.start = from * 16 + axis.pitch * first_sample;
    const int64_t first = axis.start >> 16, last = (axis.start + axis.pitch * (samples - 1)) >> 16;
    axis.spans[doublings + 1] = {first, static_cast<int>(last - first + 2)};
    axis.spans[doublings] = before_doubling(axis.spans[doublings + 1]);
    for (int i = doublings - 1; i >= 0; --i)
        axis.spans[i] = axis.doubled[i] ? before_doubling(axis.spans[i + 1]) : axis.spans[i + 1];
}

void double_span(Span& span) {
    span.from *= 2;
    span.to *= 2;
}

}  // namespace

FractalPlan plan_fractal_noise(const FractalNoise& noise, const FractalFrame& frame) {
    const int width = (frame.width + frame.step - 1) / frame.step,
              height = (frame.height + frame.step - 1) / frame.step;
    // Cells for each unit of coordinates that so many pixels can show.
    const auto limit_x = [](double pixels) { return std::max((pixels - 4) / 2, 0.0); };
    const auto limit_y = [&](double pixels) { return std::max((pixels - 4) / (2 * frame.half_height), 0.0); };
    double fx = std::fabs(noise.frequency[0]), fy = std::fabs(noise.frequency[1]) / frame.pixel_aspect;

    // Fine noise is worked at twice the height, so that its rows are doubled as often as its columns.
    bool fine = false;
    for (int octave = 0; octave < std::min(noise.octaves, 4); ++octave)
        fine = fine || std::ldexp(fx, octave) > limit_x(width) || std::ldexp(fy, octave) > limit_y(height);
    fx = std::min(fx, limit_x(frame.width));
    fy = std::min(fy, limit_y(2.0 * frame.height));

    const double pitch_x = 2.0 * frame.step / frame.width, pitch_y = 2 * frame.half_height * frame.step / frame.height;
    Span x = span_of(fx, -1 + pitch_x / 2 - noise.shift[0], pitch_x, width);
    Span y = span_of(fy, -frame.half_height + pitch_y / 2 - noise.shift[1], pitch_y, height);

    FractalPlan plan = {};
    for (; plan.doublings < most_doublings; ++plan.doublings) {
        const int i = plan.doublings;
        plan.x.doubled[i] = x.doubles(width);
        plan.y.doubled[i] = y.doubles(fine ? 2 * height : height);
        if (!plan.x.doubled[i] && !plan.y.doubled[i]) break;
        if (plan.x.doubled[i]) double_span(x);
        if (plan.y.doubled[i]) double_span(y);
        if (plan.x.doubled[i] && plan.y.doubled[i] && i + 1 < noise.octaves) plan.octave[i] = i + 1;
    }
    place_planes(plan.x, x, plan.doublings, frame.column, frame.columns);
    place_planes(plan.y, y, plan.doublings, frame.row, frame.rows);
    return plan;
}

}  // namespace velloran
