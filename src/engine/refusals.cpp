#include "engine/refusals.h"

#include "compile/compile.h"
#include "compile/compile_parts.h"
#include "engine/clip_args.h"
#include "engine/evaluate.h"
#include "engine/passes.h"
#include "frame/pixel_formats.h"
#include "genotype/reading.h"
#include "records/node.h"
#include "records/run_state.h"
#include "support/abort.h"
#include "support/errors.h"
#include "texts/hints.h"

namespace velloran {
namespace {

bool report_arguments_that_are_no_clips(const Genotype* genotype) {
    bool any = false;
    for (int i = 0; i < genotype->node_number; ++i) {
        const Node& node = genotype->nodes[i];
        if (node.type != node_function || is_constant(&node)) continue;
        if (!(node.fun_info->fun_flags & fun_reads_other_frames)) continue;
        point_reader_at_call(node);
        any |= !clip_args_p(&node);
    }
    return any;
}

bool report_too_many_images(const Genotype* genotype) {
    int images = 0;
    for (int i = 0; i < genotype->node_number; ++i) {
        const Node& node = genotype->nodes[i];
        if (!node.image_count || (node.flags & node_constant_at_compile)) continue;
        if (++images <= MAX_EVAL_IMAGE_NODES) continue;
        point_reader_at_call(node);
        V_error(level_error, "%s: more than %d values that are kept as images.", genotype->name, MAX_EVAL_IMAGE_NODES);
        return true;
    }
    return false;
}

// What the passes of a node walk: itself, or of an image function its arguments.
bool pass_fits(Node* node, int mode) {
    struct Pass {
        Node* node;
        int mode;
    } pass = {maybe_pass_through_args(node), mode};
    AbortTarget outer;
    arm_abort(outer);
    if (setjmp(_V_jmpbuf)) {
        disarm_abort(outer);
        return false;
    }
    build_eval_nodes(pass.node, pass.mode);
    disarm_abort(outer);
    return true;
}

bool report_too_long_passes(Genotype* genotype) {
    const auto report = [genotype]() {
        V_error(level_error,
                "%s: more than %d functions in one pass; (copy ...) around a part makes it a pass of its own.",
                genotype->name, MAX_EVAL_NODES);
        return true;
    };
    for (int i = 0; i < genotype->node_number; ++i) {
        Node& node = genotype->nodes[i];
        if (node.type != node_function || !node.image_count || (node.flags & node_constant_at_compile)) continue;
        point_reader_at_call(node);
        if (!node.image_fun && !pass_fits(&node, eval_as_target)) return report();
        for (int a = 0; node.image_fun && a < node.eval_arg_number; ++a)
            if (!pass_fits(node.args[a], eval_as_target)) return report();
    }
    point_reader_at_call(genotype->nodes[0]);
    return !pass_fits(&genotype->nodes[0], eval_as_leaf) && report();
}

// ---- With other values of the params

// Functions that a pass of the node walks when no value passes an argument through but the branches, which take the
// sides that the bits say. root: the node's own images are being made.
int count_pass(Genotype* genotype, Node* node, bool root, uint32_t sides) {
    if (node->mark || (node->flags & node_constant_at_compile)) return 0;
    if (node->type != node_function && !node->image_count) return 0;
    node->mark = 1;
    if (node->type != node_function || (node->image_count && !(root && !node->image_fun))) return 1;
    const auto arg = [&](int a) { return &genotype->nodes[node->arg_indices[a]]; };
    if (node->if_arg >= 0)
        return count_pass(genotype, arg(sides >> node->if_bit & 1 ? node->if_arg : node->if_arg - 1), false, sides);
    int count = 1;
    for (int a = 0; a < node->eval_arg_number; ++a) count += count_pass(genotype, arg(a), false, sides);
    return count;
}

bool pass_may_be_too_long(Genotype* genotype, Node* node, bool root) {
    // All branches one way, all the other, and a few at random: what they share does not matter then.
    uint32_t sides = 0;
    for (int i = 0; i < 32; ++i) {
        clear_marks(genotype);
        if (count_pass(genotype, node, root, sides) > MAX_EVAL_NODES) return true;
        sides = i == 0 ? ~0u : sides * 1664525u + 1013904223u;
        if (i > 0) sides ^= sides >> 16;
    }
    return false;
}

void warn_of_long_passes(Genotype* genotype) {
    const auto warn = [genotype](const Node& node) {
        point_reader_at_call(node);
        hint(level_warning,
             "%s: for some values of its params more than %d functions stand in one pass, which is refused.",
             genotype->name, MAX_EVAL_NODES);
    };
    for (int i = 0; i < genotype->node_number; ++i) {
        Node& node = genotype->nodes[i];
        if (node.type != node_function || !node.image_count || (node.flags & node_constant_at_compile)) continue;
        if (!node.image_fun && pass_may_be_too_long(genotype, &node, true)) return warn(node);
        for (int a = 0; node.image_fun && a < node.eval_arg_number; ++a)
            if (pass_may_be_too_long(genotype, &genotype->nodes[node.arg_indices[a]], true)) return warn(node);
    }
    if (pass_may_be_too_long(genotype, &genotype->nodes[0], false)) warn(genotype->nodes[0]);
}

void warn_of_calls(const Genotype* genotype) {
    for (int i = 0; i < genotype->node_number; ++i) {
        const Node& node = genotype->nodes[i];
        if (node.type != node_function || !node.fun_info->call_hint_fun) continue;
        const char* const words = node.fun_info->call_hint_fun(&node);
        if (!words) continue;
        point_reader_at_call(node);
        hint(level_warning, "%s: %s", genotype->name, words);
    }
}

// The host's frames hold no alpha; what goes out with one says where it is to go.
bool report_lost_alpha(const Genotype* genotype) {
    const int elements = genotype->nodes[0].elnum;
    if (elements != 2 || get_dest_alpha_mode(genotype->rgba_mode, elements) == 1) return false;
    point_reader_at_call(genotype->nodes[0]);
    V_error(level_error, "%s: dest has 2 elements, and the second, an alpha, does not go out.", genotype->name);
    return true;
}

}  // namespace

bool report_refusals(Genotype* genotype) {
    bool any = false;
    if (genotype->input_number > MAX_INPUTS) {
        V_error(level_error, "%s: it has %d inputs, a host gives at most %d.", genotype->name, genotype->input_number,
                MAX_INPUTS);
        any = true;
    }
    any |= report_arguments_that_are_no_clips(genotype);
    any |= report_lost_alpha(genotype);
    any |= report_too_many_images(genotype);
    if (any || report_too_long_passes(genotype)) return true;
    if (hint_printer) {
        warn_of_calls(genotype);
        warn_of_long_passes(genotype);
    }
    return false;
}

}  // namespace velloran
