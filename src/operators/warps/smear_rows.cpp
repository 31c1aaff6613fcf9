#include "operators/warps/smear_rows.h"

#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/warps/smear_rows.cpp"
#include "hwy/foreach_target.h"
#include "operators/mipmap/taps-inl.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

// Four channels that are added up.
#if ROW_TARGET_PLAIN

struct Samples {
    int32_t v[4];
};
struct Total {
    float v[4];
};
HWY_INLINE Total no_total() { return {}; }
HWY_INLINE Samples no_samples() { return {}; }
template <int elements>
HWY_INLINE Samples sample_at(const int16_t* at) {
    Samples s = {};
    for (int c = 0; c < elements; ++c) s.v[c] = at[c];
    return s;
}
template <int elements>
HWY_INLINE Samples sample_of_taps(const int16_t* data, const Taps& taps, uint32_t row_samples, int i) {
    const Sum sum = sum_of_taps<elements>(data, taps, row_samples, i);
    Samples s;
    for (int c = 0; c < 4; ++c) s.v[c] = sum.v[c] >> fix_bits;
    return s;
}
HWY_INLINE void add(Samples& sum, Samples s) {
    for (int c = 0; c < 4; ++c) sum.v[c] += s.v[c];
}
HWY_INLINE void add(Total& total, Samples s, float weight) {
    for (int c = 0; c < 4; ++c) total.v[c] += static_cast<float>(s.v[c]) * weight;
}
HWY_INLINE void add(Total& total, const float* color, float weight) {
    for (int c = 0; c < 4; ++c) total.v[c] += color[c] * weight;
}
HWY_INLINE void store(const Total& total, float factor, float* out) {
    for (int c = 0; c < 4; ++c) out[c] = total.v[c] * factor;
}

#else

struct Samples {
    Quad v;
};
struct Total {
    hn::Vec<TagFloat> v;
};
HWY_INLINE Total no_total() { return {hn::Zero(TagFloat())}; }
HWY_INLINE Samples no_samples() { return {hn::Zero(Tag32())}; }
// Eight bytes; those of the next pixel are not looked at.
template <int elements>
HWY_INLINE Samples sample_at(const int16_t* at) {
    return {hn::PromoteTo(Tag32(), hn::LoadU(hn::FixedTag<int16_t, 4>(), at))};
}
template <int elements>
HWY_INLINE Samples sample_of_taps(const int16_t* data, const Taps& taps, uint32_t row_samples, int i) {
    return {hn::ShiftRight<fix_bits>(sum_of_taps<elements>(data, taps, row_samples, i))};
}
HWY_INLINE void add(Samples& sum, Samples s) { sum.v = hn::Add(sum.v, s.v); }
HWY_INLINE void add(Total& total, Samples s, float weight) {
    const TagFloat d;
    total.v = hn::Add(total.v, hn::Mul(hn::ConvertTo(d, s.v), hn::Set(d, weight)));
}
HWY_INLINE void add(Total& total, const float* color, float weight) {
    const TagFloat d;
    total.v = hn::Add(total.v, hn::Mul(hn::LoadU(d, color), hn::Set(d, weight)));
}
HWY_INLINE void store(const Total& total, float factor, float* out) {
    const TagFloat d;
    hn::StoreU(hn::Mul(total.v, hn::Set(d, factor)), d, out);
}

#endif

// A line that is being walked: the middle of each of its steps is looked up.
struct Line {
    int32_t x, y, x_step, y_step, steps;
    float weight, weight_step;
};

HWY_INLINE int32_t without_sign(int32_t v) { return v < 0 ? -v : v; }

// Steps of the longer of its two extents in whole pixels, and one.
HWY_INLINE Line make_line(const SmearPlan& plan, int32_t from_x, int32_t from_y, int32_t to_x, int32_t to_y) {
    const int32_t dx = to_x - from_x, dy = to_y - from_y;
    const int32_t longer = without_sign(dx) > without_sign(dy) ? without_sign(dx) : without_sign(dy);
    int32_t steps = (longer >> fix_bits) + 1;
    steps = (steps + (1 << plan.skip) - 1) >> plan.skip;
    steps = steps > plan.most_steps ? plan.most_steps : steps;
    Line line;
    line.steps = steps;
    line.x_step = dx / steps;
    line.y_step = dy / steps;
    line.x = from_x + line.x_step / 2;
    line.y = from_y + line.y_step / 2;
    line.weight_step = (plan.end_weight - plan.start_weight) / static_cast<float>(steps);
    line.weight = plan.start_weight + 0.5f * line.weight_step;
    return line;
}

// The nearest sample lies in the picture.
HWY_INLINE bool inside(int32_t position, int32_t size) {
    return static_cast<uint32_t>(position + 2048) < static_cast<uint32_t>(size) << fix_bits;
}

// An axis that goes round the picture: one period is enough after a step, which is no longer than that. direction turns
// round where the picture is mirrored.
struct Round {
    int32_t position, direction;
};
HWY_INLINE Round start_round(int32_t position, const AxisWrap& wrap) {
    const int32_t times = static_cast<int32_t>(std::floor(static_cast<float>(position + 2048) * wrap.inverse_period));
    const int32_t within = position - times * wrap.period;
    if (wrap.mirrored && (times & 1)) return {wrap.period - 4096 - within, -1};
    return {within, 1};
}
HWY_INLINE void go_round(Round& at, int32_t step, const AxisWrap& wrap) {
    at.position += at.direction * held(step, -wrap.period, wrap.period);
    const bool below = at.position < -2048, above = at.position >= wrap.period - 2048;
    if (!below && !above) return;
    if (wrap.mirrored) {
        at.position = (below ? -4096 : 2 * wrap.period - 4096) - at.position;
        at.direction = -at.direction;
    } else {
        at.position += below ? wrap.period : -wrap.period;
    }
}

