// Which effect of a plug-in stands for which connected inputs: a column for each set of inputs, a row for each effect,
// so that one effect can come in versions with one, two or three inputs. Host's thread only. Faults are messages: a
// plug-in loads with what it has.
#pragma once

#include "records/genotype.h"
#include "records/run_state.h"

namespace velloran {

struct EffectMember {
    const char* name;  // an entry of effect_names; null if there was no room
    int index;         // position of the genotype in the plug-in's record
    EffectMember* next;
};

struct EffectColumn {
    int mask;  // bit i: input name i is used
    EffectMember* members;
    EffectColumn* next;
};

struct EffectTable {
    char* plugin_name;
    EffectColumn* columns;
    char* input_names[MAX_INPUTS];               // the distinct names, in the order they were met
    char* effect_names[MAX_EFFECTS_PER_PLUGIN];  // the distinct names, in the order of the popup
    int ref_count;                               // starts at 1
    int n_effect_names;                          // -1 until counted
};

EffectTable* new_effect_table(const char* plugin_name);
// Drops one reference. Null is ignored.
void free_effect_table(EffectTable* table);

// Names count as equal without regard to case. 1 if the column already has an effect of that name, 2 if it was added.
int add_to_effect_table(EffectTable* table, const char* effect_name, const char* const* input_names, int n_inputs,
                        int index);
// Of all effects of the record in hand, and checked. Two effects of one name and one set of inputs take the fatal
// abort.
EffectTable* make_effect_table(const char* plugin_name);
void check_effect_table(const EffectTable* table);

int effect_table_n_effects(EffectTable* table);
// Index of the first genotype with the name at popup_index; -1 after a message.
int get_first_effect_from_table(const EffectTable* table, int popup_index);
// Row of an effect's name; -1 after a message.
int get_effect_index_from_genotype(const EffectTable* table, const char* name);
// Index of the genotype with the name at popup_index that takes just the inputs of mask; -1 if there is none.
int get_effect_from_table(const EffectTable* table, int popup_index, int mask);

// Mask and number of the input names: of all (all_inputs), or of those that every effect uses.
int effect_table_input_mask(const EffectTable* table, int all_inputs);
int effect_table_n_inputs(const EffectTable* table, int all_inputs);
int effect_table_input_index(const EffectTable* table, const char* name);  // -1 unknown

// Mask of a genotype's inputs, worked out once.
int genotype_input_mask(const EffectTable* table, Genotype* genotype);
bool genotype_uses_input_p(const EffectTable* table, int input, Genotype* genotype);

}  // namespace velloran
