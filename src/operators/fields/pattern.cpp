#include "operators/fields/pattern.h"

#include <algorithm>
#include <cstdlib>

namespace velloran {
namespace {

// On the scale of FieldDelta::value. A clip whose very repeats differ so much is plain video, each field new.
constexpr float maybe_video = 15, surely_video = 20;

// A hold out of order repeats the picture before the last one, which only a single field can have come in between of.
bool signs_fit(const int* pattern, unsigned length) {
    const bool any_positive = std::any_of(pattern, pattern + length, [](int hold) { return hold > 0; });
    for (unsigned i = 0; i < length; ++i)
        if (pattern[i] < 0 && pattern[(i + length - 1) % length] != 1) return false;
    return any_positive;
}

}  // namespace

void clean_up_pattern(int* pattern, unsigned length, int* start) {
    int total = 0;
    for (unsigned i = 0; i < length; ++i) total += std::abs(pattern[i]);
    if (total == 0) return;
    *start = (*start % total + total) % total;
    while (*start >= std::abs(pattern[length - 1])) {
        *start -= std::abs(pattern[length - 1]);
        std::rotate(pattern, pattern + length - 1, pattern + length);
    }
    if (!signs_fit(pattern, length))
        std::transform(pattern, pattern + length, pattern, [](int h) { return std::abs(h); });
}

physical_field Pattern::get_dominance() {
    float sums[2];
    for (const physical_field dominance : {field_of_even_lines, field_of_odd_lines}) {
        compare_->set_dominance(dominance);
        compare_->seek(0, field_first_in_time);
        sums[dominance] = 0;
        while (const FieldDelta* delta = compare_->next_delta()) sums[dominance] += delta->value;
    }
    compare_->seek(0, field_first_in_time);
    return sums[0] > sums[1] ? field_of_odd_lines : field_of_even_lines;
}

bool Pattern::current_field_out_of_order_p(bool* out_of_order) {
    const FieldDelta* const one = compare_->look_behind(1);
    FieldDelta* const two = one ? compare_->look_behind(2) : nullptr;
    if (!two) return false;
    two->threshold = one->threshold;
    *out_of_order = !(one->value < one->threshold) && one->threshold > two->value;
    return true;
}

bool Pattern::next_hold(int* hold) {
    bool out_of_order;
    if (!current_field_out_of_order_p(&out_of_order)) return false;
    const FieldDelta* delta;
    int count = 0;
    do {
        ++count;
        delta = compare_->next_delta();
        if (!delta) return false;
    } while (delta->value < delta->threshold);
    *hold = out_of_order ? -count : count;
    return true;
}

Pattern::Repeats Pattern::pattern_repeats(int* pattern, unsigned n) {
    compare_->save_position();
    const int first = pattern[0];
    unsigned count = 0;
    Repeats result = Repeats::window_ended;
    for (int hold; next_hold(&hold); ++count) {
        // There is nothing behind the first field of the window, so the first hold may have missed its sign.
        if (count == 0 && first > 0 && hold == -first) pattern[0] = hold;
        if (pattern[count % n] == hold) continue;
        result = Repeats::no;
        break;
    }
    if (result == Repeats::window_ended && count >= n) result = Repeats::yes;
    if (result != Repeats::yes) pattern[0] = first;
    compare_->restore_position();
    return result;
}

bool Pattern::find_holds(int* pattern, unsigned most, unsigned* count, int* first_hold) {
    get_thresholds();
    if (!next_hold(first_hold)) return false;
    // The first hold may be part of one, so the window is made longer by as much.
    compare_->save_position();
    compare_->set_n_frames(compare_->get_n_frames() + *first_hold / 2 + 1);
    get_thresholds();
    compare_->restore_position();
    while (*count < most && next_hold(&pattern[*count])) {
        ++*count;
        const Repeats repeats = pattern_repeats(pattern, *count);
        if (repeats != Repeats::no) return repeats == Repeats::yes;
    }
    return false;
}

bool Pattern::find_pattern(int base, int* pattern, unsigned most, unsigned* length, int* start) {
    int first_hold = 0;
    unsigned count = 0;
    const bool repeats = find_holds(pattern, most, &count, &first_hold);
    *length = count;
    *start = 0;
    // What comes first is the tail of the last hold, and cannot be longer.
    found = repeats && std::abs(first_hold) <= std::abs(pattern[count - 1]);
    if (found) {
        *start = first_hold + 2 * base;
        clean_up_pattern(pattern, count, start);
    } else if (max_repeat_delta > maybe_video && most > 0) {
        pattern[0] = 1;
        *length = 1;
        found = max_repeat_delta > surely_video;
    }
    return found;
}

}  // namespace velloran
