// Undo: a list of small records on each effect, oldest values first in a group. Host's thread only.
#pragma once

#include "records/genotype.h"
#include "records/param.h"

namespace velloran {

struct UndoEntry {
    Param* param;
    int channel;
    double value;  // a colour packed
};
// Counted as 12 bytes an entry in a list's memory.
struct UndoState {
    int n;
    UndoEntry entries[1];  // n of them
};

struct UndoRecord {
    int (*undo_fn)(UndoState* state);  // puts the values back and keeps those that stood, for redo_fn
    int (*redo_fn)(UndoState* state);
    UndoState* state;
    int state_size;
    void (*free_fn)(void* state);
    int boundary;  // first record of a group
    UndoRecord *older, *newer;
};

enum : int { undo_next_is_boundary = 1 };

struct UndoList {
    UndoRecord *oldest, *newest;
    UndoRecord* current;  // next to undo, null when all are undone
    int count;
    int bytes;  // state_size + 32 for each record
    int flags;
};

constexpr int undo_memory_limit = 8192;

// Owned by the caller until spark_set_undo_from_state takes it.
UndoState* spark_make_undo_state_1(Param* p, int channel);

// Adds to the selected effect's list, or drops the state where the group has kept these params already.
void spark_set_undo_from_state(UndoState* state, int boundary);
void spark_make_next_undo_record_a_boundary();

int undo_list_undo(UndoList* list);  // 1 if something was undone
int undo_list_redo(UndoList* list);  // number of records redone

// The list of an effect, made at the first call; freed before the effect's params are.
UndoList* get_undo_list(Genotype* genotype);
void free_undo_list(Genotype* genotype);
void free_all_undo_lists();  // of the plug-in now being called

}  // namespace velloran
