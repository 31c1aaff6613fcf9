// The field pattern of an effect, which lives in its params: pattern_length, pattern_phase, field_dominance, and the
// holds pattern_1 to pattern_16, or as many of them as the effect declares. Host's thread.
#pragma once

#include "operators/fields/cadence.h"
#include "records/genotype.h"

namespace velloran {

// Set by the button that asks for detection; cleared when the detection has run.
extern int deinterlace_find_pattern_p;

// As the params of the effect stand. A genotype without them, or a length of 0, has no pattern.
FieldPattern read_field_pattern(const Genotype* genotype);
// How many holds the effect has params for.
int field_pattern_room(const Genotype* genotype);

// The params in their order: length, phase, dominance, holds. Null where the effect has none of that name.
constexpr int n_pattern_params = 3 + max_field_holds;
Param* pattern_param(const Genotype* genotype, int which);

// The way up to the controls; the params' room puts its function here. Sets a param of the effect, in internal units,
// and shows it; undone together with those before it, but for the first.
extern void (*set_pattern_param)(Param* param, float value, bool first);

// body(param) for every param of the pattern that the effect has.
template <class Body>
void for_each_pattern_param(const Genotype* genotype, const Body& body) {
    for (int i = 0; i < n_pattern_params; ++i)
        if (Param* const param = pattern_param(genotype, i)) body(param);
}

// The output frame that is being made, held to those that can be counted.
int output_frame_in_hand();

// Shows a pattern on the effect's buttons; holds beyond the length become 0.
void store_field_pattern_in_buttons(const Genotype* genotype, const FieldPattern& pattern);

// True for plug-ins whose output has another number of frames than their input.
bool changes_frame_count_p(const char* plugin_name);
// Number of output frames that a plug-in makes of a clip of n: "DeinterlaceAuto" and "Deinterlace" drop fields,
// "Reinterlace" adds some, all others leave n.
int pattern_dest_frames(const char* plugin_name, const Genotype* genotype, int n);

}  // namespace velloran
