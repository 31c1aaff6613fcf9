// The life of a plug-in's record, and the end of everything that instances share.
#include "genotype/effect_table.h"
#include "host/entry_points.h"
#include "support/memory.h"

#include <cstring>

namespace velloran {
namespace {

constexpr int no_frame = -1000000;

void fill_fresh_record(GlobalsV4Record* record) {
    // Elements of x, y and xy stand before those of the inputs; the output's is last.
    static const uint8_t source_tags[8] = {4, 1, 1, 2, 3, 3, 3, 3};
    static const uint8_t changed_tags[8] = {0, 0, 0, 1, 1, 1, 1, 0};
    std::memcpy(record->source_tags, source_tags, sizeof(source_tags));
    std::memcpy(record->changed_tags, changed_tags, sizeof(changed_tags));
    record->selected_effect = -1;
    record->shown_effect = -1;
    record->number_of_input_images = -1;
    record->last_button_used = -1;
    record->last_frame_no = -1;
    record->res_factor = 1;
    record->last_res_factor = 1;
    record->n_luts = 1;
    record->n_param_pages = 1;
    record->crop_page = 2;
    record->setup_flags = setup_needs_first_render;
    for (RunRecord& run : record->run_records) run.last_frame = no_frame;
    for (PrevDest& prev : record->prev_dests) prev.frame_number = no_frame;
    record->run_record = &record->run_records[0];
    record->prev_dest = &record->prev_dests[0];
}

}  // namespace
}  // namespace velloran

using namespace velloran;

GlobalsV4Record* V4_init_globals(GlobalsV4Record* previous) {
    auto* const record = static_cast<GlobalsV4Record*>(safe_calloc(sizeof(GlobalsV4Record)));
    Globals_V4 = record;
    if (!previous) {
        fill_fresh_record(record);
        return record;
    }
    std::memcpy(record, previous, sizeof(*record));
    if (record->effect_table) ++record->effect_table->ref_count;
    record->parent_record = previous;
    record->run_record = &record->run_records[0];
    record->prev_dest = &record->prev_dests[0];
    // The copy's own previous output: planes must not have two owners.
    std::memset(record->prev_dests, 0, sizeof(record->prev_dests));
    for (PrevDest& prev : record->prev_dests) prev.frame_number = no_frame;
    for (int i = 0; i < MAX_LUTS; ++i) {
        record->lut_in_paths[i] = safe_strdup(previous->lut_in_paths[i]);
        record->lut_out_paths[i] = safe_strdup(previous->lut_out_paths[i]);
    }
    record->record_flags = static_cast<uint8_t>(record->record_flags & ~record_not_on_heap);
    return record;
}

void V4_free_globals(GlobalsV4Record* record) {
    if (!record) return;
    free_effect_table(record->effect_table);
    record->effect_table = nullptr;
    if (!record->parent_record) {
        for (int i = 0; i < MAX_EFFECTS_PER_PLUGIN && i < 16; ++i)
            if (record->owned_strings & (1 << i)) safe_free(const_cast<char*>(record->effect_strings[i]));
        if (record->record_flags & record_plugin_name_owned) safe_free(const_cast<char*>(record->plugin_name));
    }
    for (int i = 0; i < MAX_LUTS; ++i) {
        safe_free(record->lut_in_paths[i]);
        safe_free(record->lut_out_paths[i]);
        record->lut_in_paths[i] = record->lut_out_paths[i] = nullptr;
    }
    if (Globals_V4 == record) Globals_V4 = nullptr;
    if (!(record->record_flags & record_not_on_heap)) safe_free(record);
}