// Positions of the next steps of a line.
struct Walk {
    int32_t x, y, x_step, y_step;
    Round round_x, round_y;
};
HWY_INLINE Walk start_walk(const SmearPlan& plan, const Line& line) {
    Walk walk = {line.x, line.y, line.x_step, line.y_step, {}, {}};
    if (plan.x_wrap.on) walk.round_x = start_round(line.x, plan.x_wrap);
    if (plan.y_wrap.on) walk.round_y = start_round(line.y, plan.y_wrap);
    return walk;
}
// n positions, and the walk goes on behind them.
HWY_INLINE void walk_on(const SmearPlan& plan, Walk& walk, int32_t* x, int32_t* y, int n) {
    if (plan.x_wrap.on)
        for (int k = 0; k < n; ++k, go_round(walk.round_x, walk.x_step, plan.x_wrap)) x[k] = walk.round_x.position;
    else
        for (int k = 0; k < n; ++k) x[k] = walk.x + k * walk.x_step;
    if (plan.y_wrap.on)
        for (int k = 0; k < n; ++k, go_round(walk.round_y, walk.y_step, plan.y_wrap)) y[k] = walk.round_y.position;
    else
        for (int k = 0; k < n; ++k) y[k] = walk.y + k * walk.y_step;
    walk.x += n * walk.x_step;
    walk.y += n * walk.y_step;
}

HWY_INLINE uint32_t nearest(const SmearPlan& plan, int32_t x, int32_t y, int elements) {
    return static_cast<uint32_t>(((y + 2048) >> fix_bits) + 1) * plan.row_samples +
           static_cast<uint32_t>((((x + 2048) >> fix_bits) + 1) * elements);
}

// A line all of which lies in the picture, with samples of one weight: the common case.
template <int elements>
HWY_INLINE Samples sum_of_line(const SmearPlan& plan, const Line& line) {
    Samples sum = no_samples();
    int32_t x = line.x, y = line.y;
    for (int k = 0; k < line.steps; ++k, x += line.x_step, y += line.y_step)
        add(sum, sample_at<elements>(plan.data + nearest(plan, x, y, elements)));
    return sum;
}

// Any line.
template <int elements>
HWY_INLINE void follow_line(const SmearPlan& plan, const Line& line, float* out) {
    Total total = no_total();
    float weights = 0.0f, weight = line.weight;
    Walk walk = start_walk(plan, line);
    const TapPlan top = {{1.0f, plan.width, false}, {1.0f, plan.height, false}, 0, plan.row_samples, elements};
    int32_t x[look_up_block], y[look_up_block];
    Taps taps;
    for (int done = 0; done < line.steps; done += look_up_block) {
        const int left = line.steps - done, n = left < look_up_block ? left : look_up_block;
        walk_on(plan, walk, x, y, n);
        if (plan.subpixel)
            for (int k = 0; k < n; ++k)
                store_taps(along(x[k], top.x.size), along(y[k], top.y.size), 0, top.row_samples, elements, &taps, k);
        for (int k = 0; k < n; ++k, weight += line.weight_step) {
            if (inside(x[k], plan.width) && inside(y[k], plan.height)) {
                add(total,
                    plan.subpixel ? sample_of_taps<elements>(plan.data, taps, plan.row_samples, k)
                                  : sample_at<elements>(plan.data + nearest(plan, x[k], y[k], elements)),
                    weight);
            } else {
                if (!plan.outside_counts) continue;
                add(total, plan.outside, weight);
            }
            weights += weight;
        }
    }
    store(total, weights > 0.0f ? plan.gain / weights : 0.0f, out);
}

template <int elements>
void smear(const SmearPlan& of, const int32_t* from_x, const int32_t* from_y, const int32_t* to_x, const int32_t* to_y,
           BlockFloat* out, int n) {
    const SmearPlan plan = of;
    const bool even = plan.start_weight == plan.end_weight && !plan.subpixel;
    for (int i = 0; i < n; ++i) {
        const Line line = make_line(plan, from_x[i], from_y[i], to_x[i], to_y[i]);
        const bool within = inside(from_x[i], plan.width) && inside(to_x[i], plan.width) &&
                            inside(from_y[i], plan.height) && inside(to_y[i], plan.height);
        const bool still = from_x[i] == to_x[i] && from_y[i] == to_y[i];
        if (even && within && !still) {
            const Samples sum = sum_of_line<elements>(plan, line);
            Total total = no_total();
            add(total, sum, 1.0f);
            store(total, plan.gain / static_cast<float>(line.steps), out->v[i]);
        } else if (still && !plan.subpixel) {
            // What does not move is looked up between the pixels.
            SmearPlan exact = plan;
            exact.subpixel = true;
            follow_line<elements>(exact, line, out->v[i]);
        } else {
            follow_line<elements>(plan, line, out->v[i]);
        }
    }
}

constexpr SmearRows rows = {{smear<1>, smear<2>, smear<3>, smear<4>}};

}  // namespace
const SmearRows* smear_rows_of_target() { return &rows; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(smear_rows_of_target);
const SmearRows& smear_rows() { return *HWY_DYNAMIC_DISPATCH(smear_rows_of_target)(); }
}  // namespace velloran
#endif
