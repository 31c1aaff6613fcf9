#include "params/undo.h"

#include "params/param_values.h"
#include "records/run_state.h"
#include "support/memory.h"

#include <cstddef>

namespace velloran {

namespace {

constexpr int bytes_per_entry = 12;
constexpr int bytes_per_record = 32;

int record_bytes(const UndoRecord* record) { return record->state_size + bytes_per_record; }

// Puts the kept values into the params and keeps those that stood there: the same function undoes and redoes.
int exchange_values(UndoState* state) {
    for (int i = 0; i < state->n; ++i) {
        UndoEntry& entry = state->entries[i];
        const double present = param_get_value_c1(entry.param, entry.channel);
        param_set_value_c1(entry.param, entry.channel, entry.value, set_update_control);
        entry.value = present;
    }
    return 1;
}

bool state_holds(const UndoState* state, const UndoEntry& wanted) {
    for (int i = 0; i < state->n; ++i)
        if (state->entries[i].param == wanted.param && state->entries[i].channel == wanted.channel) return true;
    return false;
}

// Whether the older state keeps every value that the newer one would.
bool undo_same_params(const UndoState* older, const UndoState* newer) {
    for (int i = 0; i < newer->n; ++i)
        if (!state_holds(older, newer->entries[i])) return false;
    return true;
}

void drop_record(UndoList* list, UndoRecord* record) {
    if (record->older)
        record->older->newer = record->newer;
    else
        list->oldest = record->newer;
    if (record->newer)
        record->newer->older = record->older;
    else
        list->newest = record->older;
    if (list->current == record) list->current = record->older;
    list->count--;
    list->bytes -= record_bytes(record);
    if (record->free_fn) record->free_fn(record->state);
    safe_free(record);
}

UndoList* selected_list() {
    if (!Globals_V4 || Globals_V4->selected_effect < 0 || Globals_V4->selected_effect >= MAX_EFFECTS_PER_PLUGIN)
        return nullptr;
    Genotype* const genotype = Globals_V4->genotypes[Globals_V4->selected_effect];
    return genotype ? get_undo_list(genotype) : nullptr;
}

}  // namespace

UndoState* spark_make_undo_state_1(Param* p, int channel) {
    auto* const state = safe_new_zeroed<UndoState>();
    state->n = 1;
    state->entries[0] = {p, channel, param_get_value_c1(p, channel)};
    return state;
}

void spark_set_undo_from_state(UndoState* state, int boundary) {
    push_abort_cleanup(safe_free, state);  // until a record has it
    UndoList* const list = selected_list();
    auto* const record = list ? safe_new_zeroed<UndoRecord>() : nullptr;
    pop_abort_cleanup();
    if (!list) {
        safe_free(state);
        return;
    }
    if (list->flags & undo_next_is_boundary) {
        list->flags &= ~undo_next_is_boundary;
        boundary = 1;
    }
    if (!boundary) {
        for (const UndoRecord* last = list->current; last; last = last->older) {
            if (undo_same_params(last->state, state)) {
                safe_free(state);
                safe_free(record);
                return;
            }
            if (last->boundary) break;
        }
    }
    record->undo_fn = exchange_values;
    record->redo_fn = exchange_values;
    record->state = state;
    record->state_size = state->n * bytes_per_entry;
    record->free_fn = safe_free;
    record->boundary = boundary;
    while (list->newest != list->current) drop_record(list, list->newest);
    record->older = list->newest;
    if (list->newest)
        list->newest->newer = record;
    else
        list->oldest = record;
    list->newest = record;
    list->current = record;
    list->count++;
    list->bytes += record_bytes(record);
    while (list->count > 1 && list->bytes > undo_memory_limit) drop_record(list, list->oldest);
}

void spark_make_next_undo_record_a_boundary() {
    if (UndoList* const list = selected_list()) list->flags |= undo_next_is_boundary;
}

int undo_list_undo(UndoList* list) {
    int ran = 0;
    while (list->current) {
        UndoRecord* const record = list->current;
        if (record->undo_fn) {
            record->undo_fn(record->state);
            ran++;
        }
        list->current = record->older;
        if (record->boundary) break;
    }
    return ran > 0;
}

int undo_list_redo(UndoList* list) {
    int ran = 0;
    for (;;) {
        UndoRecord* const record = list->current ? list->current->newer : list->oldest;
        if (!record || (ran > 0 && record->boundary)) break;
        if (record->redo_fn) record->redo_fn(record->state);
        list->current = record;
        ran++;
    }
    return ran;
}

UndoList* get_undo_list(Genotype* genotype) {
    if (!genotype->undo_list) genotype->undo_list = safe_new_zeroed<UndoList>();
    return genotype->undo_list;
}

void free_undo_list(Genotype* genotype) {
    UndoList* const list = genotype->undo_list;
    if (!list) return;
    while (list->newest) drop_record(list, list->newest);
    safe_free(list);
    genotype->undo_list = nullptr;
}

void free_all_undo_lists() {
    for (Genotype* const genotype : Globals_V4->genotypes)
        if (genotype) free_undo_list(genotype);
}

}  // namespace velloran
