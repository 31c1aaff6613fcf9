#include "genotype/effect_table.h"

#include "support/abort.h"
#include "support/errors.h"
#include "support/memory.h"
#include "texts/characters.h"

#include <cstring>

namespace velloran {
namespace {

bool same_name(const char* a, const char* b) {
    if (!a || !b) return false;
    while (*a && to_lower(*a) == to_lower(*b)) ++a, ++b;
    return *a == *b;
}

const char* shown(const char* text) { return text ? text : ""; }

int known_inputs_mask(const EffectTable* table) {
    int n = 0;
    while (n < MAX_INPUTS && table->input_names[n]) ++n;
    return (1 << n) - 1;
}

bool name_missing(const char* effect_name, const char* input_name, int i) {
    if (input_name && *input_name) return false;
    V_error(level_error, "Null name in effect table for %s input %d\n", shown(effect_name), i);
    return true;
}

// Bits of the inputs; new names are taken up while there is room.
int add_inputs(EffectTable* table, const char* effect_name, const char* const* input_names, int n_inputs) {
    int mask = 0;
    for (int i = 0; i < n_inputs; ++i) {
        if (name_missing(effect_name, input_names[i], i)) continue;
        int place = effect_table_input_index(table, input_names[i]);
        if (place < 0) {
            for (place = 0; place < MAX_INPUTS && table->input_names[place];) ++place;
            if (place == MAX_INPUTS) {
                V_error(level_error, "%s: Too many input names", shown(table->plugin_name));
                break;
            }
            table->input_names[place] = safe_strdup(input_names[i]);
        }
        mask |= 1 << place;
    }
    return mask & known_inputs_mask(table);
}

EffectColumn* find_column(const EffectTable* table, int mask) {
    EffectColumn* column = table->columns;
    while (column && column->mask != mask) column = column->next;
    return column;
}

EffectColumn* find_or_add_column(EffectTable* table, int mask) {
    if (EffectColumn* column = find_column(table, mask)) return column;
    EffectColumn** end = &table->columns;
    while (*end) end = &(*end)->next;
    *end = safe_new_zeroed<EffectColumn>();
    (*end)->mask = mask;
    return *end;
}

const char* find_or_add_effect_name(EffectTable* table, const char* name) {
    for (char*& known : table->effect_names) {
        if (!known) {
            known = safe_strdup(name);
            table->n_effect_names = -1;
        }
        if (same_name(known, name)) return known;
    }
    V_error(level_error, "%s: too many effects in single plug-in\n", shown(table->plugin_name));
    return nullptr;
}

const EffectMember* find_member(const EffectColumn* column, const char* name) {
    const EffectMember* member = column->members;
    while (member && !same_name(member->name, name)) member = member->next;
    return member;
}

const char* effect_name_at(const EffectTable* table, int popup_index) {
    return popup_index >= 0 && popup_index < MAX_EFFECTS_PER_PLUGIN ? table->effect_names[popup_index] : nullptr;
}

}  // namespace

EffectTable* new_effect_table(const char* plugin_name) {
    auto* table = safe_new_zeroed<EffectTable>();
    push_abort_cleanup(safe_free, table);
    table->plugin_name = safe_strdup(plugin_name);
    pop_abort_cleanup();
    table->ref_count = 1;
    table->n_effect_names = -1;
    return table;
}

void free_effect_table(EffectTable* table) {
    if (!table || --table->ref_count > 0) return;
    for (EffectColumn* column = table->columns; column;) {
        for (EffectMember* member = column->members; member;) {
            EffectMember* next = member->next;
            safe_free(member);
            member = next;
        }
        EffectColumn* next = column->next;
        safe_free(column);
        column = next;
    }
    for (char* name : table->input_names) safe_free(name);
    for (char* name : table->effect_names) safe_free(name);
    safe_free(table->plugin_name);
    safe_free(table);
}

int add_to_effect_table(EffectTable* table, const char* effect_name, const char* const* input_names, int n_inputs,
                        int index) {
    const int mask = add_inputs(table, effect_name, input_names, n_inputs);
    EffectColumn* column = find_or_add_column(table, mask);
    if (find_member(column, effect_name)) {
        V_error(level_error, "Effect %s: some version already in table!\n", shown(effect_name));
        return 1;
    }
    EffectMember** end = &column->members;
    while (*end) end = &(*end)->next;
    *end = safe_new_zeroed<EffectMember>();
    (*end)->index = index;
    (*end)->name = find_or_add_effect_name(table, effect_name);
    return 2;
}

EffectTable* make_effect_table(const char* plugin_name) {
    EffectTable* table = new_effect_table(plugin_name);
    push_abort_cleanup([](void* t) { free_effect_table(static_cast<EffectTable*>(t)); }, table);
    for (int i = 0; i < Globals_V4->n_effects && i < MAX_EFFECTS_PER_PLUGIN; ++i) {
        const Genotype* genotype = Globals_V4->genotypes[i];
        if (!genotype) continue;
        const char* names[MAX_INPUTS];
        int n = 0;
        for (; n < genotype->input_number && n < MAX_INPUTS; ++n) names[n] = genotype->input_names[n];
        if (add_to_effect_table(table, genotype->name, names, n, i) == 1) {
            V_error(level_fatal, "%s: effect already in effect table.  Probably duplicated in def file.",
                    genotype->name);
            fatal_abort(1);
        }
    }
    pop_abort_cleanup();
    check_effect_table(table);
    return table;
}

void check_effect_table(const EffectTable* table) {
    if (!table->plugin_name || !*table->plugin_name) V_error(level_error, "effect table: bad plugin name");
    const char* plugin = shown(table->plugin_name);
    int n_columns = 0, total = 0, last_size = -1;
    for (const EffectColumn* column = table->columns; column; column = column->next, ++n_columns) {
        int size = 0;
        for (const EffectMember* member = column->members; member; member = member->next, ++size) {
            const char* expected = effect_name_at(table, size);
            if (expected && same_name(member->name, expected)) continue;
            V_error(
                level_error,
                "%s: effect %s with mask %x out of order.  Since it's %d down in its effect table column, I expected "
                "it to be %s.",
                plugin, shown(member->name), static_cast<unsigned>(column->mask), size, shown(expected));
        }
        if (last_size >= 0 && size != last_size) {
            V_error(level_error, "%s: Column %d has %d effects, prev column had %d.", plugin, n_columns, size,
                    last_size);
        }
        last_size = size;
        total += size;
    }
    if (n_columns && total != n_columns * last_size) {
        V_error(level_error, "%s: %d total effects, but %d columns of %d members.", plugin, total, n_columns,
                last_size);
    }
}

int effect_table_n_effects(EffectTable* table) {
    if (table->n_effect_names < 0) {
        int n = 0;
        while (n < MAX_EFFECTS_PER_PLUGIN && table->effect_names[n]) ++n;
        table->n_effect_names = n;
    }
    return table->n_effect_names;
}

int get_first_effect_from_table(const EffectTable* table, int popup_index) {
    const char* name = effect_name_at(table, popup_index);
    for (const EffectColumn* column = table->columns; name && column; column = column->next) {
        if (const EffectMember* member = find_member(column, name)) return member->index;
    }
    V_error(level_error, "get_first_effect_from_table: effect (popup) index %d not found in table.\n", popup_index);
    return -1;
}

int get_effect_index_from_genotype(const EffectTable* table, const char* name) {
    for (int i = 0; i < MAX_EFFECTS_PER_PLUGIN && table->effect_names[i]; ++i) {
        if (same_name(table->effect_names[i], name)) return i;
    }
    V_error(level_error, "get_effect_index_from_genotype: genotype %s not found in table.\n", shown(name));
    return -1;
}

int get_effect_from_table(const EffectTable* table, int popup_index, int mask) {
    const char* name = effect_name_at(table, popup_index);
    const EffectColumn* column = find_column(table, mask & known_inputs_mask(table));
    const EffectMember* member = name && column ? find_member(column, name) : nullptr;
    return member ? member->index : -1;
}

int effect_table_input_mask(const EffectTable* table, int all_inputs) {
    int mask = known_inputs_mask(table);
    if (all_inputs) return mask;
    for (const EffectColumn* column = table->columns; column; column = column->next) mask &= column->mask;
    return mask;
}

int effect_table_n_inputs(const EffectTable* table, int all_inputs) {
    return __builtin_popcount(static_cast<unsigned>(effect_table_input_mask(table, all_inputs)));
}

int effect_table_input_index(const EffectTable* table, const char* name) {
    for (int i = 0; i < MAX_INPUTS; ++i) {
        if (same_name(table->input_names[i], name)) return i;
    }
    return -1;
}

int genotype_input_mask(const EffectTable* table, Genotype* genotype) {
    if (genotype->input_mask_cached) return genotype->input_mask;
    int mask = 0;
    for (int i = 0; i < genotype->input_number && i < MAX_INPUTS; ++i) {
        if (name_missing(genotype->name, genotype->input_names[i], i)) continue;
        const int place = effect_table_input_index(table, genotype->input_names[i]);
        if (place >= 0) mask |= 1 << place;
    }
    genotype->input_mask = static_cast<uint8_t>(mask);
    genotype->input_mask_cached = 1;
    return mask;
}

bool genotype_uses_input_p(const EffectTable* table, int input, Genotype* genotype) {
    return input >= 0 && input < MAX_INPUTS && (genotype_input_mask(table, genotype) & (1 << input));
}

}  // namespace velloran
