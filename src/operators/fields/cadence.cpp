#include "operators/fields/cadence.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>

namespace velloran {
namespace {

// Fields [first, end) of the clip; empty: none.
struct FieldRange {
    int first = 0, end = 0;
    bool holds(int field) const { return field >= first && field < end; }
};

// The frames at the start of a clip that need care, in their order.
struct StartOfClip {
    FieldRange frames[2];
    int count = 0;  // the mode
};

// A picture out of order is shown before the one that it interrupts, and one whose beginning is cut off before all.
StartOfClip start_of_clip(const int* pattern, int length, int phase) {
    StartOfClip start;
    if (length < 1) return start;
    const int h0 = pattern[0], h1 = length > 1 ? pattern[1] : 0;
    const int a = phase + std::abs(h0), b = a + std::abs(h1);
    const auto add = [&start](int first, int end) { start.frames[start.count++] = {first, end}; };
    const bool second_out_of_order = length > 1 && h1 < 0;
    if (h0 < 0) {
        add(phase, a);
        if (phase > 0)
            add(0, phase);
        else if (second_out_of_order)
            add(a, b);
    } else if (phase > 0) {
        add(0, phase);
    } else if (second_out_of_order) {
        add(a, b);
    }
    return start;
}

StartOfClip start_of_clip(const FieldPattern& pattern) {
    return start_of_clip(pattern.holds, pattern.length, pattern.phase);
}

// Of plain video each field is new; two of them make a frame.
bool plain_video_p(const FieldPattern& pattern) {
    return std::all_of(pattern.holds, pattern.holds + pattern.length, [](int hold) { return hold == 1; });
}

// The fields of the n-th picture that begins at a hold, n from 0.
FieldRange fields_of_picture(const FieldPattern& pattern, int64_t n) {
    const auto range = [](int64_t first, int64_t count) {
        first = std::min<int64_t>(first, INT_MAX - count);
        return FieldRange{static_cast<int>(first), static_cast<int>(first + count)};
    };
    if (plain_video_p(pattern)) return range(pattern.phase + 2 * n, 2);
    const int frames = pattern_frames(pattern);
    int64_t at = pattern.phase + n / frames * pattern_fields(pattern);
    int64_t left = n % frames;
    for (int i = 0; i < pattern.length; ++i) {
        const int hold = pattern.holds[i];
        if (hold > 0 && left-- == 0) return range(at, hold);
        at += std::abs(hold);
    }
    return {};
}

FramePair pair_of(const FieldRange& fields) { return {fields.first, std::min(fields.first + 1, fields.end - 1)}; }

}  // namespace

int pattern_fields(const FieldPattern& pattern) {
    int sum = 0;
    for (int i = 0; i < pattern.length; ++i) sum += std::abs(pattern.holds[i]);
    return sum;
}

int pattern_frames(const FieldPattern& pattern) {
    return static_cast<int>(
        std::count_if(pattern.holds, pattern.holds + pattern.length, [](int hold) { return hold > 0; }));
}

bool handle_start_of_clip(int dest_frame, const int* pattern, int length, int phase, int* frame_a, int* field_a,
                          int* frame_b, int* field_b, int* mode) {
    const StartOfClip start = start_of_clip(pattern, length, phase);
    if (mode) *mode = start.count;
    if (dest_frame < 0 || dest_frame >= start.count) return false;
    const FramePair fields = pair_of(start.frames[dest_frame]);
    const int even = fields.first & 1 ? fields.second : fields.first,
              odd = fields.first & 1 ? fields.first : fields.second;
    const auto tell = [](int* out, int value) {
        if (out) *out = value;
    };
    tell(frame_a, even / 2);
    tell(field_a, even & 1);
    tell(frame_b, odd / 2);
    tell(field_b, odd & 1);
    return true;
}

bool handle_start_of_clip_reinterlace(int field, const int* pattern, int length, int phase, int* frame, int* mode) {
    const StartOfClip start = start_of_clip(pattern, length, phase);
    if (mode) *mode = start.count;
    for (int i = 0; i < start.count; ++i) {
        if (!start.frames[i].holds(field)) continue;
        if (frame) *frame = i;
        return true;
    }
    return false;
}

FramePair fields_of_frame(const FieldPattern& pattern, int dest_frame, int n_fields) {
    int frame_a, field_a, frame_b, field_b, mode;
    FramePair pair;
    if (handle_start_of_clip(dest_frame, pattern.holds, pattern.length, pattern.phase, &frame_a, &field_a, &frame_b,
                             &field_b, &mode))
        pair = {2 * frame_a + field_a, 2 * frame_b + field_b};
    else
        pair = pair_of(fields_of_picture(pattern, static_cast<int64_t>(std::max(dest_frame, 0)) - mode));
    // At the end of a clip the second field may be missing.
    if (pair.second >= n_fields && pair.first < n_fields) pair.second = pair.first;
    if (pair.first >= n_fields && pair.second < n_fields) pair.first = pair.second;
    return pair;
}

int frame_of_field(const FieldPattern& pattern, int field) {
    int frame, mode;
    if (handle_start_of_clip_reinterlace(field, pattern.holds, pattern.length, pattern.phase, &frame, &mode))
        return frame;
    if (plain_video_p(pattern)) return std::max((field - pattern.phase) / 2 + mode, 0);
    const int fields = pattern_fields(pattern), frames = pattern_frames(pattern);
    if (!fields || !frames) return -1;
    const int since = std::max(field - pattern.phase, 0), period = since / fields;
    int at = since % fields;
    // Pictures that have begun in this period by then. None: the last one of the period before goes on.
    int begun = 0;
    for (int i = 0; i < pattern.length && at >= 0; ++i) {
        begun += pattern.holds[i] > 0;
        at -= std::abs(pattern.holds[i]);
    }
    return std::max(period * frames + begun - 1 + mode, 0);
}

int deinterlaced_frames(const FieldPattern& pattern, int n) {
    const int frames = pattern_frames(pattern), fields = pattern_fields(pattern);
    if (n < 1 || n > most_cadence_frames || frames < 1) return n;
    const int64_t n_fields = int64_t{2} * n;
    const StartOfClip start = start_of_clip(pattern);
    int at_start = 0;
    for (int i = 0; i < start.count; ++i) at_start += start.frames[i].first < n_fields;
    // Whole periods, and then one by one.
    const int64_t periods =
        std::max<int64_t>((n_fields - pattern.phase) / (plain_video_p(pattern) ? 2 * frames : fields), 0);
    int64_t pictures = periods * frames;
    while (pair_of(fields_of_picture(pattern, pictures)).second < n_fields) ++pictures;
    return static_cast<int>(std::min<int64_t>(at_start + pictures, INT_MAX));
}

int reinterlaced_frames(const FieldPattern& pattern, int n) {
    if (n < 1 || n > most_cadence_frames || pattern_frames(pattern) < 1) return n;
    // The clip ends with the last field of its last picture.
    const StartOfClip start = start_of_clip(pattern);
    const FieldRange last = n <= start.count ? start.frames[n - 1] : fields_of_picture(pattern, n - 1 - start.count);
    return std::max(last.end / 2, 1);
}

}  // namespace velloran
