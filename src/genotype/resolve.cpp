// From a table full of references to the sorted graph that the compiler takes.
//
// Walks recurse to the depth of the graph, which MAX_GENOTYPE_NODES bounds, and keep what they found, so that shared
// branches cost nothing twice.
#include "genotype/node_fun_table.h"
#include "genotype/node_table.h"
#include "genotype/reading.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/memory.h"
#include "texts/hints.h"

#include <cstdio>
#include <cstring>

namespace velloran {
namespace {

constexpr int16_t unvisited = -1, cyclic = -2;

// What the word of a row that nothing was assigned to may have been meant for.
void hint_assigned_names(const Genotype* genotype, int row) {
    const Node& node = genotype->nodes[row];
    if (!hint_printer || !node.name) return;
    if (row == 0) {
        hint(level_note, "the result of an effect is what is assigned to dest.");
        return;
    }
    NearestWord word = {node.name};
    for (int i = 1; i < genotype->node_number; ++i)
        if (genotype->nodes[i].name && genotype->nodes[i].type != node_ref && genotype->nodes[i].name[0] != '_')
            consider_word(word, genotype->nodes[i].name);
    for (const char(&input)[INPUT_NAME_SIZE] : genotype->input_names)
        if (input[0]) consider_word(word, input);
    for (const char* known : {"x", "y", "xy", "Output"}) consider_word(word, known);
    hint_nearest(word);
    if (!word.nearest && find_node_fun(node.name))
        hint(level_note, "'%s' is a function: a call is written (%s ...).", node.name, node.name);
}

int check_assigned(Genotype* genotype) {
    for (int i = 0; i < genotype->node_number; ++i) {
        Node& node = genotype->nodes[i];
        if (node.type != node_ref || node.ref_index) {
            if (!node.ref_index) node.ref_index = static_cast<int16_t>(i);
            continue;
        }
        point_reader_at(node);
        V_error(level_error, "In %s: the variable '%s' is not assigned.", genotype->name, node.name ? node.name : "");
        hint_assigned_names(genotype, i);
        return read_failed;
    }
    return read_ok;
}

// The row that stands for this one once references are followed; calls get such rows as arguments. cyclic if the row is
// reached from itself. targets holds what is known of each row, unvisited at first.
int16_t snap_node_tree_references(Genotype* genotype, int row, int16_t* targets) {
    Node& node = genotype->nodes[row];
    if (node.mark) return cyclic;
    if (targets[row] != unvisited) return targets[row];
    int16_t target = static_cast<int16_t>(row);
    if (node.type == node_ref) {
        if (node.ref_index == 0) {
            V_error(level_error, "snap_node_tree_references: unset node with no snap index.");
            fatal_abort(1);
            return cyclic;
        }
        node.mark = 1;
        target = snap_node_tree_references(genotype, node.ref_index, targets);
        node.mark = 0;
    } else if (node.type == node_function) {
        node.mark = 1;
        for (int a = 0; a < node.arg_number; ++a) {
            const int16_t arg = snap_node_tree_references(genotype, node.arg_indices[a], targets);
            if (arg == cyclic) {
                node.mark = 0;
                return cyclic;
            }
            node.arg_indices[a] = arg;
        }
        node.mark = 0;
    }
    targets[row] = target;
    return target;
}

// The way from row 0 to the first row that is reached from itself: path[start] on, up to length, is the cycle.
struct Cycle {
    Genotype* genotype;
    int16_t path[MAX_GENOTYPE_NODES];
    int length, start;
};

// Marks stay on rows that lead into no cycle. True once there is one.
bool find_cycle(Cycle& cycle, int row) {
    const Node& node = cycle.genotype->nodes[row];
    for (int i = 0; i < cycle.length; ++i) {
        if (cycle.path[i] != row) continue;
        cycle.start = i;
        return true;
    }
    if (node.mark) return false;
    cycle.path[cycle.length++] = static_cast<int16_t>(row);
    if (node.type == node_ref && node.ref_index != row && find_cycle(cycle, node.ref_index)) return true;
    if (node.type == node_ref && node.ref_index == row) {
        cycle.start = cycle.length - 1;  // assigned to itself
        return true;
    }
    for (int a = 0; node.type == node_function && a < node.arg_number; ++a)
        if (find_cycle(cycle, node.arg_indices[a])) return true;
    --cycle.length;
    cycle.genotype->nodes[row].mark = 1;
    return false;
}

void hint_cycle(const Cycle& cycle) {
    if (!hint_printer || !cycle.length) return;
    char text[600];
    const int size = sizeof(text);
    int at = 0;
    const char* first = nullptr;
    for (int i = cycle.start; i < cycle.length && at < size; ++i) {
        const Node& node = cycle.genotype->nodes[cycle.path[i]];
        const bool variable = node.name && (node.type == node_ref || node.name[0] != '_' || !node.fun_info ||
                                            std::strcmp(node.name + 1, node.fun_info->name) != 0);
        if (!variable) continue;
        if (!first) first = node.name;
        at += std::snprintf(text + at, static_cast<size_t>(size - at), "%s needs ", node.name);
    }
    if (first) hint(level_note, "%s%s.", text, first);
}

void mark_reached(Genotype* genotype, int row) {
    Node& node = genotype->nodes[row];
    if (node.mark) return;
    node.mark = 1;
    for (int a = 0; a < node.arg_number; ++a) mark_reached(genotype, node.arg_indices[a]);
}

bool ignored(const Genotype* genotype, const Node& node) {
    return node.param_index > 0 && (genotype->params[node.param_index - 1]->scale_flags & scale_ignore);
}

void remove_unreferenced(Genotype* genotype) {
    constexpr size_t longest_shown_name = 100;
    mark_reached(genotype, 0);
    for (int i = 0; i < genotype->node_number; ++i) {
        Node& node = genotype->nodes[i];
        const bool reached = node.mark;
        node.mark = 0;
        if (reached || (node.name && ignored(genotype, node))) continue;
        if (node.name && node.type != node_ref) {
            const size_t length = std::strlen(node.name);
            point_reader_at(node);
            if (length <= longest_shown_name) {
                V_error(level_error, "*** Warning: in %s, '%s' is not referenced.", genotype->name, node.name);
            } else {
                V_error(level_error, "*** Warning: in %s, node_name len= %ld! is not referenced.", genotype->name,
                        static_cast<long>(length));
            }
        }
        clear_node(genotype, i);
    }
}

// Every function row whose lowest argument stands before it changes places with that argument, until none does. Rows
// stand still meanwhile and only their positions move; each exchange brings a user before an argument, so it ends.
void sort_nodes(Genotype* genotype) {
    const int n = genotype->node_number;
    int16_t* position = frame_array<int16_t>(static_cast<size_t>(n));  // of each row
    int16_t* row_at = frame_array<int16_t>(static_cast<size_t>(n));    // at each position
    for (int i = 0; i < n; ++i) position[i] = row_at[i] = static_cast<int16_t>(i);
    for (bool changed = true; changed;) {
        changed = false;
        for (int p = 0; p < n; ++p) {
            const Node& node = genotype->nodes[row_at[p]];
            if (node.type != node_function) continue;
            int lowest = 10000;
            for (int a = 0; a < node.arg_number; ++a) {
                if (position[node.arg_indices[a]] < lowest) lowest = position[node.arg_indices[a]];
            }
            if (lowest >= p) continue;
            const int16_t user = row_at[p], arg = row_at[lowest];
            row_at[lowest] = user;
            row_at[p] = arg;
            position[user] = static_cast<int16_t>(lowest);
            position[arg] = static_cast<int16_t>(p);
            changed = true;
        }
    }
    permute_nodes(genotype, position);
    frame_free(row_at);
    frame_free(position);
}
static_assert(MAX_GENOTYPE_NODES < 10000);

}  // namespace

int resolve_genotype(Genotype* genotype) {
    if (check_assigned(genotype) != read_ok) return read_failed;
    int16_t* targets = frame_array<int16_t>(static_cast<size_t>(genotype->node_number));
    for (int i = 0; i < genotype->node_number; ++i) targets[i] = unvisited;
    const int16_t root = snap_node_tree_references(genotype, 0, targets);
    frame_free(targets);
    if (root == cyclic) {
        Cycle cycle = {genotype, {}, 0, 0};
        find_cycle(cycle, 0);
        if (cycle.length) point_reader_at(genotype->nodes[cycle.path[cycle.start]]);
        V_error(level_error, "In %s: cyclic variable references!", genotype->name);
        hint_cycle(cycle);
        return read_failed;
    }
    swap_nodes(genotype, 0, root);
    remove_unreferenced(genotype);
    sort_nodes(genotype);
    return read_ok;
}

}  // namespace velloran
