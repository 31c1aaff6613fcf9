// The order of the analyses. What they compute stands in type_nodes.cpp (element counts, constants, branches, changes),
// count_refs.cpp (who reads what, and how often), constants.cpp (the update) and eval_order.cpp (the arrays).

#include "compile/compile.h"

#include "compile/compile_parts.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/memory.h"

#include <algorithm>

namespace velloran {

int cache_images_p = 1;
int cache_boundaries_p = 1;
int image_for_all_functions_p = 0;

namespace {

void store_elnums(Genotype* genotype) {
    for (int i = 0; i < MAX_INPUTS; ++i)
        genotype->input_elnums[i] = static_cast<uint8_t>(variable_elnum(first_input_var + i));
    genotype->dest_elnum = static_cast<uint8_t>(output_elnum());
}

bool elnums_stand_p(const Genotype* genotype) {
    for (int i = 0; i < MAX_INPUTS; ++i)
        if (genotype->input_elnums[i] != variable_elnum(first_input_var + i)) return false;
    return genotype->dest_elnum == output_elnum();
}

// The slots are others now: none of the planes is known any more.
void forget_planes(const Genotype* genotype) {
    if (Globals_V4->last_imaged_genotype == genotype) Globals_V4->last_imaged_genotype = nullptr;
}

// What resolve_arg_types writes, kept so that a failure leaves no trace.
struct NodeTyping {
    int8_t elnum;
    PixelFun eval_fun, pixel_fun, image_fun;
};

}  // namespace

int node_image_count(const NodeFun& fun, int elnum) {
    const int count = std::max({fun.extra_images + fun.images_per_element * elnum, elnum, int{fun.min_images}});
    return fun.most_images ? std::min<int>(count, fun.most_images) : count;
}

void count_node_images(Genotype* genotype) {
    for (int i = 0; i < genotype->node_number; ++i) {
        Node& node = genotype->nodes[i];
        node.image_count = 0;
        if (!varying_function_p(node) || !node.fun_info->image_fun_p) continue;
        const int count = node_image_count(*node.fun_info, node.elnum);
        if (count > MAX_NODE_IMAGE_COUNT) {
            V_error(level_error, "%s has image_count %d > MAX_NODE_IMAGE_COUNT %d", node.fun_info->name, count,
                    MAX_NODE_IMAGE_COUNT);
            fatal_abort(1);
            return;
        }
        node.image_count = static_cast<int8_t>(count);
    }
}

namespace {

int planes_of(const Genotype* genotype) { return genotype->temp_image_number + genotype->cache_image_number; }

void plan_images(Genotype* genotype, bool with_refs, bool boundary_images) {
    count_node_images(genotype);
    if (with_refs) count_refs(genotype, boundary_images);
    for (int i = 0; i < genotype->node_number; ++i) {
        Node& node = genotype->nodes[i];
        if (!varying_function_p(node) || node.image_count) continue;
        if (node.ref_count > 1 || (image_for_all_functions_p && i)) node.image_count = node.elnum;
    }
    assign_image_slots(genotype);
}

}  // namespace

void analyze_images(Genotype* genotype, int with_refs) {
    plan_images(genotype, with_refs != 0, cache_boundaries_p != 0);
    if (planes_of(genotype) > MAX_TEMP_PLANES && cache_boundaries_p) plan_images(genotype, true, false);
}

bool planes_fit_p(const Genotype* genotype) {
    const int planes = planes_of(genotype);
    if (planes <= MAX_TEMP_PLANES) return true;
    V_error(level_error, "%s needs %d images, expected <= %d.", genotype->name, planes, MAX_TEMP_PLANES);
    return false;
}

Node* compile_genotype_at_read(Genotype* genotype) {
    for (int i = 0; i < genotype->node_number; ++i) {
        Node& node = genotype->nodes[i];
        node.pass_arg = node.if_arg = node.if_bit = -1;
        node.flags = 0;
        if (node.type == node_var) node.elnum = static_cast<int8_t>(variable_elnum(node.var_index));
        if (node.type == node_output) node.elnum = static_cast<int8_t>(output_elnum());
    }
    set_effective_args(genotype);
    if (Node* failed = resolve_arg_types(genotype)) return failed;
    store_elnums(genotype);
    mark_constants_and_ifs(genotype);
    if (cache_images_p) find_changed_nodes(genotype, 1);
    analyze_images(genotype, 1);
    find_spatial_functions(genotype);
    if (spatial_reads_input_p(genotype)) genotype->effect_flags_3 |= effect_spatial_reads_input;
    return nullptr;
}

void update_genotype_elnums(Genotype* genotype) {
    if (elnums_stand_p(genotype)) return;
    NodeTyping* before = frame_array<NodeTyping>(genotype->node_number);
    for (int i = 0; i < genotype->node_number; ++i) {
        Node& node = genotype->nodes[i];
        before[i] = {node.elnum, node.eval_fun, node.pixel_fun, node.image_fun};
        if (node.type == node_var) node.elnum = static_cast<int8_t>(variable_elnum(node.var_index));
        if (node.type == node_output) node.elnum = static_cast<int8_t>(output_elnum());
    }
    const Node* failed = resolve_arg_types(genotype);
    if (failed) {
        V_error(level_error, "%s.%s has an invalid combo of arg types.\n", genotype->name, failed->fun_info->name);
    } else {
        analyze_images(genotype, 0);
    }
    const bool stands = !failed && planes_fit_p(genotype);
    if (stands) {
        store_elnums(genotype);
    } else {
        for (int i = 0; i < genotype->node_number; ++i) {
            Node& node = genotype->nodes[i];
            node.elnum = before[i].elnum;
            node.eval_fun = before[i].eval_fun;
            node.pixel_fun = before[i].pixel_fun;
            node.image_fun = before[i].image_fun;
        }
        if (!failed) analyze_images(genotype, 1);
    }
    if (!failed) {
        forget_planes(genotype);
        for (int i = 0; i < genotype->node_number; ++i)
            genotype->nodes[i].flags &= static_cast<uint8_t>(~node_images_valid);
        forget_eval_image_nodes(genotype);
    }
    frame_free(before);
}

void recompile_genotype(Genotype* genotype, int full) {
    copy_params_to_nodes(genotype);
    set_effective_args(genotype);
    update_genotype_elnums(genotype);
    if (full) {
        analyze_images(genotype, 1);
        forget_planes(genotype);
        forget_eval_image_nodes(genotype);
    }
    update_parameters(genotype, 0);
}

void update_parameters(Genotype* genotype, int copy_params) {
    if (copy_params) copy_params_to_nodes(genotype);
    update_genotype_constants(genotype);
    if (cache_images_p) find_changed_nodes(genotype, 0);
}

}  // namespace velloran
