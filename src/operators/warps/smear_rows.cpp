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

// ---- Neighbours whose lines have the same course: each step of theirs is a stretch of samples side by side.

constexpr int shortest_run = 8, most_run_steps = 512;

struct RunSteps {
    int count;                    // of those that lie in the picture
    uint32_t at[most_run_steps];  // of the first pixel's sample
    float weights[most_run_steps];
    uint32_t lower[most_run_steps], upper[most_run_steps];  // weights of the taps, as in Taps
};

// The line of the first pixel. Below and above the picture nothing counts.
template <int elements>
HWY_INLINE void make_run_steps(const SmearPlan& plan, const Line& line, RunSteps* steps) {
    int32_t x = line.x, y = line.y, k = 0;
    float weight = line.weight;
    for (int step = 0; step < line.steps; ++step, x += line.x_step, y += line.y_step, weight += line.weight_step) {
        if (!inside(y, plan.height)) continue;
        steps->weights[k] = weight;
        if (!plan.subpixel) {
            steps->at[k++] = nearest(plan, x, y, elements);
            continue;
        }
        Taps taps;
        store_taps(along(x, plan.width), along(y, plan.height), 0, plan.row_samples, elements, &taps, 0);
        steps->at[k] = taps.at[0];
        steps->lower[k] = taps.lower[0];
        steps->upper[k++] = taps.upper[0];
    }
    steps->count = k;
}

// Sums of the nearest samples, each counting once.
struct PlainSum {
    const int16_t* data;
    const RunSteps& steps;
    HWY_INLINE float one(int s) const {
        int32_t sum = 0;
        for (int k = 0; k < steps.count; ++k) sum += data[steps.at[k] + static_cast<uint32_t>(s)];
        return static_cast<float>(sum);
    }
    template <int registers>
    HWY_INLINE void many(int s, float* out) const {
        const hn::Rebind<int16_t, DI> half;
        I sums[registers];
        for (I& sum : sums) sum = I(0);
        for (int k = 0; k < steps.count; ++k) {
            const int16_t* const from = data + steps.at[k] + s;
            for (int u = 0; u < registers; ++u)
                sums[u] = sums[u] + I(hn::PromoteTo(DI(), hn::LoadU(half, from + u * lane_count)));
        }
        for (int u = 0; u < registers; ++u) hn::StoreU(number(sums[u]).v, DF(), out + u * lane_count);
    }
};

// Of the nearest samples times their steps' weights.
struct WeightedSum {
    const int16_t* data;
    const RunSteps& steps;
    HWY_INLINE float one(int s) const {
        float sum = 0.0f;
        for (int k = 0; k < steps.count; ++k)
            sum += static_cast<float>(data[steps.at[k] + static_cast<uint32_t>(s)]) * steps.weights[k];
        return sum;
    }
    template <int registers>
    HWY_INLINE void many(int s, float* out) const {
        const hn::Rebind<int16_t, DI> half;
        F sums[registers];
        for (F& sum : sums) sum = F(0.0f);
        for (int k = 0; k < steps.count; ++k) {
            const int16_t* const from = data + steps.at[k] + s;
            const F weight(steps.weights[k]);
            for (int u = 0; u < registers; ++u)
                sums[u] = sums[u] + number(I(hn::PromoteTo(DI(), hn::LoadU(half, from + u * lane_count)))) * weight;
        }
        for (int u = 0; u < registers; ++u) hn::StoreU(sums[u].v, DF(), out + u * lane_count);
    }
};

