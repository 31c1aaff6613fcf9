// Where the difference between a repeat and a change lies. The decision is made for each pair of fields by itself, from
// its neighbours, and bounded by a split of all values into those near nothing and the rest.
#include "operators/fields/pattern.h"

#include <algorithm>

namespace velloran {
namespace {

float lerp(float a, float b, float t) { return a + (b - a) * t; }

// An event of the density's slope.
struct SlopeEvent {
    float position;
    int weight;
};

struct Range {
    float low, high;
};

// The pairs around i, two to each side.
Range range_around(FieldDelta* const* deltas, unsigned n, unsigned i) {
    Range range = {deltas[i]->value, deltas[i]->value};
    for (unsigned k = i < 2 ? 0 : i - 2; k <= std::min(i + 2, n - 1); ++k) {
        range.low = std::min(range.low, deltas[k]->value);
        range.high = std::max(range.high, deltas[k]->value);
    }
    return range;
}

// Of all values: where repeats end, and between which values a local decision may differ from that.
struct Split {
    float lowest, threshold, doubtful_from, doubtful_to;
};

Split split_values(FieldDelta* const* deltas, unsigned n, float lowest, float highest, float mean) {
    const float center = std::min(mean, lerp(lowest, highest, 0.5f)), span = center - lowest;
    float peak = lowest, steepest = lowest, valley = 10 * highest;
    Pattern::find_first_cluster_info(deltas, n, 0.5f * span, &peak, &steepest, &valley);
    float width = 0.2f * span;
    const float wider = (peak - lowest) * 1.8f;
    if (wider >= width) width = std::min(wider, span);
    valley = 10 * highest;
    Pattern::find_first_cluster_info(deltas, n, width, &peak, &steepest, &valley);

    const float big = lerp(lowest, center, 1.5f);
    if (valley < big) {
        const float low = std::min(lerp(lowest, center, 0.1f), lerp(lowest, valley, 0.5f));
        return {lowest, valley, std::max(peak, low), big};
    }
    const float a = lerp(lowest, steepest, 1.01f), b = std::min(big, lerp(lowest, peak, 2.5f));
    return {lowest, a >= b ? std::min(a, big) : b, lerp(lowest, center, 0.1f), big};
}

// A pair that stands out among its neighbours gets a threshold of its own; the others get the middle of theirs,
// negative, for the time being. Answers the bounds of the own ones.
Range decide_locally(FieldDelta** deltas, unsigned n, const Split& split) {
    Range bounds = {split.threshold, split.threshold};
    for (unsigned i = 0; i < n; ++i) {
        const Range around = range_around(deltas, n, i);
        const float value = deltas[i]->value, middle = lerp(around.low, around.high, 0.5f);
        deltas[i]->threshold = -middle;
        const bool doubtful = value > split.doubtful_from && value < split.doubtful_to;
        if (!doubtful || !(around.high - around.low > around.low - split.lowest)) continue;
        if (value <= split.threshold && value > middle) {
            deltas[i]->threshold = lerp(value, around.low, 0.5f);
            bounds.low = std::min(bounds.low, deltas[i]->threshold);
        } else if (value >= split.threshold && value < lerp(around.low, around.high, 0.25f)) {
            deltas[i]->threshold = lerp(value, around.high, 0.5f);
            bounds.high = std::max(bounds.high, deltas[i]->threshold);
        }
    }
    return bounds;
}

}  // namespace

void Pattern::find_first_cluster_info(FieldDelta* const* deltas, unsigned n, float half_width, float* first_peak,
                                      float* steepest_end, float* first_valley) {
    const unsigned count = 3 * n;
    auto* const events = frame_array<SlopeEvent>(count);
    for (unsigned i = 0; i < n; ++i) {
        const float value = deltas[i]->value;
        events[3 * i] = {value - half_width, 1};
        events[3 * i + 1] = {value, -2};
        events[3 * i + 2] = {value + half_width, 1};
    }
    std::sort(events, events + count, [](const SlopeEvent& a, const SlopeEvent& b) {
        return a.position != b.position ? a.position < b.position : a.weight > b.weight;
    });
    int slope = 0, least = 0;
    for (unsigned i = 0; i < count; ++i) {
        const int before = slope;
        slope += events[i].weight;
        if (least == 0) {
            if (slope >= 0) continue;
            *first_peak = events[i].position;
            least = slope;
        } else if (slope > 0) {
            *first_valley = before ? events[i].position : lerp(events[i - 1].position, events[i].position, 0.5f);
            break;
        } else if (slope <= least) {
            least = slope;
            *steepest_end = events[std::min(i + 1, count - 1)].position;
        }
    }
    frame_free(events);
}

void Pattern::find_repeat_field_thresholds(FieldDelta** deltas, unsigned n) {
    max_repeat_delta = 0;
    if (n == 0) return;
    float lowest = deltas[0]->value, highest = lowest, sum = 0;
    for (unsigned i = 0; i < n; ++i) {
        lowest = std::min(lowest, deltas[i]->value);
        highest = std::max(highest, deltas[i]->value);
        sum += deltas[i]->value;
    }
    max_repeat_delta = lowest;
    if (lowest == highest) {
        for (unsigned i = 0; i < n; ++i) deltas[i]->threshold = lowest + 0.01f;
        return;
    }
    const Split split = split_values(deltas, n, lowest, highest, sum / static_cast<float>(n));
    const Range bounds = decide_locally(deltas, n, split);
    for (unsigned i = 0; i < n; ++i) {
        FieldDelta& delta = *deltas[i];
        if (delta.threshold <= 0) {
            // A value on the wrong side of its neighbours' middle is drawn back to what all say.
            const float middle = std::clamp(-delta.threshold, bounds.low, bounds.high);
            const float near = lerp(delta.value, split.threshold, 0.1f);
            delta.threshold = delta.value >= split.threshold ? std::min(middle, near) : std::max(middle, near);
        }
        if (delta.value < delta.threshold) max_repeat_delta = std::max(delta.value, max_repeat_delta);
    }
}

void Pattern::get_thresholds() {
    const unsigned most = static_cast<unsigned>(std::max(2 * compare_->get_n_frames() - 1, 0));
    auto** const deltas = frame_array<FieldDelta*>(most);
    compare_->seek(0, field_first_in_time);
    unsigned n = 0;
    while (n < most && (deltas[n] = compare_->next_delta())) ++n;
    compare_->seek(0, field_first_in_time);
    find_repeat_field_thresholds(deltas, n);
    frame_free(deltas);
}

}  // namespace velloran
