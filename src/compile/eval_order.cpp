// The arrays that a frame walks: image nodes in their order, and what of them this frame needs.

#include "compile/compile.h"
#include "compile/compile_parts.h"
#include "genotype/node_table.h"
#include "support/abort.h"
#include "support/errors.h"

namespace velloran {

Node** eval_image_nodes = nullptr;
int eval_image_node_count = 0;
const Genotype* eval_image_nodes_of = nullptr;

namespace {

Node* image_node_array[MAX_EVAL_IMAGE_NODES];

void collect_image_nodes(Node* node) {
    if (node->mark || constant_at_compile_p(*node)) return;
    if (node->type != node_function && !node->image_count) return;
    node->mark = 1;
    if (node->type == node_function) {
        // The image argument comes last: it is made just before its user, which may work in its planes.
        const int image_arg = node->fun_info->image_arg;
        for (int a = 0; a < node->eval_arg_number; ++a)
            if (a != image_arg) collect_image_nodes(node->args[a]);
        if (image_arg >= 0 && image_arg < node->eval_arg_number) collect_image_nodes(node->args[image_arg]);
    }
    if (!node->image_count) return;
    if (eval_image_node_count >= MAX_EVAL_IMAGE_NODES) {
        V_error(level_error, "eval_image_nodes_array overflow");
        eval_image_nodes = nullptr;
        fatal_abort(1);
        return;
    }
    image_node_array[eval_image_node_count++] = node;
}

// A cached node whose value did not change: its images stand.
bool images_stand_p(const Node* node) {
    return cache_images_p && node->in_cache_images && !(node->flags & node_changed) &&
           (node->flags & node_images_valid);
}

void mark_needed(Node* node) {
    if (node->flags & node_needed || is_constant(node)) return;
    if (node->type != node_function && !node->image_count) return;
    if (node->image_count && images_stand_p(node)) return;
    node->flags |= node_needed;
    if (node->type != node_function) return;
    for (int a = 0; a < node->eval_arg_number; ++a) mark_needed(node->args[a]);
}

bool slots_overlap(const Node& worker, const Node& holder) {
    const int end = worker.image_index + worker.image_count;
    return holder.image_index < end && worker.image_index < holder.image_index + holder.elnum;
}

// Work planes of a cached node lie where the next one's result is. A node that is made again thus spoils neighbours
// that stand; they are made again too.
bool mark_spoilt_neighbours(Genotype* genotype) {
    bool any = false;
    for (int i = 0; i < genotype->node_number; ++i) {
        const Node& worker = genotype->nodes[i];
        if (!(worker.flags & node_needed) || !worker.in_cache_images || worker.image_count <= worker.elnum) continue;
        for (int k = 0; k < genotype->node_number; ++k) {
            Node& holder = genotype->nodes[k];
            if (k == i || !holder.in_cache_images || !holder.image_count || !(holder.flags & node_images_valid))
                continue;
            if ((holder.flags & node_needed) || !slots_overlap(worker, holder)) continue;
            holder.flags &= static_cast<uint8_t>(~node_images_valid);
            any = true;
        }
    }
    return any;
}

}  // namespace

void forget_eval_image_nodes(const Genotype* genotype) {
    if (eval_image_nodes_of == genotype) free_eval_arrays();
}

void free_eval_arrays() {
    eval_image_nodes = nullptr;
    eval_image_node_count = 0;
    eval_image_nodes_of = nullptr;
}

void build_eval_image_nodes(Genotype* genotype) {
    free_eval_arrays();
    // In the arguments as written: what is passed through in this frame may be evaluated in the next.
    for (int i = 0; i < genotype->node_number; ++i) {
        Node& node = genotype->nodes[i];
        node.mark = 0;
        if (node.type != node_function) continue;
        for (int a = 0; a < node.arg_number; ++a) node.args[a] = written_arg(genotype, &node, a);
    }
    on_free_genotype([](Genotype* freed) { forget_eval_image_nodes(freed); });
    collect_image_nodes(&genotype->nodes[0]);
    set_effective_args(genotype);
    eval_image_nodes = image_node_array;
    eval_image_nodes_of = genotype;
    if (Globals_V4->effect_genotype == genotype) Globals_V4->render_flags |= render_eval_arrays_ready;
}

void print_eval_image_nodes() {
    log_print("\neval_image_nodes:\n");
    for (int i = 0; i < eval_image_node_count; ++i) {
        const Node* node = eval_image_nodes[i];
        log_print("  %d %s  image_index: %d  image_count: %d", i,
                  node->type == node_function ? node->fun_info->name : "", node->image_index, node->image_count);
        if (node->name) log_print("  '%s'", node->name);
        log_print("\n");
    }
}

void mark_needed_nodes(Genotype* genotype) {
    do {
        for (int i = 0; i < genotype->node_number; ++i) genotype->nodes[i].flags &= static_cast<uint8_t>(~node_needed);
        mark_needed(maybe_pass_through_args(&genotype->nodes[0]));
    } while (mark_spoilt_neighbours(genotype));
}

}  // namespace velloran
