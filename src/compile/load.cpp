#include "compile/load.h"

#include "compile/compile.h"
#include "genotype/node_fun_table.h"
#include "genotype/node_table.h"
#include "genotype/reader.h"
#include "genotype/reading.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/files.h"
#include "support/memory.h"
#include "texts/hints.h"
#include "texts/text_reader.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace velloran {
namespace {

// The first compilation reports the arguments of a call that fit none of its combinations; this finds that call first,
// so that the message stands with it.
void point_reader_at_misfit(Genotype* genotype) {
    for (int i = genotype->node_number - 1; i >= 0; --i) {
        Node& node = genotype->nodes[i];
        if (node.type != node_function) continue;
        const int combo = find_combo(&node);
        if (combo < 0) {
            point_reader_at_call(node);
            return;
        }
        node.elnum = static_cast<int8_t>(combo_return_elnum(node.fun_info->arg_type_combos[combo]));
    }
}

// An image function reads its params once a frame: one that varies with the pixel has no value to be read.
bool params_hold_over_frame(const Genotype* genotype) {
    bool good = true;
    for (int i = 0; i < genotype->node_number; ++i) {
        const Node& node = genotype->nodes[i];
        if (node.type != node_function || !node.fun_info->params_hold) continue;
        for (int a = 0; a < node.eval_arg_number; ++a) {
            const Node& arg = genotype->nodes[node.arg_indices[a]];
            if (node.fun_info->arg_restrictions[a] != arg_acts_as_param || is_constant(&arg)) continue;
            char shown[shown_node_size];
            show_node(genotype, arg, shown);
            point_reader_at_call(node);
            V_error(level_error,
                    "In %s: the argument '%s' of %s must be the same over the whole frame, but '%s' varies.",
                    genotype->name, node.fun_info->arg_names[a], node.fun_info->name, shown);
            good = false;
        }
    }
    return good;
}

// What the arguments of a call that fits no combination have, and which combinations are like it.
void hint_combos(const Genotype* genotype, const Node& node) {
    if (!hint_printer) return;
    const NodeFun& fun = *node.fun_info;
    char text[800];
    const int size = sizeof(text);
    int at = 0;
    const auto add = [&text, &at](const char* format, auto... values) {
        if (at < size) at += std::snprintf(text + at, static_cast<size_t>(size - at), format, values...);
    };
    for (int a = 0; a < node.arg_number; ++a) {
        char shown[shown_node_size];
        const Node& arg = genotype->nodes[node.arg_indices[a]];
        show_node(genotype, arg, shown);
        add("%s%s %s has %d", a ? ", " : "elements: ", fun.arg_names[a], shown, static_cast<int>(arg.elnum));
    }
    hint(level_note, "%s.", text);
    // Those that differ in the fewest arguments.
    int fewest = MAX_ARG_NUMBER;
    int wrong[MAX_ARG_TYPE_COMBOS] = {};
    for (int c = 0; c < fun.arg_type_combo_number; ++c) {
        for (int a = 0; a < fun.arg_number; ++a)
            wrong[c] += combo_arg_elnum(fun.arg_type_combos[c], a) != genotype->nodes[node.arg_indices[a]].elnum;
        fewest = std::min(fewest, wrong[c]);
    }
    at = 0;
    for (int c = 0; c < fun.arg_type_combo_number; ++c) {
        if (wrong[c] != fewest) continue;
        add("%s(", at ? " or " : "");
        for (int a = 0; a < fun.arg_number; ++a) add("%s%d", a ? ", " : "", combo_arg_elnum(fun.arg_type_combos[c], a));
        add(") -> %d", combo_return_elnum(fun.arg_type_combos[c]));
    }
    hint(level_note, "these would fit: %s.", text);
}

bool compile_read(Genotype* genotype) {
    point_reader_at_misfit(genotype);
    if (const Node* misfit = compile_genotype_at_read(genotype)) {
        V_error(level_error, "In %s: %s has an invalid combo of arg types.", genotype->name, misfit->fun_info->name);
        hint_combos(genotype, *misfit);
        return false;
    }
    return params_hold_over_frame(genotype) && planes_fit_p(genotype);
}

void free_half_made(void* genotype) { free_genotype(static_cast<Genotype*>(genotype)); }

void close_half_read(void* file) {
    reset_text_reader();
    safe_fclose(static_cast<FILE*>(file));
}

// Steps through the definitions of a file to the n-th (name null) or the one of that name.
Genotype* read_from_file(const char* file, const char* name, int n) {
    FILE* stream = safe_fopen(file, "r", file_report_failure);
    if (!stream) return nullptr;
    push_abort_cleanup(close_half_read, stream);
    reset_text_reader();
    reading_from_file_ptr = stream;
    Genotype* genotype = nullptr;
    char def_name[token_size];
    bool found = false;
    for (int i = 0; !found && find_next_def(def_name) == 0; ++i) {
        found = name ? std::strcmp(def_name, name) == 0 : i == n;
    }
    if (found) {
        genotype = read_genotype(def_name);
    } else if (name) {
        V_error(level_error, "The effect named '%s' was not found in file %s.", name, file);
    }
    pop_abort_cleanup();
    close_half_read(stream);
    return genotype;
}

}  // namespace

Genotype* read_genotype(const char* name) {
    Genotype* genotype = parse_genotype(name);
    if (!genotype) return nullptr;
    push_abort_cleanup(free_half_made, genotype);
    const bool good = compile_read(genotype);
    pop_abort_cleanup();
    if (good) return genotype;
    free_genotype(genotype);
    return nullptr;
}

Genotype* read_genotype_from_string(const char* text, const TextMap* map) {
    reset_text_reader();
    open_reading_from_string(text, map);
    if (!text) return nullptr;
    char name[token_size];
    Genotype* genotype = nullptr;
    if (find_next_def(name) == 0) {
        genotype = read_genotype(name);
    } else {
        V_error(level_error, "Eof reading genotype define from string.");
    }
    reading_from_string = nullptr;
    return genotype;
}

Genotype* read_genotype_from_file(const char* file, const char* name) { return read_from_file(file, name, 0); }

Genotype* read_genotype_from_file_n(const char* file, int n) { return read_from_file(file, nullptr, n); }

}  // namespace velloran
