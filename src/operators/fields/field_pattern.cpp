#include "operators/fields/field_pattern.h"

#include "genotype/param_record.h"
#include "records/frame.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace velloran {

int deinterlace_find_pattern_p;
void (*set_pattern_param)(Param* param, float value, bool first) = nullptr;

namespace {

constexpr int longest_hold = 1000, latest_phase = 1000000;

Param* hold_param(const Genotype* genotype, int i) { return pattern_param(genotype, 3 + i); }

int whole_value(const Param* param, int least, int most) {
    if (!param || !std::isfinite(param->value[0])) return std::clamp(0, least, most);
    const float value = std::clamp(param->value[0], static_cast<float>(least), static_cast<float>(most));
    return static_cast<int>(std::lround(value));
}

enum PatternParam : int { param_length, param_phase, param_dominance };

bool plugin_is(const char* name, const char* wanted) { return name && !std::strcmp(name, wanted); }
bool drops_fields_p(const char* name) { return plugin_is(name, "DeinterlaceAuto") || plugin_is(name, "Deinterlace"); }
bool adds_fields_p(const char* name) { return plugin_is(name, "Reinterlace"); }

}  // namespace

Param* pattern_param(const Genotype* genotype, int which) {
    static constexpr const char* first_names[] = {"pattern_length", "pattern_phase", "field_dominance"};
    if (which < 3) return get_param_by_name(genotype, first_names[which]);
    char name[24];
    std::snprintf(name, sizeof name, "pattern_%d", which - 3 + 1);
    return get_param_by_name(genotype, name);
}

int field_pattern_room(const Genotype* genotype) {
    int n = 0;
    while (n < max_field_holds && hold_param(genotype, n)) ++n;
    return n;
}

FieldPattern read_field_pattern(const Genotype* genotype) {
    FieldPattern pattern = {};
    if (!genotype) return pattern;
    pattern.length = whole_value(pattern_param(genotype, param_length), 0, field_pattern_room(genotype));
    pattern.phase = whole_value(pattern_param(genotype, param_phase), 0, latest_phase);
    pattern.dominance = whole_value(pattern_param(genotype, param_dominance), 0, 1);
    for (int i = 0; i < pattern.length; ++i)
        pattern.holds[i] = whole_value(hold_param(genotype, i), -longest_hold, longest_hold);
    return pattern;
}

int output_frame_in_hand() {
    return static_cast<int>(std::clamp(the_frame->time_globals.frame, 0.0f, static_cast<float>(most_cadence_frames)));
}

void store_field_pattern_in_buttons(const Genotype* genotype, const FieldPattern& pattern) {
    bool first = true;
    const auto show = [&first](Param* param, int value) {
        if (!param || !set_pattern_param) return;
        set_pattern_param(param, static_cast<float>(value), first);
        first = false;
    };
    show(pattern_param(genotype, param_length), pattern.length);
    show(pattern_param(genotype, param_phase), pattern.phase);
    show(pattern_param(genotype, param_dominance), pattern.dominance);
    for (int i = 0; i < field_pattern_room(genotype); ++i)
        show(hold_param(genotype, i), i < pattern.length ? pattern.holds[i] : 0);
}

bool changes_frame_count_p(const char* plugin_name) {
    return drops_fields_p(plugin_name) || adds_fields_p(plugin_name);
}

int pattern_dest_frames(const char* plugin_name, const Genotype* genotype, int n) {
    if (drops_fields_p(plugin_name)) return deinterlaced_frames(read_field_pattern(genotype), n);
    if (adds_fields_p(plugin_name)) return reinterlaced_frames(read_field_pattern(genotype), n);
    return n;
}

}  // namespace velloran
