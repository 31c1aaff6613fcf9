// Recursive descent over tokens, straight into the node table. Rows are named by index throughout, since the table
// moves when it grows.
//
// A word that no row has yet becomes the name of the row that stands in its place (a forward reference): the assignment
// that follows later fills that very row.
#include "genotype/reader.h"

#include "genotype/all_defs.h"
#include "genotype/declarations.h"
#include "genotype/node_fun_table.h"
#include "genotype/node_table.h"
#include "genotype/param_record.h"
#include "genotype/reading.h"
#include "records/run_state.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/memory.h"
#include "texts/hints.h"

#include <cstdio>
#include <cstring>

namespace velloran {
namespace {

// The text of the definition in hand. There is one reader, so there is one of these.
struct {
    Genotype* genotype;
    int assign_count;
    int depth;                       // calls open
    int ref_depth;                   // #ref being followed
    int16_t input_rows[MAX_INPUTS];  // row of each input, 0 none yet
} reading;

// Rows by name: of several with one name (unnamed calls of a function) the first. Open addressing; -1 is free.
constexpr int name_slots = 4 * MAX_GENOTYPE_NODES;
int16_t rows_by_name[name_slots];

int16_t* name_slot(const char* name) {
    uint32_t hash = 2166136261u;  // FNV-1a
    for (const char* c = name; *c; ++c) hash = (hash ^ static_cast<uint8_t>(*c)) * 16777619u;
    uint32_t i = hash % name_slots;
    while (rows_by_name[i] >= 0 && std::strcmp(reading.genotype->nodes[rows_by_name[i]].name, name) != 0) {
        i = (i + 1) % name_slots;
    }
    return &rows_by_name[i];
}

int find_row(const char* name) { return *name_slot(name); }

// First byte of the last token; 0 where it stands in a text that #ref leads to.
int32_t text_position() {
    if (reading.ref_depth) return 0;
    parser_state state;
    save_parser_state(&state);
    restore_parser_state(&state);
    return static_cast<int32_t>(state.token_start);
}

void name_row(int row, const char* name) {
    Node& node = reading.genotype->nodes[row];
    node.name = safe_strdup(name);
    if (!node.text_position) node.text_position = text_position();
    int16_t* slot = name_slot(name);
    if (*slot < 0 || *slot > row) *slot = static_cast<int16_t>(row);
}

struct VariableName {
    const char *name, *alternative;
};
constexpr VariableName variable_names[] = {
    {"x", "X"},           {"y", "Y"}, {"xy", "XY"}, {"_image", "_clip1"}, {"_image2", "_clip2"}, {"_image3", "_clip3"},
    {"_image4", "_clip4"}};
static_assert(sizeof(variable_names) / sizeof(variable_names[0]) == first_input_var + MAX_INPUTS);

// The end of the text inside an assignment, or a token that was too long (which the text reader has reported).
int ended(int status) {
    if (status == token_end) V_error(level_error, "Eof reading genotype assignment.");
    return read_failed;
}

Param* make_node_param(int row) {
    Genotype* genotype = reading.genotype;
    Node& node = genotype->nodes[row];
    if (genotype->param_number >= MAX_GENOTYPE_PARAMS) {
        V_error(level_error, "%s.%s: too many params in this genotype (max %d)", genotype->name, node.name,
                MAX_GENOTYPE_PARAMS);
        return nullptr;
    }
    Param* param = new_param(param_float, node.name);
    param->max_value = 1000000.0f;
    param->node = &node;
    genotype->params[genotype->param_number++] = param;
    node.param_index = genotype->param_number;
    return param;
}

int read_vector(int row) {
    Genotype* genotype = reading.genotype;
    Param* param = nullptr;
    if (genotype->nodes[row].name && !(param = make_node_param(row))) return read_failed;
    float numbers[4];
    int count = 0;
    char token[token_size];
    for (;;) {
        if (const int status = read_token(token)) return ended(status);
        if (token_is(token, ']')) break;
        float number;
        if (!parse_float(token, &number)) {
            V_error(level_error, "In %s: non number '%s' in a vector, (use v2, v3, or v4 function).", genotype->name,
                    token);
            return read_failed;
        }
        if (count == 4) {
            V_error(level_error, "In %s: a vector has > %d elements.", genotype->name, 4);
            return read_failed;
        }
        hint_behind_number(token);
        numbers[count++] = hold_number(genotype, token, number);
    }
    if (count == 0) {
        V_error(level_error, "In %s: a vector has 0 elements.", genotype->name);
        return read_failed;
    }
    Node& node = genotype->nodes[row];
    node.type = node_constant;
    node.elnum = static_cast<int8_t>(count);
    for (int e = 0; e < count; ++e) node.vals[e] = float_to_fix(numbers[e]);
    pad_constant(&node);
    if (param) {
        param->n_channels = param->n_buttons = static_cast<int8_t>(count);
        init_param_values(param, numbers, count);
    }
    return read_ok;
}

int read_scalar(int row, float number) {
    Genotype* genotype = reading.genotype;
    if (genotype->nodes[row].name) {
        Param* param = make_node_param(row);
        if (!param) return read_failed;
        init_param_values(param, &number, 1);
    }
    Node& node = genotype->nodes[row];
    node.type = node_constant;
    node.elnum = 1;
    node.vals[0] = float_to_fix(number);
    pad_constant(&node);
    return read_ok;
}

void read_variable(int row, int var) {
    Node& node = reading.genotype->nodes[row];
    if (var >= first_input_var) {
        int16_t& input_row = reading.input_rows[var - first_input_var];
        if (input_row) {
            node.type = node_ref;
            node.ref_index = input_row;
            return;
        }
        input_row = static_cast<int16_t>(row);  // row 0 stays 0: where dest is an input, nothing else is reached
    }
    node.type = node_var;
    node.var_index = static_cast<int8_t>(var);
    node.elnum = static_cast<int8_t>(variable_elnum(var));
    if (!node.name) node.name = safe_strdup(variable_names[var].name);
}

int read_reference(int row, const char* word) {
    Genotype* genotype = reading.genotype;
    int target = find_row(word);
    if (target < 0) {
        if (!genotype->nodes[row].name) {
            name_row(row, word);
            return read_ok;
        }
        target = add_nodes(genotype, 1);
        if (target < 0) return read_failed;
        name_row(target, word);
    }
    genotype->nodes[row].type = node_ref;
    genotype->nodes[row].ref_index = static_cast<int16_t>(target);
    return read_ok;
}

int read_call(int row);

int read_node(int row) {
    Genotype* genotype = reading.genotype;
    char token[token_size];
    if (const int status = read_token(token)) return ended(status);
    if (token_is(token, ')')) return read_closing_paren;
    if (token_is(token, ']') || token_is(token, '=') || token_is(token, '"')) {
        V_error(level_error, "In %s: expected an expression but got '%s'.", genotype->name, token);
        return read_failed;
    }
    Node& node = genotype->nodes[row];
    node.assign_order = static_cast<int16_t>(reading.assign_count);
    if (!node.name) node.text_position = text_position();
    if (std::strcmp(token, "dest") == 0) {
        V_error(level_error, "In %s: 'dest' can not be referenced.", genotype->name);
        return read_failed;
    }
    if (token_is(token, '(')) {
        node.call_position = text_position();
        if (++reading.depth > MAX_EXPRESSION_DEPTH) {
            V_error(level_error, "In %s: expressions are nested more than %d deep.", genotype->name,
                    MAX_EXPRESSION_DEPTH);
            return read_failed;
        }
        const int result = read_call(row);
        --reading.depth;
        return result;
    }
    if (token_is(token, '[')) return read_vector(row);
    float number;
    if (parse_float(token, &number)) {
        hint_behind_number(token);
        return read_scalar(row, hold_number(genotype, token, number));
    }
    const int var = find_variable(token, genotype);
    if (var >= 0) {
        read_variable(row, var);
        return read_ok;
    }
    if (std::strcmp(token, "Output") == 0) {
        node.type = node_output;
        if (!node.name) node.name = safe_strdup(token);
        node.elnum = static_cast<int8_t>(output_elnum());
        return read_ok;
    }
    return read_reference(row, token);
}

void hint_arguments(const NodeFun& fun) {
    char text[512];
    const int size = sizeof(text);
    int at = std::snprintf(text, sizeof(text), "it is called (%s", fun.name);
    for (int a = 0; a < fun.arg_number && at < size; ++a)
        at += std::snprintf(text + at, static_cast<size_t>(size - at), " %s", fun.arg_names[a]);
    hint(level_note, "%s)", text);
}

int read_call(int row) {
    Genotype* genotype = reading.genotype;
    char token[token_size];
    if (const int status = read_token(token)) return ended(status);
    const NodeFun* fun = find_node_fun(token);
    if (!fun) {
        V_error(level_error, "In %s node %d: unknown function '%s'", genotype->name, row, token);
        NearestWord word = {token};
        for (int i = 0; i < node_fun_number; ++i) consider_word(word, node_funs[i].name);
        hint_nearest(word);
        return read_failed;
    }
    const int first_arg = add_nodes(genotype, fun->arg_number);
    if (first_arg < 0) return read_failed;
    Node& node = genotype->nodes[row];
    node.type = node_function;
    node.arg_number = static_cast<int8_t>(fun->arg_number);
    node.eval_arg_number = static_cast<int8_t>(fun->arg_number - (fun->def_flags & def_last_arg_type_only ? 1 : 0));
    node.fun_info = fun;
    if (!node.name) {
        char name[MAX_FUN_NAME_LEN + 1] = "_";
        std::strcat(name, fun->name);
        name_row(row, name);
    }
    if (fun->fun_flags & fun_reads_other_frames) genotype->effect_flags_1 |= effect_reads_other_frames;
    if (fun->fun_flags & fun_keeps_own_images) genotype->effect_flags_1 |= effect_keeps_own_images;
    if (fun->fun_flags & fun_changes_each_frame) genotype->effect_flags_1 |= effect_changes_each_frame;
    for (int i = 0; i < fun->arg_number; ++i) {
        genotype->nodes[row].arg_indices[i] = static_cast<int16_t>(first_arg + i);
        const int result = read_node(first_arg + i);
        if (result == read_closing_paren) {
            point_reader_at_call(genotype->nodes[row]);
            V_error(level_error, "In %s: %s has too few args: %d, needs %d.", genotype->name, fun->name, i,
                    fun->arg_number);
            hint_arguments(*fun);
        }
        if (result != read_ok) return read_failed;
    }
    if (const int status = read_token(token)) return ended(status);
    if (!token_is(token, ')')) {
        V_error(level_error, "In %s: %s has too many args with '%s', needs %d.", genotype->name, fun->name, token,
                fun->arg_number);
        hint_arguments(*fun);
        return read_failed;
    }
    return read_ok;
}

int read_assignments();

// Both lists may be missing, and whatever they say is the business of the definition that they stand in.
int skip_lists() {
    for (int i = 0; i < 2; ++i) {
        char token[token_size];
        if (const int status = read_token(token)) return ended(status);
        if (!token_is(token, '(')) {
            unread_token(token);
            break;
        }
        for (int depth = 1; depth > 0;) {
            if (read_token(token) == token_end) return ended(token_end);
            depth += token_is(token, '(') - token_is(token, ')');
        }
    }
    return read_ok;
}

// Reads the assignments of another definition as if they stood here.
int read_ref() {
    char word[token_size];
    if (const int status = read_token(word)) return ended(status);
    if (reading.ref_depth >= MAX_REF_DEPTH) {
        V_error(level_error, "In %s: #ref %s: references are nested more than %d deep.", reading.genotype->name, word,
                MAX_REF_DEPTH);
        return read_failed;
    }
    parser_state here;
    save_parser_state(&here);
    if (goto_def(word) != 0) {
        restore_parser_state(&here);
        V_error(level_error, "Did not find reference to %s. \n", word);
        return read_failed;
    }
    ++reading.ref_depth;
    int result = skip_lists();
    if (result == read_ok) result = read_assignments();
    --reading.ref_depth;
    restore_parser_state(&here);
    return result;
}

int read_genotype_assignment() {
    Genotype* genotype = reading.genotype;
    char name[token_size], token[token_size];
    if (const int status = read_token(name)) return ended(status);
    if (token_is(name, ')')) return read_closing_paren;
    if (std::strcmp(name, "#ref") == 0) return read_ref();
    if (delimiter_token(name)) {
        V_error(level_error, "In %s: expected variable name or ')' but got %s.", genotype->name, name);
        return read_failed;
    }
    const int32_t name_position = text_position();
    const int status = read_token(token);
    if (status == token_end) V_error(level_error, "In %s: expected '%s =' but got eof.", genotype->name, name);
    if (status) return read_failed;
    if (!token_is(token, '=')) {
        V_error(level_error, "In %s: expected '%s =' but got '%s %s'.", genotype->name, name, name, token);
        return read_failed;
    }
    float number;
    if (find_variable(name, genotype) >= 0 || parse_float(name, &number)) {
        V_error(level_error, "In %s: '%s' should not be assigned.", genotype->name, name);
        return read_failed;
    }
    int row = find_row(name);
    if (row < 0) {
        row = add_nodes(genotype, 1);
        if (row < 0) return read_failed;
        name_row(row, name);
    } else if (genotype->nodes[row].type != node_ref) {
        V_error(level_error, "In %s: '%s' is assigned more than once (type %d).", genotype->name, name,
                genotype->nodes[row].type);
        return read_failed;
    }
    genotype->nodes[row].ref_index = 0;
    genotype->nodes[row].text_position = name_position;
    const int result = read_node(row);
    if (result == read_closing_paren) {
        V_error(level_error, "In %s: expected an expression after '%s =' but got ')'.", genotype->name, name);
    }
    if (result != read_ok) return read_failed;
    return maybe_read_param_info_for_node(genotype, row);
}

int read_assignments() {
    for (;;) {
        const int result = read_genotype_assignment();
        if (result == read_closing_paren) return read_ok;
        if (result != read_ok) return result;
        ++reading.assign_count;
    }
}

bool finish_genotype(Genotype* genotype) {
    if (current_param_group) {
        V_error(level_error, "Unclosed param group %s (index %d) in %s\n", current_param_group->name,
                current_param_group->index, genotype->name);
        return false;
    }
    if (resolve_genotype(genotype) != read_ok) return false;
    set_genotype_arg_ptrs(genotype);
    if (genotype->input_number == 0) {
        if (genotype->rgba_mode == rgba_default) genotype->rgba_mode = rgba_set_alpha_to_one;
        if (genotype->z_mode == z_not_given) genotype->z_mode = z_no_inputs;
        if (genotype->rgba_mode == rgba_use_alpha_as_mask) {
            V_error(
                level_fatal,
                "%s: effect with no inputs has rgba_mode of use_alpha_as_mask.\nThis is not allowed.  It needs to use "
                "another rgba mode.\n",
                genotype->name);
            fatal_abort(1);
            return false;
        }
    }
    return true;
}

void free_half_read(void* genotype) { free_genotype(static_cast<Genotype*>(genotype)); }

}  // namespace

float hold_number(const Genotype* genotype, const char* token, float number) {
    constexpr float limit = 524287.9375f;  // what fits 32 bits with 12 of fraction, and a float
    if (number >= -limit && number <= limit) return number;
    V_error(level_warning, "In %s: the number %s is held to the range of %.9g to %.9g.", genotype->name, token,
            static_cast<double>(-limit), static_cast<double>(limit));
    return number > limit ? limit : number < -limit ? -limit : 0.0f;
}

int find_variable(const char* word, const Genotype* genotype) {
    for (int i = 0; i < MAX_INPUTS && i < genotype->input_number; ++i) {
        if (std::strcmp(genotype->input_names[i], word) == 0) return first_input_var + i;
    }
    for (int i = 0; i < first_input_var + MAX_INPUTS; ++i) {
        if (std::strcmp(variable_names[i].name, word) == 0 || std::strcmp(variable_names[i].alternative, word) == 0)
            return i;
    }
    return -1;
}

void point_reader_at_byte(long position) {
    if (position <= 0) return;
    parser_state state;
    save_parser_state(&state);
    state.token_start = position;
    restore_parser_state(&state);
}

void point_reader_at(const Node& node) { point_reader_at_byte(node.text_position); }

void point_reader_at_call(const Node& node) {
    point_reader_at_byte(node.call_position ? node.call_position : node.text_position);
}

void show_node(const Genotype* genotype, const Node& node, char (&text)[shown_node_size]) {
    const int size = static_cast<int>(shown_node_size);
    const int input = node.type == node_var ? node.var_index - first_input_var : -1;
    if (node.type == node_function && node.name && node.name[0] == '_' &&
        !std::strcmp(node.name + 1, node.fun_info->name)) {
        std::snprintf(text, shown_node_size, node.arg_number ? "(%s ...)" : "(%s)", node.fun_info->name);
    } else if (input >= 0 && input < MAX_INPUTS && genotype->input_names[input][0]) {
        std::snprintf(text, shown_node_size, "%s", genotype->input_names[input]);
    } else if (node.name) {
        std::snprintf(text, shown_node_size, "%s", node.name);
    } else {
        int at = std::snprintf(text, shown_node_size, "%s", node.elnum > 1 ? "[" : "");
        for (int e = 0; e < node.elnum && at < size; ++e)
            at += std::snprintf(text + at, static_cast<size_t>(size - at), "%s%.6g", e ? " " : "",
                                node.vals[e] / static_cast<double>(fix_scale));
        if (node.elnum > 1 && at < size) std::snprintf(text + at, static_cast<size_t>(size - at), "]");
    }
}

Genotype* parse_genotype(const char* name) {
    if (!node_fun_tables_filled()) {
        V_error(level_error, "read_genotype: need to set_tables_and_globals.");
        return nullptr;
    }
    Genotype* genotype = new_genotype(name);
    push_abort_cleanup(free_half_read, genotype);
    reading = {};
    reading.genotype = genotype;
    current_param_group = nullptr;
    for (int16_t& row : rows_by_name) row = -1;
    *name_slot("dest") = 0;
    const bool good = read_input_list(genotype) == read_ok && read_modifiers(genotype) == read_ok &&
                      read_assignments() == read_ok && finish_genotype(genotype);
    current_param_group = nullptr;
    reading.genotype = nullptr;
    pop_abort_cleanup();
    if (good) return genotype;
    free_genotype(genotype);
    return nullptr;
}

int find_next_def(char* name) {
    static const char* const keywords[] = {"def_effect", "define", "def_spark"};
    char token[token_size];
    token[0] = 0;
    for (;;) {
        // A token that is too long is no keyword.
        if (!token_is(token, '(')) {
            if (const int status = read_token(token); status == token_end) return token_end;
            continue;
        }
        if (const int status = read_token(token); status == token_end) return token_end;
        for (const char* keyword : keywords) {
            if (std::strcmp(token, keyword) != 0) continue;
            const int status = read_token(token);
            if (status == token_end) return token_end;
            if (status == 0 && !delimiter_token(token)) {
                std::strcpy(name, token);
                return 0;
            }
            break;
        }
    }
}

}  // namespace velloran
