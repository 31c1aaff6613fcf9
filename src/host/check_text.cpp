// Checking a text: every definition is read, compiled and selected as a plug-in would do it, and told what its frames
// would be refused for. Messages are kept until the definition is through, since what they weigh depends on how it
// ends.
#include "compile/compile.h"
#include "compile/load.h"
#include "engine/refusals.h"
#include "functions/function_table.h"
#include "genotype/definition_text.h"
#include "genotype/effect_table.h"
#include "genotype/node_fun_table.h"
#include "genotype/node_table.h"
#include "genotype/reader.h"
#include "genotype/reading.h"
#include "host/stub_services.h"
#include "params/layout.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/memory.h"
#include "texts/hints.h"
#include "texts/if_filter.h"
#include "texts/text_reader.h"
#include "widgets/widgets.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace velloran {
namespace {

// ---- Messages

using ReportFn = void (*)(void* context, int level, int line, int column, const char* message);

struct Told {
    Told* next;
    int level, line, column;
    char text[];
};

struct {
    ReportFn report;
    void* context;
    Told* first;
    Told** end;
} telling;

// A text says of itself that it warns, or quotes a word that does.
bool warning_p(const char* text) { return std::strstr(text, "Warning") || std::strstr(text, "warning:"); }

void keep_message(int level, const char* text) {
    TextPlace place = {0, 0, 0};
    get_last_token_place(&place);
    const size_t bytes = std::strlen(text) + 1;
    auto* const told = static_cast<Told*>(std::malloc(sizeof(Told) + bytes));
    if (!told) {
        telling.report(telling.context, level, place.line, place.column, text);
        return;
    }
    *told = {nullptr, level, place.line, place.column};
    std::memcpy(told->text, text, bytes);
    *telling.end = told;
    telling.end = &told->next;
}

// Whether a message of the definition in hand begins so.
bool told_p(const char* start) {
    for (const Told* told = telling.first; told; told = told->next)
        if (!std::strncmp(told->text, start, std::strlen(start))) return true;
    return false;
}

// Hands out what was kept: an error is what makes a definition fail. Answers whether there was any.
bool tell_all(bool failed) {
    bool any_error = false, any_plain_error = false;
    for (const Told* told = telling.first; told; told = told->next) {
        any_error |= told->level >= level_error;
        any_plain_error |= told->level >= level_error && !warning_p(told->text);
    }
    for (Told* told = telling.first; told;) {
        const bool weighs_less = told->level >= level_error && (!failed || (any_plain_error && warning_p(told->text)));
        telling.report(telling.context, weighs_less ? +level_warning : told->level, told->line, told->column,
                       told->text);
        Told* const next = told->next;
        std::free(told);
        told = next;
    }
    telling.first = nullptr;
    telling.end = &telling.first;
    return any_error;
}

// Messages of the conditional filter begin with "ERROR" or "WARNING" and tell their line themselves.
void report_filter_message(const char* text) {
    const int level = std::strncmp(text, "WARNING", 7) == 0 ? level_warning : level_error;
    telling.report(telling.context, level, if_line_number, 1, text);
}

// ---- One definition

// What a check works on; it outlives the calls that may abort.
struct Check {
    char* text;  // filtered, writable
    EffectTable* table;
    int index;           // of the definition in hand
    Genotype* genotype;  // of that
    const char* wanted;  // name of the only one to check, empty for the first, or null
    bool several;        // definitions are checked that make one plug-in
};
Check check;

bool enter_into_table(const Genotype* genotype) {
    const char* names[MAX_INPUTS];
    int n = 0;
    for (int i = 0; i < genotype->input_number && i < MAX_INPUTS; ++i)
        if (genotype->input_names[i][0]) names[n++] = genotype->input_names[i];
    return add_to_effect_table(check.table, genotype->name, names, n, check.index) != 1;
}

bool definition_good(long name_offset) {
    char name[token_size];
    if (find_next_def(name) != 0) {
        V_error(level_error, "The name of the definition is missing.");
        return false;
    }
    Genotype* const genotype = check.genotype = read_genotype(name);
    if (!genotype) {
        if (!told_p("Eof reading")) return false;
        point_reader_at_byte(name_offset);
        hint(level_note, "this definition is not closed: a ')' is missing.");
        return false;
    }
    Globals_V4->genotypes[0] = Globals_V4->effect_genotype = genotype;
    Globals_V4->n_effects = static_cast<int16_t>(check.several ? 2 : 1);  // of several, one is chosen on the panel
    point_reader_at_byte(name_offset);
    bool good = enter_into_table(genotype);
    collect_widgets(genotype);
    make_effect_handles(genotype);
    point_reader_at_byte(name_offset);
    std::memset(Globals_V4->button_table, 0, sizeof(Globals_V4->button_table));
    layout_buttons(genotype);
    recompile_genotype(genotype, 1);
    good &= !report_refusals(genotype);
    return good;
}

// Whether a name and a list come next, as in a definition: other text may well hold "(defined ...". The reader stays.
bool definition_follows_p() {
    parser_state here;
    save_parser_state(&here);
    restore_parser_state(&here);
    char token[token_size];
    const bool follows =
        read_token(token) == 0 && !delimiter_token(token) && read_token(token) == 0 && token_is(token, '(');
    restore_parser_state(&here);
    return follows;
}

// A ')' too many, or what was meant to begin a definition, is passed over in silence when a text is read. The first of
// it is told. False if a definition is lost by it.
bool look_between_definitions() {
    char token[token_size];
    int depth = 0;
    for (bool opened = false;; opened = token_is(token, '(')) {
        if (read_token(token) == token_end) return true;
        if (opened) {
            NearestWord word = {token};
            for (const char* keyword : definition_keywords) consider_word(word, keyword);
            if (word.nearest && word.distance > 0 && definition_follows_p()) {
                V_error(level_error, "'%s' begins no definition.", token);
                hint_nearest(word);
                return false;
            }
        }
        depth += token_is(token, '(') - token_is(token, ')');
        if (depth >= 0) continue;
        hint(level_warning, "a ')' too many: nothing is open here.");
        return true;
    }
}

// Checks the definition between two bytes of the text, if it has a name, and what lies behind it where all are checked.
// A fatal abort in it ends only it.
bool definition_passes(char* first, char* end, long name_offset, const TextMap* map) {
    const char kept = *end;
    *end = 0;
    reset_text_reader();
    open_reading_from_string(check.text, map);
    set_reading_from_position(first - check.text);
    AbortTarget outer;
    arm_abort(outer);
    bool passed = false;
    if (setjmp(_V_jmpbuf) == 0) {
        passed = name_offset < 0 || definition_good(name_offset);
        if (passed && !check.wanted) passed = look_between_definitions();
    }
    disarm_abort(outer);
    if (check.genotype) free_effect_widgets(check.genotype);
    free_genotype(check.genotype);
    check.genotype = nullptr;
    Globals_V4->genotypes[0] = Globals_V4->effect_genotype = nullptr;
    *end = kept;
    if (!tell_all(!passed) && !passed)
        telling.report(telling.context, level_error, 0, 0, "this definition cannot be used.");
    return passed;
}

// ---- The text

int check_definitions(const char* name, const TextMap* map) {
    int failed = 0;
    const char* found_name = nullptr;
    int length = 0;
    char* definition = const_cast<char*>(find_definition(check.text, &found_name, &length));
    if (!check.wanted) {
        char* const end = definition ? definition : check.text + std::strlen(check.text);
        failed += !definition_passes(check.text, end, -1, map);
    }
    const char* name_behind = nullptr;
    int length_behind = 0;
    check.several = !check.wanted && definition && find_definition(definition + 1, &name_behind, &length_behind);
    for (check.index = 0; definition;) {
        const char* const this_name = found_name;
        const bool wanted = !check.wanted ||
                            (check.wanted[0] ? definition_named_p(check.wanted, found_name, length) : check.index == 0);
        char* const next = const_cast<char*>(find_definition(definition + 1, &found_name, &length));
        char* const end = next ? next : definition + std::strlen(definition);
        if (wanted && check.index == MAX_EFFECTS_PER_PLUGIN) {
            TextPlace place = map_text_place(*map, definition - check.text);
            char text[200];
            std::snprintf(text, sizeof(text), "%.100s: too many effects in single plug-in", name);
            telling.report(telling.context, level_error, place.line, place.column, text);
            return failed + 1;
        }
        if (wanted) {
            failed += !definition_passes(definition, end, this_name - check.text, map);
            ++check.index;
        }
        definition = next;
    }
    if (check.index > 0 || failed > 0) return failed;
    telling.report(telling.context, level_error, 1, 1, "No definition found.");
    return 1;
}

int check_text(const char* text, const char* name) {
    AbortTarget outer;
    arm_abort(outer);
    if (setjmp(_V_jmpbuf)) {
        disarm_abort(outer);
        return 1;
    }
    fill_node_fun_tables();
    const size_t bytes = std::strlen(text) + 1;
    check.text = static_cast<char*>(std::memcpy(frame_malloc(bytes), text, bytes));
    TextMap* const map = static_cast<TextMap*>(frame_malloc(sizeof(TextMap)));
    *map = TextMap();
    reset_text_reader();
    remove_comments_and_false_if_statements(check.text, name, map);
    check.table = new_effect_table(name);
    const int failed = check_definitions(name, map);
    reset_text_reader();
    free_text_map(*map);
    frame_free(map);
    frame_free(check.text);
    disarm_abort(outer);
    return failed;
}

}  // namespace
}  // namespace velloran

using namespace velloran;

int V4_check_effects(const char* text, const char* name, const char* effect,
                     void (*report)(void* context, int level, int line, int column, const char* message),
                     void* context) {
    GlobalsV4Record* const caller = Globals_V4;
    const auto outer_telling = telling;
    const Check outer_check = check;
    telling = {report, context, nullptr, nullptr};
    telling.end = &telling.first;
    check = {};
    check.wanted = effect;
    const ErrorPrinter printer = set_error_printer(keep_message);
    const LogPrinter log_printer = set_log_printer(report_filter_message);
    const HintPrinter outer_hints = hint_printer;
    hint_printer = keep_message;
    GlobalsV4Record* const record = V4_init_globals(nullptr);
    const int failed = record ? check_text(text ? text : "", name ? name : "") : 1;
    tell_all(true);
    free_effect_table(check.table);
    V4_free_globals(record);
    hint_printer = outer_hints;
    set_log_printer(log_printer);
    set_error_printer(printer);
    telling = outer_telling;
    check = outer_check;
    Globals_V4 = caller;
    return failed;
}
