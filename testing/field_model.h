// A plain model of how a cadence is found: every formula written out over vectors, the end of the clip as an exception.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <map>
#include <utility>
#include <vector>

namespace velloran_tests {

// Samples of frames: picture(frame)[channel][y * width + x].
using FieldModelFrame = std::vector<std::vector<int>>;

struct FieldModel {
    struct EndOfClip {};
    struct Delta {
        float value = 0, threshold = 0;
    };

    int width = 0, height = 0;
    std::function<FieldModelFrame(int)> picture;
    int first = 0, limit = 0, last = 0, dominance = 0;
    int frame = 0, field = 0;
    float max_repeat = 0;
    bool found = false;
    std::map<std::pair<int, int>, Delta> deltas;  // by the times of the two fields, in half frames
    std::map<int, FieldModelFrame> frames;

    FieldModel(int w, int h, std::function<FieldModelFrame(int)> make, int from, int n, int clip_end)
        : width(w), height(h), picture(std::move(make)), first(from), last(clip_end), frame(from) {
        set_frames(n);
    }
    void set_frames(int n) { limit = std::min(first + n, last); }

    // A block of the field at the even line's place.
    int block(int f, int parity, int c, int y, int b) {
        if (!frames.count(f)) frames[f] = picture(f);
        const std::vector<int>& plane = frames[f][(size_t)c];
        int sum = 0;
        for (int x = 4 * b; x < 4 * b + 4; ++x) {
            const auto at = [&](int row) { return plane[(size_t)(row * width + x)]; };
            sum += parity == 0 ? at(y) : (at(y + 1) + at(std::max(y - 1, 1))) >> 1;
        }
        return sum;
    }
    int odd_block(int f, int c, int y, int b) {
        block(f, 0, c, y, b);
        int sum = 0;
        for (int x = 4 * b; x < 4 * b + 4; ++x) sum += frames[f][(size_t)c][(size_t)((y + 1) * width + x)];
        return sum;
    }
    // Of two fields, counted in half frames by their place in the frame.
    float difference(int t1, int t2) {
        double sum = 0;
        for (int c = 0; c < 3; ++c)
            for (int y = 0; y + 1 < (height & ~1) + 0; y += 2)
                for (int b = 0; b < width / 4; ++b) {
                    const bool both_odd = t1 % 2 && t2 % 2;
                    const double d = both_odd ? odd_block(t1 / 2, c, y, b) - odd_block(t2 / 2, c, y, b)
                                              : block(t1 / 2, t1 % 2, c, y, b) - block(t2 / 2, t2 % 2, c, y, b);
                    sum += d * d;
                }
        return (float)(std::sqrt(sum) / ((width & ~3) * (height & ~1) * 3.0) * 100);
    }
    Delta& compare(int f1, int l1, int f2, int l2) {
        int t1 = 2 * f1 + (l1 ^ dominance), t2 = 2 * f2 + (l2 ^ dominance);
        if (t1 > t2) std::swap(t1, t2);
        if (t2 >= 2 * limit || t1 < 2 * first) throw EndOfClip();
        const auto known = deltas.find({t1, t2});
        if (known != deltas.end()) return known->second;
        return deltas[{t1, t2}] = {difference(t1, t2), 0};
    }
    void seek() { frame = first, field = 0; }
    Delta& next() {
        const int f = frame + field, l = 1 - field;
        Delta& delta = compare(frame, field, f, l);
        frame = f, field = l;
        return delta;
    }
    Delta& behind(int n) {
        int f = frame - n / 2 - (n % 2 > field), l = n % 2 ? 1 - field : field;
        if (f < first) f = first, l = 0;
        return compare(f, l, frame, field);
    }

    int find_dominance() {
        float sums[2] = {0, 0};
        for (dominance = 0; dominance < 2; ++dominance) {
            seek();
            try {
                for (;;) sums[dominance] += next().value;
            } catch (EndOfClip) {
            }
        }
        dominance = sums[0] > sums[1];
        seek();
        return dominance;
    }