// Of samples between the pixels.
template <int elements>
struct TapSum {
    const int16_t* data;
    uint32_t row_samples;
    const RunSteps& steps;
    HWY_INLINE float one(int s) const {
        float sum = 0.0f;
        const auto pair = [](const int16_t* at, uint32_t weights) HWY_ATTR {
            return at[0] * static_cast<int32_t>(weights & 0xffff) + at[elements] * static_cast<int32_t>(weights >> 16);
        };
        for (int k = 0; k < steps.count; ++k) {
            const int16_t* const at = data + steps.at[k] + s;
            const int32_t sample = (pair(at, steps.lower[k]) + pair(at + row_samples, steps.upper[k])) >> fix_bits;
            sum += static_cast<float>(sample) * steps.weights[k];
        }
        return sum;
    }
    template <int registers>
    HWY_INLINE void many(int s, float* out) const {
#if ROW_TARGET_PLAIN
        for (int u = 0; u < registers; ++u) out[u] = one(s + u);
#else
        static_assert(registers % 2 == 0);
        constexpr int pairs = registers / 2, width = 2 * lane_count;
        const hn::Repartition<int16_t, DI> d;
        F low[pairs], high[pairs];
        for (int u = 0; u < pairs; ++u) low[u] = high[u] = F(0.0f);
        for (int k = 0; k < steps.count; ++k) {
            const int16_t* const from = data + steps.at[k] + s;
            const auto lower = hn::BitCast(d, I(static_cast<int32_t>(steps.lower[k])).v);
            const auto upper = hn::BitCast(d, I(static_cast<int32_t>(steps.upper[k])).v);
            const F weight(steps.weights[k]);
            for (int u = 0; u < pairs; ++u) {
                const int16_t* const at = from + u * width;
                const auto a = hn::LoadU(d, at), b = hn::LoadU(d, at + elements);
                const auto c = hn::LoadU(d, at + row_samples), e = hn::LoadU(d, at + row_samples + elements);
                auto unused = hn::Zero(DI());
                // On these targets products of neighbours are added, and nothing goes into the second sum.
                const auto product = [&](auto below, auto above) HWY_ATTR {
                    const auto of_row = hn::ReorderWidenMulAccumulate(DI(), below, lower, hn::Zero(DI()), unused);
                    return shr<fix_bits>(I(hn::ReorderWidenMulAccumulate(DI(), above, upper, of_row, unused)));
                };
                const I first = product(hn::InterleaveLower(d, a, b), hn::InterleaveLower(d, c, e));
                const I second = product(hn::InterleaveUpper(d, a, b), hn::InterleaveUpper(d, c, e));
                low[u] = low[u] + number(first) * weight;
                high[u] = high[u] + number(second) * weight;
            }
        }
        // Blocks of four, from both by turns.
        for (int u = 0; u < pairs; ++u) {
            HWY_ALIGN float both[2][lane_count];
            hn::Store(low[u].v, DF(), both[0]);
            hn::Store(high[u].v, DF(), both[1]);
            for (int block = 0; block < lane_count / 4; ++block)
                for (int half = 0; half < 2; ++half)
                    std::memcpy(out + u * width + (2 * block + half) * 4, both[half] + block * 4, 4 * sizeof(float));
        }
#endif
    }
};

template <class Sum>
HWY_INLINE void sum_run(const Sum& sum, float* out, int samples) {
    int s = 0;
    for (; s + 8 * lane_count <= samples; s += 8 * lane_count) sum.template many<8>(s, out + s);
    for (; s + 2 * lane_count <= samples; s += 2 * lane_count) sum.template many<2>(s, out + s);
    for (; s < samples; ++s) out[s] = sum.one(s);
}

// From pixels of the elements' width, side by side.
template <int elements>
HWY_INLINE void store_run(const float* in, float factor, FixPixel* const* planes, int n) {
    for (int c = 0; c < elements; ++c) {
        FixPixel* const plane = planes[c];
        INDEPENDENT_ITERATIONS
        for (int i = 0; i < n; ++i)
            plane[i] = static_cast<FixPixel>(
                rounded(held(in[i * elements + c] * factor, static_cast<float>(fix_image_limit))));
    }
}

