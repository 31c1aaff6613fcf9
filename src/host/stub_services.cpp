#include "host/stub_services.h"

#include "functions/function_table.h"
#include "genotype/node_fun_table.h"
#include "genotype/node_table.h"
#include "genotype/reader.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/memory.h"
#include "texts/if_filter.h"
#include "texts/text_reader.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace velloran {
namespace {

// Where a definition begins: at its opening parenthesis.
const char* find_definition(const char* text, const char** name, int* name_length) {
    static const char* const keywords[] = {"def_effect", "define", "def_spark"};
    for (const char* p = text; (p = std::strchr(p, '(')); ++p) {
        const char* word = p + 1;
        while (std::isspace(static_cast<unsigned char>(*word))) ++word;
        for (const char* keyword : keywords) {
            const size_t length = std::strlen(keyword);
            if (std::strncmp(word, keyword, length) != 0 || !std::isspace(static_cast<unsigned char>(word[length])))
                continue;
            const char* start = word + length;
            while (std::isspace(static_cast<unsigned char>(*start))) ++start;
            *name = start;
            *name_length = static_cast<int>(std::strcspn(start, " \t\r\n\f\v()\"=[]"));
            return p;
        }
    }
    return nullptr;
}

// Words of the input list behind a definition's name.
int count_inputs(const char* behind_name) {
    const char* p = behind_name + std::strspn(behind_name, " \t\r\n\f\v");
    if (*p != '(') return 0;
    int n = 0;
    for (++p; *p && *p != ')';) {
        p += std::strspn(p, " \t\r\n\f\v");
        const size_t length = std::strcspn(p, " \t\r\n\f\v)");
        if (length > 0) ++n;
        p += length;
    }
    return n < MAX_INPUTS ? n : MAX_INPUTS;
}

bool same_effect_name(const char* wanted, const char* name, int length) {
    const auto folded = [](char c) { return c == '_' ? ' ' : c; };
    for (int i = 0; i < length; ++i)
        if (!wanted[i] || folded(wanted[i]) != folded(name[i])) return false;
    return wanted[length] == 0;
}

}  // namespace
}  // namespace velloran

using namespace velloran;

int V4_split_effects(const char* text, const char* name, const char* effect, GlobalsV4Record* record) {
    char* const filtered = safe_strdup(text ? text : "");
    remove_comments_and_false_if_statements(filtered, name);
    // All definitions share one block, each with its end mark; the first of them owns it.
    char* const block = static_cast<char*>(safe_malloc(2 * std::strlen(filtered) + 2));
    char* out = block;
    int n = 0;
    const char* found_name = nullptr;
    int length = 0;
    const char* definition = find_definition(filtered, &found_name, &length);
    while (definition) {
        const bool wanted = !effect || same_effect_name(effect, found_name, length);
        // Hosts that cannot be asked anything yet want the number of inputs before the effects are read.
        if (wanted && n == 0) record->n_inputs = static_cast<int16_t>(count_inputs(found_name + length));
        const char* const next = find_definition(definition + 1, &found_name, &length);
        if (wanted && n >= MAX_EFFECTS_PER_PLUGIN - 1) {
            V_error(level_error, "%s: too many effects in single plug-in\n", name ? name : "");
            break;
        }
        if (wanted) {
            const size_t bytes = next ? static_cast<size_t>(next - definition) : std::strlen(definition);
            std::memcpy(out, definition, bytes);
            out[bytes] = 0;
            record->effect_strings[n++] = out;
            out += bytes + 1;
        }
        definition = next;
    }
    safe_free(filtered);
    if (n > 0)
        record->owned_strings = static_cast<int16_t>(record->owned_strings | 1);
    else
        safe_free(block);
    record->n_effects = static_cast<int16_t>(n);
    return n;
}

namespace velloran {
namespace {

struct CheckReport {
    void (*report)(void* context, int level, int line, int column, const char* message);
    void* context;
};
CheckReport check_report;

// While a text is checked, every message goes out with the place that the reader has come to.
void report_with_place(int level, const char* text) {
    TextPlace place = {0, 0, 0};
    get_last_token_place(&place);
    check_report.report(check_report.context, level, place.line, place.column, text);
}

// Messages of the conditional filter begin with "ERROR" or "WARNING" and tell their line themselves.
void report_filter_message(const char* text) {
    const int level = std::strncmp(text, "WARNING", 7) == 0 ? level_warning : level_error;
    check_report.report(check_report.context, level, if_line_number, 1, text);
}

enum CheckOutcome : int { check_passed, check_failed, check_at_end };

// The next definition. A fatal abort in it ends only it.
CheckOutcome check_next_definition() {
    AbortTarget outer;
    arm_abort(outer);
    if (setjmp(_V_jmpbuf)) {
        disarm_abort(outer);
        return check_failed;
    }
    char name[token_size];
    CheckOutcome outcome = check_at_end;
    if (find_next_def(name) == 0) {
        Genotype* const genotype = read_genotype(name);
        outcome = genotype ? check_passed : check_failed;
        free_genotype(genotype);
    }
    disarm_abort(outer);
    return outcome;
}

int check_definitions(const char* text, const char* name) {
    fill_node_fun_tables();
    const size_t bytes = std::strlen(text) + 1;
    char* const filtered = static_cast<char*>(std::memcpy(frame_malloc(bytes), text, bytes));
    TextMap* const map = static_cast<TextMap*>(frame_malloc(sizeof(TextMap)));
    *map = TextMap();
    reset_text_reader();
    remove_comments_and_false_if_statements(filtered, name, map);

    int definitions = 0, failed = 0;
    open_reading_from_string(filtered, map);
    for (CheckOutcome outcome; (outcome = check_next_definition()) != check_at_end; ++definitions)
        failed += outcome == check_failed;
    if (definitions == 0) {
        check_report.report(check_report.context, level_error, 1, 1, "No definition found.");
        failed = 1;
    }
    reset_text_reader();
    free_text_map(*map);
    frame_free(map);
    frame_free(filtered);
    return failed;
}

int check_text(const char* text, const char* name) {
    AbortTarget outer;
    arm_abort(outer);
    if (setjmp(_V_jmpbuf)) {
        disarm_abort(outer);
        return 1;
    }
    const int failed = check_definitions(text, name);
    disarm_abort(outer);
    return failed;
}

}  // namespace
}  // namespace velloran

int V4_check_effects(const char* text, const char* name,
                     void (*report)(void* context, int level, int line, int column, const char* message),
                     void* context) {
    GlobalsV4Record* const caller = Globals_V4;
    const CheckReport outer_report = check_report;
    check_report = {report, context};
    const ErrorPrinter printer = set_error_printer(report_with_place);
    const LogPrinter log_printer = set_log_printer(report_filter_message);
    GlobalsV4Record* const record = V4_init_globals(nullptr);
    const int failed = check_text(text ? text : "", name);
    V4_free_globals(record);
    set_log_printer(log_printer);
    set_error_printer(printer);
    check_report = outer_report;
    Globals_V4 = caller;
    return failed;
}

void V4_describe_functions(void (*report)(void* context, const NodeFun* fun), void* context) {
    fill_node_fun_tables();
    for (int i = 0; i < node_fun_number; ++i) report(context, &node_funs[i]);
}
