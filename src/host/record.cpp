// The life of a plug-in's record, and the end of everything that instances share.
#include "genotype/effect_table.h"
#include "host/entry_points.h"
#include "host/guard.h"
#include "host/instance.h"
#include "support/memory.h"

#include <cstring>

namespace velloran {
namespace {

constexpr int no_frame = -1000000;

GlobalsV4Record* all_records = nullptr;  // that V4_init_globals made, newest first

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

void free_texts(GlobalsV4Record* record) {
    if (record->record_flags & record_plugin_name_owned) safe_free(const_cast<char*>(record->plugin_name));
    record->plugin_name = nullptr;
    for (int i = 0; i < MAX_LUTS; ++i) {
        safe_free(record->lut_in_paths[i]);
        safe_free(record->lut_out_paths[i]);
        record->lut_in_paths[i] = record->lut_out_paths[i] = nullptr;
    }
}

// A copy that was not finished.
void free_half_made(void* half_made) {
    free_texts(static_cast<GlobalsV4Record*>(half_made));
    safe_free(half_made);
}

// Everything byte for byte, but for what only one record can own.
void fill_copy(GlobalsV4Record* record, const GlobalsV4Record* previous) {
    std::memcpy(record, previous, sizeof(*record));
    record->run_record = &record->run_records[0];
    record->prev_dest = &record->prev_dests[0];
    std::memset(record->prev_dests, 0, sizeof(record->prev_dests));
    for (PrevDest& prev : record->prev_dests) prev.frame_number = no_frame;
    record->last_imaged_genotype = nullptr;
    record->watch = nullptr;
    std::memset(record->lut_in_paths, 0, sizeof(record->lut_in_paths));
    std::memset(record->lut_out_paths, 0, sizeof(record->lut_out_paths));
    record->record_flags = static_cast<uint8_t>(record->record_flags & ~record_not_on_heap);
    if (record->record_flags & record_plugin_name_owned) {
        record->plugin_name = nullptr;
        record->plugin_name = safe_strdup(previous->plugin_name);
    }
    for (int i = 0; i < MAX_LUTS; ++i) {
        record->lut_in_paths[i] = safe_strdup(previous->lut_in_paths[i]);
        record->lut_out_paths[i] = safe_strdup(previous->lut_out_paths[i]);
    }
}

GlobalsV4Record* make_record(GlobalsV4Record* previous) {
    auto* const record = static_cast<GlobalsV4Record*>(safe_calloc(sizeof(GlobalsV4Record)));
    push_abort_cleanup(free_half_made, record);
    if (previous)
        fill_copy(record, previous);
    else
        fill_fresh_record(record);
    pop_abort_cleanup();
    if (record->effect_table) ++record->effect_table->ref_count;
    record->parent_record = previous;
    record->next_record = all_records;
    all_records = record;
    return record;
}

void take_off_list(const GlobalsV4Record* record) {
    for (GlobalsV4Record** at = &all_records; *at; at = &(*at)->next_record)
        if (*at == record) {
            *at = record->next_record;
            return;
        }
}

// The effect strings belong to one record for all its copies. When it goes they pass to a copy, else they are freed.
void give_strings_away(const GlobalsV4Record* record) {
    GlobalsV4Record* heir = record->parent_record;
    for (GlobalsV4Record* copy = all_records; copy; copy = copy->next_record) {
        if (copy->parent_record != record) continue;
        copy->parent_record = heir;
        if (!heir) heir = copy;
    }
    if (record->parent_record) return;
    for (int i = 0; i < MAX_EFFECTS_PER_PLUGIN && i < 16; ++i) {
        const bool owned = (record->owned_strings & (1 << i)) != 0;
        const bool inherited =
            heir && (heir->owned_strings & (1 << i)) != 0 && heir->effect_strings[i] == record->effect_strings[i];
        if (owned && !inherited) safe_free(const_cast<char*>(record->effect_strings[i]));
    }
}

void free_record(GlobalsV4Record* record) {
    GlobalsV4Record* const caller = Globals_V4;
    Globals_V4 = record;
    release_instance();  // of a host that goes without a word
    Globals_V4 = caller == record ? nullptr : caller;
    take_off_list(record);
    free_effect_table(record->effect_table);
    record->effect_table = nullptr;
    give_strings_away(record);
    free_texts(record);
    if (!(record->record_flags & record_not_on_heap)) safe_free(record);
}

}  // namespace

bool instance_shared_p(const GlobalsV4Record* record) {
    if (record->instance_number == 0) return false;
    for (const GlobalsV4Record* other = all_records; other; other = other->next_record)
        if (other != record && other->instance_number == record->instance_number) return true;
    return false;
}

}  // namespace velloran

using namespace velloran;

GlobalsV4Record* V4_init_globals(GlobalsV4Record* previous) {
    GlobalsV4Record* const record = guarded_call(spark_info_ptr, static_cast<GlobalsV4Record*>(nullptr),
                                                 [previous] { return make_record(previous); });
    if (record) Globals_V4 = record;
    return record;
}

void V4_free_globals(GlobalsV4Record* record) {
    if (!record) return;
    guarded_call(spark_info_ptr, 0, [record] {
        free_record(record);
        return 0;
    });
}