template <int elements>
HWY_NOINLINE void smear_run(const SmearPlan& plan, const Line& line, bool even, FixPixel* const* planes, int n) {
    RunSteps steps;
    alignas(64) float sums[look_up_block * elements];
    make_run_steps<elements>(plan, line, &steps);
    float weights = 0.0f;
    if (even) {
        sum_run(PlainSum{plan.data, steps}, sums, n * elements);
        weights = static_cast<float>(steps.count);
    } else {
        for (int k = 0; k < steps.count; ++k) weights += steps.weights[k];
        if (plan.subpixel)
            sum_run(TapSum<elements>{plan.data, plan.row_samples, steps}, sums, n * elements);
        else
            sum_run(WeightedSum{plan.data, steps}, sums, n * elements);
    }
    store_run<elements>(sums, weights > 0.0f ? plan.gain / weights : 0.0f, planes, n);
}

// A repeated or mirrored picture finds the place of a line's start with a float, which may be off by a little.
HWY_INLINE bool well_inside(int32_t position, int32_t size, const AxisWrap& wrap) {
    return inside(position, size) && (!wrap.on || position < wrap.period - 2048 - (wrap.period >> 20) - 2);
}

template <int elements>
void smear(const SmearPlan& of, const int32_t* from_x, const int32_t* from_y, const int32_t* to_x, const int32_t* to_y,
           FixPixel* const* planes, int n) {
    const SmearPlan plan = of;
    const bool even = plan.start_weight == plan.end_weight && !plan.subpixel;
    const auto within = [&](int i) HWY_ATTR {
        return inside(from_x[i], plan.width) && inside(to_x[i], plan.width) && inside(from_y[i], plan.height) &&
               inside(to_y[i], plan.height);
    };
    const auto x_well_within = [&](int i) HWY_ATTR {
        return well_inside(from_x[i], plan.width, plan.x_wrap) && well_inside(to_x[i], plan.width, plan.x_wrap);
    };
    const bool leaves = !plan.y_wrap.on && !plan.outside_counts;
    const auto y_followed = [&](int i) HWY_ATTR {
        return leaves ||
               (well_inside(from_y[i], plan.height, plan.y_wrap) && well_inside(to_y[i], plan.height, plan.y_wrap));
    };
    for (int i = 0; i < n;) {
        const Line line = make_line(plan, from_x[i], from_y[i], to_x[i], to_y[i]);
        const bool still = from_x[i] == to_x[i] && from_y[i] == to_y[i];
        if (!still && line.steps <= most_run_steps && x_well_within(i) && y_followed(i)) {
            int end = i + 1;
            for (; end < n; ++end) {
                const int32_t on = (end - i) * fix_scale;
                if (from_x[end] - from_x[i] != on || to_x[end] - to_x[i] != on || from_y[end] != from_y[i] ||
                    to_y[end] != to_y[i])
                    break;
            }
            while (end > i + 1 && !x_well_within(end - 1)) --end;
            if (end - i >= shortest_run) {
                FixPixel* at[elements];
                for (int c = 0; c < elements; ++c) at[c] = planes[c] + i;
                smear_run<elements>(plan, line, even, at, end - i);
                i = end;
                continue;
            }
        }
        alignas(16) float mean[4];
        if (even && !still && within(i)) {
            const Samples sum = sum_of_line<elements>(plan, line);
            Total total = no_total();
            add(total, sum, 1.0f);
            store(total, plan.gain / static_cast<float>(line.steps), mean);
        } else if (still && !plan.subpixel) {
            // What does not move is looked up between the pixels.
            SmearPlan exact = plan;
            exact.subpixel = true;
            follow_line<elements>(exact, line, mean);
        } else {
            follow_line<elements>(plan, line, mean);
        }
        for (int c = 0; c < elements; ++c)
            planes[c][i] = static_cast<FixPixel>(rounded(held(mean[c], static_cast<float>(fix_image_limit))));
        ++i;
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
