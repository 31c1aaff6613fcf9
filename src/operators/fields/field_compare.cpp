#include "operators/fields/field_compare.h"

#include "operators/fields/field_compare_rows.h"
#include "operators/time/frame_access.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace velloran {
namespace {

// The sums of all pairs of lines, each pair's by itself: they are added in the order of the lines, so that the tasks do
// not show.
void sum_differences(const FixPixel* const* images1, const FixPixel* const* images2, unsigned channels, int width,
                     int pairs, double* totals) {
    const FieldCompareRows& rows = field_compare_rows();
    std::fill_n(totals, n_field_sums, 0.0);
    if (pairs < 1) return;
    auto* const sums = frame_array<uint64_t>(static_cast<size_t>(pairs) * n_field_sums);
    std::memset(sums, 0, static_cast<size_t>(pairs) * n_field_sums * sizeof *sums);
    fork_rows(pairs, [&](int first, int n) {
        for (int pair = first; pair < first + n; ++pair) {
            const ptrdiff_t even = ptrdiff_t{2} * pair * width, odd = even + width;
            const ptrdiff_t below = pair > 0 ? even - width : odd;
            for (unsigned c = 0; c < channels; ++c) {
                const FixPixel *const one = images1[c], *const two = images2[c];
                rows.add_differences({one + even, one + odd, one + below}, {two + even, two + odd, two + below},
                                     width / 4, sums + static_cast<size_t>(pair) * n_field_sums);
            }
        }
    });
    for (int pair = 0; pair < pairs; ++pair)
        for (int k = 0; k < n_field_sums; ++k)
            totals[k] += static_cast<double>(sums[static_cast<size_t>(pair) * n_field_sums + static_cast<size_t>(k)]);
    frame_free(sums);
}

}  // namespace

FieldCompare::FieldCompare(FixPixel* const* a, FixPixel* const* b, unsigned channels, int first_frame, int n_frames,
                           int last_frame, int clip)
    : a_{a, -1}, b_{b, -1}, channels_(channels), first_frame_(first_frame), last_frame_(last_frame), clip_(clip) {
    if (clip < 0) V_error(level_error, "time_warp: first arg must be a clip.");
    set_n_frames(n_frames);
    seek(0, field_first_in_time);
    save_position();
}

void FieldCompare::set_n_frames(int n) { limit_ = std::min(first_frame_ + n, last_frame_); }

void FieldCompare::seek(int frame_offset, logical_field field) { current_ = {first_frame_ + frame_offset, field}; }

std::pair<float, float> FieldCompare::get_field_pair(int f1, logical_field l1, int f2, logical_field l2) const {
    return std::minmax(float{field_to_float(f1, get_physical_field(l1))},
                       float{field_to_float(f2, get_physical_field(l2))});
}

bool FieldCompare::load(LoadedFrame& into, int frame) {
    into.frame = -1;
    FrameBuffer buffer;
    if (!get_frame_buffer(&buffer)) return false;
    const bool loaded = load_other_frame_into_images(clip_, frame, buffer, into.planes);
    release_frame_buffer(buffer);
    if (loaded) into.frame = frame;
    return loaded;
}

// Afterwards a_ holds f1 and, of two frames, b_ holds f2.
bool FieldCompare::load_pair(int f1, int f2) {
    if (a_.frame != f1 && (b_.frame == f1 || a_.frame == f2)) std::swap(a_, b_);
    return (a_.frame == f1 || load(a_, f1)) && (f1 == f2 || b_.frame == f2 || load(b_, f2));
}

FieldDelta* FieldCompare::compare_fields(int f1, logical_field l1, int f2, logical_field l2) {
    const Times times = get_field_pair(f1, l1, f2, l2);
    if (clip_ < 0 || times.second >= static_cast<float>(limit_) || times.first < static_cast<float>(first_frame_))
        return nullptr;
    const auto known = deltas_.find(times);
    if (known != deltas_.end()) return &known->second;
    const int earlier = std::min(f1, f2), later = std::max(f1, f2);
    if (times.first != times.second) {
        if (!load_pair(earlier, later)) return nullptr;
        if (!store_frame_differences(earlier, later, a_.planes, earlier == later ? a_.planes : b_.planes))
            return nullptr;
    }
    return &deltas_[times];
}

bool FieldCompare::store_frame_differences(int f1, int f2, const FixPixel* const* images1,
                                           const FixPixel* const* images2) {
    if (poll_abort()) return false;
    const int width = spark_info_ptr->FrameWidth, height = spark_info_ptr->FrameHeight;
    double totals[n_field_sums];
    sum_differences(images1, images2, channels_, width, height / 2, totals);
    const double samples = static_cast<double>(width & ~3) * (height & ~1) * channels_;
    const float e1 = field_to_float(f1, field_of_even_lines), o1 = field_to_float(f1, field_of_odd_lines);
    const float e2 = field_to_float(f2, field_of_even_lines), o2 = field_to_float(f2, field_of_odd_lines);
    const Times pairs[n_field_sums] = {{e1, o1}, {e1, e2}, {e1, o2}, {o1, e2}, {o1, o2}, {e2, o2}};
    for (int k = 0; k < n_field_sums; ++k) {
        const float percent = samples > 0 ? static_cast<float>(std::sqrt(totals[k]) / samples * 100) : 0.0f;
        // What is known keeps its threshold.
        deltas_.try_emplace(std::minmax(pairs[k].first, pairs[k].second), FieldDelta{percent, 0});
    }
    return true;
}

FieldDelta* FieldCompare::next_delta() {
    const Position next = {current_.frame + (current_.field == field_second_in_time), !current_.field};
    FieldDelta* const delta = compare_fields(current_.frame, current_.field, next.frame, next.field);
    if (delta) current_ = next;
    return delta;
}

FieldDelta* FieldCompare::look_behind(int n) {
    const int parity = n % 2;
    Position back = {current_.frame - n / 2 - (parity > current_.field), parity ? !current_.field : current_.field};
    if (back.frame < first_frame_) back = {first_frame_, field_first_in_time};
    return compare_fields(back.frame, back.field, current_.frame, current_.field);
}

}  // namespace velloran