    static float lerp(float a, float b, float t) { return a + (b - a) * t; }
    static void cluster(const std::vector<Delta*>& d, float r, float& peak, float& steepest, float& valley) {
        std::vector<std::pair<float, int>> events;  // -weight, so that rises stand before falls
        for (const Delta* delta : d) {
            events.push_back({delta->value - r, -1});
            events.push_back({delta->value, 2});
            events.push_back({delta->value + r, -1});
        }
        std::sort(events.begin(), events.end());
        size_t i = 0;
        int s = 0;
        while (i < events.size() && (s -= events[i].second) >= 0) ++i;
        if (i == events.size()) return;
        peak = events[i].first;
        int least = s;
        for (++i; i < events.size(); ++i) {
            const int before = s;
            s -= events[i].second;
            if (s > 0) {
                valley = before != 0 ? events[i].first : lerp(events[i - 1].first, events[i].first, 0.5f);
                return;
            }
            if (s <= least) {
                least = s;
                steepest = i + 1 < events.size() ? events[i + 1].first : events[i].first;
            }
        }
    }
    void thresholds() {
        std::vector<Delta*> d;
        seek();
        try {
            while ((int)d.size() < 2 * (limit - first) - 1) d.push_back(&next());
        } catch (EndOfClip) {
        }
        seek();
        max_repeat = 0;
        if (d.empty()) return;
        float lo = d[0]->value, hi = lo, sum = 0;
        for (const Delta* delta : d)
            lo = std::min(lo, delta->value), hi = std::max(hi, delta->value), sum += delta->value;
        max_repeat = lo;
        if (lo == hi) {
            for (Delta* delta : d) delta->threshold = lo + 0.01f;
            return;
        }
        const float c = std::min(sum / (float)d.size(), lerp(lo, hi, 0.5f)), span = c - lo;
        float p = lo, q = lo, v = 10 * hi;
        cluster(d, 0.5f * span, p, q, v);
        float r2 = 0.2f * span;
        if ((p - lo) * 1.8f >= r2) r2 = std::min((p - lo) * 1.8f, span);
        v = 10 * hi;
        cluster(d, r2, p, q, v);
        const float big = lerp(lo, c, 1.5f);
        float thr, low;
        if (v >= big) {
            const float a = lerp(lo, q, 1.01f), b = std::min(big, lerp(lo, p, 2.5f));
            thr = a >= b ? std::min(a, big) : b;
            low = lerp(lo, c, 0.1f);
        } else {
            thr = v;
            low = std::max(p, std::min(lerp(lo, c, 0.1f), lerp(lo, v, 0.5f)));
        }
        float tmin = thr, tmax = thr;
        const int n = (int)d.size();
        for (int i = 0; i < n; ++i) {
            float lmin = d[(size_t)i]->value, lmax = lmin;
            for (int k = i - 2; k <= i + 2; ++k) {
                const float value = d[(size_t)std::clamp(k, 0, n - 1)]->value;
                lmin = std::min(lmin, value), lmax = std::max(lmax, value);
            }
            const float mid = lerp(lmin, lmax, 0.5f), value = d[(size_t)i]->value;
            float& threshold = d[(size_t)i]->threshold;
            threshold = -mid;
            if (!(value > low && value < big && lmax - lmin > lmin - lo)) continue;
            if (value <= thr && value > mid) {
                threshold = lerp(value, lmin, 0.5f);
                tmin = std::min(tmin, threshold);
            } else if (value >= thr && value < lerp(lmin, lmax, 0.25f)) {
                threshold = lerp(value, lmax, 0.5f);
                tmax = std::max(tmax, threshold);
            }
        }
        for (Delta* delta : d) {
            if (!(delta->threshold > 0)) {
                const float m = std::clamp(-delta->threshold, tmin, tmax), e = lerp(delta->value, thr, 0.1f);
                delta->threshold = delta->value >= thr ? std::min(m, e) : std::max(m, e);
            }
            if (delta->value < delta->threshold) max_repeat = std::max(max_repeat, delta->value);
        }
    }

    int hold() {
        const Delta a = behind(1);
        Delta& b = behind(2);
        b.threshold = a.threshold;
        const bool out_of_order = a.value < a.threshold ? false : a.threshold > b.value;
        int count = 0;
        for (;;) {
            ++count;
            const Delta& delta = next();
            if (delta.value >= delta.threshold) return out_of_order ? -count : count;
        }
    }
    bool repeats(std::vector<int>& pattern) {
        const int at_frame = frame, at_field = field, before = pattern[0];
        size_t count = 0;
        bool same = true;
        try {
            for (; same; ++count) {
                const int h = hold();
                if (count == 0 && pattern[0] > 0 && h == -pattern[0]) pattern[0] = h;
                same = pattern[count % pattern.size()] == h;
            }
        } catch (EndOfClip) {
        }
        frame = at_frame, field = at_field;
        if (!same || count < pattern.size()) pattern[0] = before;
        if (same && count < pattern.size()) throw EndOfClip();
        return same;
    }
    // The cadence before start is brought into its first hold.
    std::vector<int> find(int base, size_t most, int& start) {
        std::vector<int> pattern;
        start = 0;
        found = false;
        thresholds();
        try {
            const int h = hold();
            const int at_frame = frame, at_field = field;
            set_frames(limit - first + h / 2 + 1);
            thresholds();
            frame = at_frame, field = at_field;
            do {
                if (pattern.size() == most) throw EndOfClip();
                pattern.push_back(hold());
            } while (!repeats(pattern));
            if (std::abs(h) <= std::abs(pattern.back())) {
                start = h + 2 * base;
                found = true;
            }
        } catch (EndOfClip) {
        }
        if (!found && max_repeat > 15) {
            pattern = {1};
            found = max_repeat > 20;
        }
        return pattern;
    }
};

}  // namespace velloran_tests
