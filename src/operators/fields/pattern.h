// From differences of fields to a cadence: which fields repeat the one before, and how long each picture is held.
//
// A hold is the number of fields up to the next change. A negative one begins with a field that is out of its order in
// time: it is more like the field two back than like its neighbour.
//
// Memory and threads as FieldCompare, which must live as long.
#pragma once

#include "operators/fields/field_compare.h"

namespace velloran {

class Pattern {
public:
    explicit Pattern(FieldCompare* compare) : compare_(compare) {}

    // The field order in which neighbours differ the least: the wrong one makes motion go to and fro.
    physical_field get_dominance();

    // Sets the thresholds of all neighbours of the window, and max_repeat_delta.
    void get_thresholds();
    void find_repeat_field_thresholds(FieldDelta** deltas, unsigned n);
    // The first cluster of values from below, by their density, for which each is spread over half_width to both sides:
    // its peak, where it falls off most steeply, and the valley behind it. What is not found keeps its value.
    static void find_first_cluster_info(FieldDelta* const* deltas, unsigned n, float half_width, float* first_peak,
                                        float* steepest_end, float* first_valley);

    // These answer false where the window ends before they have their result.
    bool current_field_out_of_order_p(bool* out_of_order);
    bool next_hold(int* hold);

    enum class Repeats { no, yes, window_ended };
    // Whether the clip goes on from here with the n holds of pattern again and again, up to the window's end; it must
    // do so at least once. The sign of the first one is corrected. The position stays.
    Repeats pattern_repeats(int* pattern, unsigned n);

    // Finds the cadence: at most most holds, and the field of the clip at which the first of them begins, within the
    // first period. base: the clip's frame at which the window begins. Answers found; where it is not set, the holds
    // are what was seen.
    bool find_pattern(int base, int* pattern, unsigned most, unsigned* length, int* start);

    float max_repeat_delta = 0;  // the largest difference that still counts as a repeat
    bool found = false;

private:
    // The holds of the window, until they repeat; false where they do not.
    bool find_holds(int* pattern, unsigned most, unsigned* count, int* first_hold);

    FieldCompare* compare_;
};

// Brings start into the first hold by turning the cadence, and takes signs away that do not fit the rest.
void clean_up_pattern(int* pattern, unsigned length, int* start);

}  // namespace velloran
