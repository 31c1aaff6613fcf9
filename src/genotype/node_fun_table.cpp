// Registration of the rows: each is opened, checked and filled column by column. Faults are the library's own, so every
// check but that of the run columns ends in the fatal abort.
#include "genotype/node_fun_table.h"

#include "genotype/fun_row.h"
#include "records/node.h"
#include "support/abort.h"
#include "support/errors.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace velloran {

NodeFun node_funs[MAX_FUN_NUMBER];
int node_fun_number = 0;

namespace {

bool filled = false;

struct FlagWord {
    const char* word;
    uint8_t fun_flags, def_flags;
};
constexpr FlagWord flag_words[] = {
    {"nc", fun_never_constant, 0},
    {"fr", fun_changes_each_frame | fun_no_cache, 0},
    {"of", fun_reads_other_frames, 0},
    {"tw", fun_uses_timewarp | fun_reads_other_frames, def_needs_long_image},
    {"own", fun_keeps_own_images, 0},
    {"ncache", fun_no_cache, 0},
    {"long", 0, def_needs_long_image},
    {"mip", 0, def_needs_mipmap},
    {"filt", 0, def_needs_mipmap | def_needs_filter_mipmap},
    {"last", 0, def_last_arg_type_only},
    {"whole", 0, def_needs_whole_plane},
    {"pct", 0, def_uses_percent_time},
    // See NodeFun::params_hold: a pixel function whose params hold, an image function whose params may vary.
    {"hold", 0, 0},
    {"vary", 0, 0},
};

constexpr const char* any1 = "1<1 2<2 3<3 4<4";
constexpr const char* any2 = "1<11 2<22 2<21 2<12 3<33 3<31 3<13 4<44 4<41 4<14 4<34 4<43";

// Takes the next word of *text, words being parted by blanks and commas; its length, 0 at the end.
int next_word(const char** text, const char** word) {
    const char* p = *text;
    while (*p == ' ' || *p == ',') ++p;
    *word = p;
    while (*p && *p != ' ' && *p != ',') ++p;
    *text = p;
    return static_cast<int>(p - *word);
}

// Names of arguments outlive the rows' texts only as slices of them; they are kept here, each ended by a zero byte.
constexpr int name_pool_size = 24 * 1024;
char name_pool[name_pool_size];
int name_pool_used = 0;

const char* keep_name(const char* text, int length) {
    if (name_pool_used + length + 1 > name_pool_size) {
        V_error(level_error, "The names of the function table need more than %d bytes.", name_pool_size);
        fatal_abort(1);
    }
    char* kept = name_pool + name_pool_used;
    std::memcpy(kept, text, static_cast<size_t>(length));
    kept[length] = 0;
    name_pool_used += length + 1;
    return kept;
}

int count_words(const char* text) {
    const char* word;
    int n = 0;
    while (next_word(&text, &word)) ++n;
    return n;
}

NodeFun* def_node_fun(const char* name, int arg_number, uint16_t cost, uint16_t category, float weight) {
    if (node_fun_number >= MAX_FUN_NUMBER) {
        V_error(level_error, "ERROR: def_node_funs exceeded MAX_FUN_NUMBER, increase in defuns.h.");
        fatal_abort(1);
    }
    if (arg_number > MAX_ARG_NUMBER) {
        V_error(level_error, "def_node_fun %s, %d args is > MAX_ARG_NUMBER %d.", name, arg_number, MAX_ARG_NUMBER);
        fatal_abort(1);
    }
    if (std::strlen(name) + 1 > MAX_FUN_NAME_LEN) {
        V_error(level_error, "def_node_fun %s, name is > MAX_FUN_NAME_LEN.", name);
        fatal_abort(1);
    }
    NodeFun* fun = &node_funs[node_fun_number++];
    std::memset(fun, 0, sizeof(NodeFun));
    std::strcpy(fun->name, name);
    fun->arg_number = arg_number;
    fun->cost = cost;
    fun->category = category;
    fun->weight = weight;
    fun->def_flags = def_defined;
    fun->image_arg = -1;
    fun->arg_enable_runtime = fun->arg_scale_runtime = fun->arg_scale_passes = -1;
    return fun;
}

void check_fun_arg_number(const NodeFun* fun, int arg_number) {
    if (fun->arg_number == arg_number) return;
    V_error(level_error, "called def_%darg_ but %s def_node_fun said %d args.", arg_number, fun->name, fun->arg_number);
    fatal_abort(1);
}

void bad_column(const NodeFun* fun, const char* column, const char* text) {
    V_error(level_error, "%s: the column %s does not allow '%s'.", fun->name, column, text);
    fatal_abort(1);
}

void def_args(NodeFun* fun, const char* arguments) {
    const char* word;
    int i = 0;
    for (int length; (length = next_word(&arguments, &word)) > 0; ++i) {
        if (length > 2 && word[length - 2] == ':') {
            length -= 2;
            const char letter = word[length + 1];
            fun->arg_restrictions[i] = letter == 'p' ? 16 : letter == 'c' ? 32 : letter == 'i' ? 64 : 0;
            if (!fun->arg_restrictions[i]) bad_column(fun, "arguments", word);
        }
        fun->arg_names[i] = keep_name(word, length);
    }
}

void def_arg_types(NodeFun* fun, const char* digits, int arg_number, int result, PixelFun function) {
    check_fun_arg_number(fun, arg_number);
    if (fun->arg_type_combo_number >= MAX_ARG_TYPE_COMBOS) {
        V_error(level_error, "%s: arg_type_combo_number > MAX_ARG_TYPE_COMBOS\n", fun->name);
        fatal_abort(1);  // the next entry would be written past the array
    }
    uint32_t combo = static_cast<uint32_t>(result - 1);
    for (int i = 0; i < arg_number; ++i) {
        if (digits[i] < '1' || digits[i] > '4') bad_column(fun, "signatures", digits);
        combo |= static_cast<uint32_t>(digits[i] - '1') << (2 + 2 * i);
    }
    fun->arg_type_combos[fun->arg_type_combo_number] = combo;
    fun->pixel_funs[fun->arg_type_combo_number++] = function;
}

void def_signatures(NodeFun* fun, const char* signatures, PixelFun function) {
    const char* word;
    if (std::strcmp(signatures, "any1") == 0) signatures = any1;
    if (std::strcmp(signatures, "any2") == 0) signatures = any2;
    for (int length; (length = next_word(&signatures, &word)) > 0;) {
        if (length < 2 || word[0] < '1' || word[0] > '4' || word[1] != '<') bad_column(fun, "signatures", word);
        def_arg_types(fun, word + 2, length - 2, word[0] - '0', function);
    }
}

void def_image_fun(NodeFun* fun, const char* image) {
    int image_arg, per_element, extra;
    if (std::sscanf(image, "%d/%d/%d", &image_arg, &per_element, &extra) != 3 || image_arg >= fun->arg_number) {
        bad_column(fun, "image", image);
    }
    fun->image_fun_p = 1;
    fun->image_arg = static_cast<int8_t>(image_arg);
    fun->images_per_element = static_cast<int8_t>(per_element);
    fun->extra_images = static_cast<int8_t>(extra);
    fun->min_images = 0;
}

void def_flags(NodeFun* fun, const char* flags) {
    const char* word;
    for (int length; (length = next_word(&flags, &word)) > 0;) {
        bool known = false;
        for (const FlagWord& flag : flag_words) {
            if (std::strlen(flag.word) != static_cast<size_t>(length) ||
                std::strncmp(flag.word, word, static_cast<size_t>(length)) != 0) {
                continue;
            }
            fun->fun_flags |= flag.fun_flags;
            fun->def_flags |= flag.def_flags;
            known = true;
        }
        if (!known) bad_column(fun, "flags", word);
    }
}

void def_run_columns(NodeFun* fun, const char* run) {
    const char* word;
    while (next_word(&run, &word)) {
        const int i = std::atoi(word + 1);
        int8_t* column = nullptr;
        const char* column_name = "";
        switch (word[0]) {
            case 'e':
                column = &fun->arg_enable_runtime, column_name = "arg_enable_runtime";
                break;
            case 'r':
                column = &fun->arg_scale_runtime, column_name = "arg_scale_runtime";
                break;
            case 's':
                column = &fun->arg_scale_passes, column_name = "arg_scale_passes";
                break;
            default:
                bad_column(fun, "run", word);
                return;
        }
        if (i >= fun->arg_number)
            std::printf("*** %s %s %d > arg_number %d \n", fun->name, column_name, i, fun->arg_number);
        *column = static_cast<int8_t>(i);
    }
}

void def_aux_counts(NodeFun* fun, const char* aux) {
    int a, b;
    if (!*aux) return;
    if (std::sscanf(aux, "%d,%d", &a, &b) != 2) bad_column(fun, "aux", aux);
    fun->aux_count_1 = static_cast<uint8_t>(a);
    fun->aux_count_2 = static_cast<uint8_t>(b);
}

void def_rules(NodeFun* fun, const FunRules& rules) {
    if (rules.else_arg >= fun->arg_number) bad_column(fun, "rules", "else_arg");
    if (rules.filter_arg >= fun->arg_number) bad_column(fun, "rules", "filter_arg");
    if (!rules.make_state != !rules.free_state) bad_column(fun, "rules", "make_state without free_state");
    fun->pass_arg_fun = rules.pass;
    fun->need_rect_fun = rules.need_rect;
    if (rules.need_rect) fun->fun_flags |= fun_has_need_rect;
    fun->most_images = rules.most_images;
    fun->fold_fun = rules.fold;
    fun->else_arg = rules.else_arg;
    fun->filter_arg = rules.filter_arg;
    fun->call_hint_fun = rules.call_hint;
    fun->make_state_fun = rules.make_state;
    fun->free_state_fun = rules.free_state;
}

[[noreturn]] void misuse() {
    fatal_abort(1);
    std::abort();  // nothing was armed
}

}  // namespace

