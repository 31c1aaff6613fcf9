#include "engine/refusals.h"

#include "compile/compile.h"
#include "engine/evaluate.h"
#include "engine/passes.h"
#include "genotype/reading.h"
#include "records/node.h"
#include "records/run_state.h"
#include "support/abort.h"
#include "support/errors.h"

namespace velloran {
namespace {

bool report_missing_code(const Genotype* genotype) {
    bool any = false;
    for (int i = 0; i < genotype->node_number; ++i) {
        const Node& node = genotype->nodes[i];
        if (node.type != node_function || node.image_fun || node.pixel_fun) continue;
        point_reader_at_call(node);
        V_error(level_error, "%s: the function %s has no code yet.", genotype->name, node.fun_info->name);
        any = true;
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

}  // namespace

bool report_refusals(Genotype* genotype) {
    bool any = false;
    if (genotype->input_number > MAX_INPUTS) {
        V_error(level_error, "%s: it has %d inputs, a host gives at most %d.", genotype->name, genotype->input_number,
                MAX_INPUTS);
        any = true;
    }
    any |= report_missing_code(genotype);
    any |= report_too_many_images(genotype);
    return any || report_too_long_passes(genotype);
}

}  // namespace velloran
