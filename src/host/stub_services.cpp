#include "host/stub_services.h"

#include "functions/argument_help.h"
#include "functions/function_table.h"
#include "genotype/definition_text.h"
#include "genotype/node_fun_table.h"
#include "host/guard.h"
#include "support/errors.h"
#include "support/memory.h"
#include "support/notices.h"
#include "support/user_abort.h"
#include "texts/if_filter.h"

#include <cstring>

namespace velloran {
namespace {

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

int split_effects(const char* text, const char* name, const char* effect, GlobalsV4Record* record) {
    const size_t text_bytes = std::strlen(text) + 1;
    char* const filtered = static_cast<char*>(std::memcpy(frame_malloc(text_bytes), text, text_bytes));
    remove_comments_and_false_if_statements(filtered, name);
    // All definitions share one block, each with its end mark; the first of them owns it.
    char* const block = static_cast<char*>(safe_malloc(2 * std::strlen(filtered) + 2));
    push_abort_cleanup(safe_free, block);
    char* out = block;
    int n = 0;
    const char* found_name = nullptr;
    int length = 0;
    const char* definition = find_definition(filtered, &found_name, &length);
    while (definition) {
        const bool wanted = !effect || definition_named_p(effect, found_name, length);
        // Hosts that cannot be asked anything yet want the number of inputs before the effects are read.
        if (wanted && n == 0) record->n_inputs = static_cast<int16_t>(count_inputs(found_name + length));
        const char* const next = find_definition(definition + 1, &found_name, &length);
        if (wanted && n >= MAX_EFFECTS_PER_PLUGIN) {
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
    pop_abort_cleanup();
    frame_free(filtered);
    if (n > 0)
        record->owned_strings = static_cast<int16_t>(record->owned_strings | 1);
    else
        safe_free(block);
    record->n_effects = static_cast<int16_t>(n);
    return n;
}

}  // namespace
}  // namespace velloran

using namespace velloran;

int V4_split_effects(const char* text, const char* name, const char* effect, GlobalsV4Record* record) {
    if (!record) return 0;
    record->n_effects = 0;
    const int n =
        guarded_call(spark_info_ptr, -1, [&] { return split_effects(text ? text : "", name, effect, record); });
    if (n >= 0) return n;
    // What was cut off before the abort went with its block.
    for (const char*& effect_string : record->effect_strings) effect_string = nullptr;
    return 0;
}

void V4_describe_functions(void (*report)(void* context, const NodeFun* fun), void* context) {
    guarded_call(spark_info_ptr, 0, [] {
        fill_node_fun_tables();
        return 0;
    });
    for (int i = 0; i < node_fun_number; ++i) report(context, &node_funs[i]);
}

const ArgumentHelp* V4_argument_help(const NodeFun* fun, int argument) { return find_argument_help(fun, argument); }

void V4_abort_render() { abort_render(); }

void V4_set_notices(int on) { set_notices(on != 0); }