void def_fun_row(const FunRow& row) {
    if (!row.function) {
        V_error(level_error, "%s: the row names no function.", row.name);
        misuse();
    }
    NodeFun* fun = def_node_fun(row.name, count_words(row.arguments), row.cost, row.category, row.weight);
    def_args(fun, row.arguments);
    def_signatures(fun, row.signatures, row.function);
    if (*row.image) def_image_fun(fun, row.image);
    def_flags(fun, row.flags);
    const bool image_fun = fun->image_fun_p != 0;
    fun->params_hold = image_fun != (std::strstr(row.flags, image_fun ? "vary" : "hold") != nullptr);
    def_run_columns(fun, row.run);
    def_aux_counts(fun, row.aux);
    def_rules(fun, row.rules);
    fun->meaning = row.meaning;
}

bool node_fun_tables_filled() { return filled; }

void clear_node_fun_tables() {
    std::memset(node_funs, 0, sizeof(node_funs));
    node_fun_number = 0;
    name_pool_used = 0;
    filled = false;
}

void fill_node_fun_tables_with(const FunRow* const* rows, int count) {
    clear_node_fun_tables();
    // Two rows of one number, or a number without a row, would shift what stands behind.
    const FunRow* by_number[MAX_FUN_NUMBER] = {};
    for (int i = 0; i < count; ++i) {
        const FunRow& row = *rows[i];
        if (row.number < 0 || row.number >= count || by_number[row.number]) {
            V_error(level_error, "%s: its number %d is taken or leaves a gap.", row.name, row.number);
            fatal_abort(1);
            return;
        }
        by_number[row.number] = &row;
    }
    for (int i = 0; i < count; ++i) def_fun_row(*by_number[i]);
    filled = true;
}

const NodeFun* find_node_fun(const char* name) {
    for (int i = 0; i < node_fun_number; ++i) {
        if (std::strcmp(node_funs[i].name, name) == 0) return &node_funs[i];
    }
    return nullptr;
}

int find_combo(const Node* node) {
    const NodeFun* fun = node->fun_info;
    for (int c = 0; c < fun->arg_type_combo_number; ++c) {
        int i = 0;
        while (i < fun->arg_number && combo_arg_elnum(fun->arg_type_combos[c], i) == node->args[i]->elnum) ++i;
        if (i == fun->arg_number) return c;
    }
    return -1;
}

uint32_t get_node_arg_i_restrictions(const Node* node, const NodeFun* fun, int i, int return_restrictions) {
    const char* fault = nullptr;
    if (!node) {
        fault = "get_node_arg_i_restrictions: node is NULL.";
    } else if (!fun) {
        fault = "get_node_arg_i_restrictions: fun is NULL.";
    } else if (fun != node->fun_info) {
        fault = "get_node_arg_i_restrictions: fun != node->fun_info.";
    } else if (return_restrictions <= 0) {
        fault = "get_node_arg_i_restrictions: return_type_restrictions is <= zero.";
    }
    if (fault) {
        V_error(level_error, "%s", fault);
        misuse();
    }
    const char* name = node->name ? node->name : "";
    uint32_t allowed = 0;
    for (int c = 0; c < fun->arg_type_combo_number; ++c) {
        const uint32_t combo = fun->arg_type_combos[c];
        if (!(return_restrictions & (1 << (combo_return_elnum(combo) - 1)))) continue;
        bool fits = true;
        for (int a = 0; a < i && fits; ++a) {
            const int elnum = node->args[a]->elnum;
            if (elnum <= 0) {
                V_error(level_error, "get_node_arg_i_restrictions: node %s arg %d elnum %d <= 0.", name, a, elnum);
                misuse();
            }
            fits = combo_arg_elnum(combo, a) == elnum;
        }
        if (fits) allowed |= 1u << (combo_arg_elnum(combo, i) - 1);
    }
    if (!allowed) {
        V_error(level_error, "get_node_arg_i_restrictions(%s arg %d): no combo match.", name, i);
        misuse();
    }
    return allowed | fun->arg_restrictions[i];
}

}  // namespace velloran
