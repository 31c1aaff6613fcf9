// A frame: the update, the image nodes in their order, the last pass.

#include "engine/evaluate.h"

#include "compile/compile.h"
#include "compile/compile_parts.h"
#include "engine/images.h"
#include "engine/passes.h"
#include "engine/watch.h"
#include "frame/lut_files.h"
#include "frame/pixel_formats.h"
#include "records/rinfo.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"

#include <algorithm>
#include <cstdio>

namespace velloran {

void (*eval_hook)(EvalEvent event, const Node* node) = nullptr;

namespace {

// The first input that the frame needs and that has no frame, or null.
const Node* find_valueless(Node* node) {
    node = maybe_pass_through_args(node);
    if (is_input(node)) return input_frame(node->var_index - first_input_var) ? nullptr : node;
    if (node->type != node_function || is_constant(node) || node->mark) return nullptr;
    node->mark = 1;
    for (int a = 0; a < node->eval_arg_number; ++a)
        if (const Node* valueless = find_valueless(node->args[a])) return valueless;
    return nullptr;
}

void tell_valueless(const Genotype& genotype, const Node& node) {
    V_error(level_error, "%s: there is no frame for the input %s.", genotype.name,
            genotype.input_names[node.var_index - first_input_var]);
}

// What kept images depend on beside the values of their nodes, as a number: the area and grid that planes stand for,
// the frame's shape, the field mode, and the length and rate that queries answer. FNV-1a, 64 bits.
uint64_t image_geometry() {
    const int32_t parts[] = {the_frame->temp_raster_info.x,
                             the_frame->temp_raster_info.y,
                             the_frame->temp_raster_info.w,
                             the_frame->temp_raster_info.h,
                             the_frame->temp_raster_info.width,
                             the_frame->temp_raster_info.height,
                             the_frame->temp_raster_info.render_step,
                             the_frame->temp_raster_info.render_phase,
                             the_frame->temp_raster_info.wrap.wrap_x,
                             the_frame->temp_raster_info.wrap.wrap_y,
                             the_frame->temp_raster_info.wrap.wrap_w,
                             the_frame->temp_raster_info.wrap.wrap_h,
                             the_frame->temp_raster_info.wrap.wrap_clipped,
                             the_frame->render_info.full_ren.w,
                             the_frame->render_info.full_ren.h,
                             the_frame->render_field != 0,
                             float_to_fix(the_frame->pixel_aspect_ratio),
                             float_to_fix(the_frame->time_globals.total_frames),
                             float_to_fix(frame_rate)};
    uint64_t hash = 14695981039346656037u;
    for (const int32_t part : parts) hash = (hash ^ static_cast<uint32_t>(part)) * 1099511628211u;
    return hash;
}

bool rasters_set_p() {
    const Frame& frame = *the_frame;
    return frame.dest_raster_info.render_step && frame.temp_raster_info.render_step && frame.render_info.render_step;
}

void change_prev_dest(uint8_t from, uint8_t to) {
    PrevDest* const prev = Globals_V4->prev_dest;
    if (prev && prev->valid == from) prev->valid = to;
}

void run_image_node(Node* node) {
    the_frame->eval_to_dest_line = 0;
    FrameWatch* const watch = Globals_V4->watch;
    if (node->fun_info->image_fun_p) {
        tell(event_image_function, node);
        if (watch) begin_span(watch, node);
        node->image_fun(node);
        if (watch) end_image_function(watch, node);
    } else {
        eval_node_tree_into_images(node, node->images, node->image_index, 0);
    }
    if (render_aborted_p()) return;
    node->flags |= node_images_valid;
    if (watch) watch_planes(watch, node, node->images, node->elnum);
}

void run_image_nodes(Genotype* genotype) {
    const uint64_t geometry = image_geometry();
    const bool same = geometry == Globals_V4->imaged_geometry;
    if (!same && Globals_V4->prev_dest) Globals_V4->prev_dest->valid = 0;
    // Some filters make the rows of the other field from their neighbours. The output goes on from field to field.
    const bool same_field = the_frame->render_field == Globals_V4->imaged_field;
    set_node_image_ptrs(genotype, images_moved, !same || !same_field);
    Globals_V4->imaged_geometry = geometry;
    Globals_V4->imaged_field = the_frame->render_field;
    // Should the frame end early, the next one finds no genotype here and trusts no kept image: what was made so far is
    // of values that were never noted as rendered.
    Globals_V4->last_imaged_genotype = nullptr;
    clear_marks(genotype);
    mark_needed_nodes(genotype);
    // A copy: a node may have another plug-in's frame rendered in between, which takes the array.
    Node* nodes[MAX_EVAL_IMAGE_NODES];
    const int count = eval_image_node_count;
    std::copy_n(eval_image_nodes, count, nodes);
    for (int i = 0; i < count; ++i) {
        if (!(nodes[i]->flags & node_needed)) continue;
        if (render_aborted_p()) return;
        run_image_node(nodes[i]);
    }
}

}  // namespace

int perform_effect() {
    Genotype* genotype = Globals_V4->effect_genotype;
    if (!genotype) {
        V_error(level_error, "perform_effect: Globals->effect_genotype is NULL.");
        return -1;
    }
    if (!eval_image_nodes) {
        V_error(level_error, "perform_effect: eval_image_nodes has not been set.");
        return -1;
    }
    if (!rasters_set_p()) {
        V_error(level_error,
                "perform_effect: doing nothing, dest_raster_info or render_info or temp_raster_info is null.");
        return -1;
    }
    // The array is one for all plug-ins; another one's effect may have been selected since.
    if (eval_image_nodes_of != genotype) build_eval_image_nodes(genotype);
    clear_marks(genotype);
    if (const Node* valueless = find_valueless(&genotype->nodes[0])) {
        tell_valueless(*genotype, *valueless);
        return -1;
    }
    the_frame->eval_to_dest = 0;
    the_frame->mipmap_holds = false;
    run_image_nodes(genotype);
    return 0;
}

void render_dest(void* dest, int rebuild) {
    the_frame->eval_to_dest = the_frame->eval_to_dest_line = 1;
    the_frame->eval_dest_frame = dest;
    eval_node_tree_pixel_loop(&Globals_V4->effect_genotype->nodes[0], nullptr, eval_as_leaf, rebuild);
    the_frame->eval_to_dest = the_frame->eval_to_dest_line = 0;
}

int evaluate_frame(void* dest, int copy_params) {
    Genotype* genotype = Globals_V4->effect_genotype;
    if (genotype && rasters_set_p()) {
        set_short_image_size();
        if (copy_params) copy_params_to_nodes(genotype);
        update_genotype_elnums(genotype);
        update_parameters(genotype, 0);
        if (!(Globals_V4->render_flags & render_eval_arrays_ready) || eval_image_nodes_of != genotype)
            build_eval_image_nodes(genotype);
    }
    Globals_V4->render_flags |= render_evaluating;
    FrameWatch* const watch = Globals_V4->watch;
    if (watch) start_watch(watch, genotype);
    the_frame->failed = false;
    change_prev_dest(prev_dest_in_work, 0);  // what the last frame did not finish is the output of none
    int result = perform_effect();
    if (result == 0 && !the_frame->failed && !render_aborted_p()) {
        change_prev_dest(prev_dest_whole, prev_dest_in_work);
        render_dest(dest, 1);
    }
    if (the_frame->failed) result = -1;
    if (result == 0 && !render_aborted_p()) {
        change_prev_dest(prev_dest_in_work, prev_dest_whole);
        Globals_V4->last_imaged_genotype = genotype;
    }
    if (watch) end_watch(watch, result == 0 && !render_aborted_p());
    Globals_V4->render_flags &= static_cast<uint8_t>(~render_evaluating);
    return result;
}

void eval_node_tree_into_images(Node* node, fix_plane* planes, int first_slot, int allow_copy) {
    node = maybe_pass_through_args(node);
    const int n = std::min<int>(node->elnum, 4);
    const bool own = std::equal(planes, planes + n, node->images);
    const bool stand = node->image_count && (node->flags & node_images_valid);
    if (stand && (own ? allow_copy : 1)) {
        // Planes that change places within a pool may overlap those still to be read; the order keeps them apart.
        const size_t bytes = the_frame->short_image_size;
        const bool upwards = node->image_index >= first_slot;
        for (int k = 0; k < n; ++k) {
            const int e = upwards ? k : n - 1 - k;
            if (planes[e] != node->images[e]) mp_memcpy(planes[e], node->images[e], bytes);
        }
        return;
    }
    // On fields an input's missing rows are made from their neighbours; only the pass does that.
    if (is_input(node) && !the_frame->render_field) {
        const int input = node->var_index - first_input_var;
        const void* frame = input_frame(input);
        if (frame && n == 3) {
            tell(event_source_copy, node);
            FrameWatch* const watch = Globals_V4->watch;
            if (watch) begin_span(watch, node);
            source_converter(the_frame->source_raster_infos[input], frame, the_frame->temp_raster_info, planes, n,
                             use_input_lut != 0);
            if (watch) end_span(watch, way_read);
            if (watch) watch_planes(watch, node, planes, n);
            return;
        }
    }
    set_eval_target_planes(planes, n);
    eval_node_tree_pixel_loop(node, image_line_writer, eval_as_target, 1);
}

void eval_node_trees_pixel_loop(Node* const* values, int n, EvalLineFun line_fun) {
    static const NodeFun together = {};
    Node root = {};
    root.type = node_function;
    root.elnum = 1;
    root.pass_arg = -1;
    root.fun_info = &together;
    root.eval_fun = [](Node*) {};
    root.arg_number = root.eval_arg_number = static_cast<int8_t>(n);
    for (int i = 0; i < n; ++i) {
        root.args[i] = maybe_pass_through_args(values[i]);
        root.arg_lines[i] = root.args[i]->lines;
        root.arg_vals[i] = root.args[i]->vals;
    }
    eval_node_tree_pixel_loop(&root, line_fun, eval_as_target, 1);
    eval_node_count = 0;  // root ends here
}

void eval_node_tree_into_long_image(Node* node) {
    if (node->elnum != 1) {
        std::printf("ERROR: eval_node_tree_into_long_image: elnum should be 1.\n");
        fail_frame();
        return;
    }
    if (!the_frame->eval_long_image) {
        std::printf("ERROR: eval_node_tree_into_long_image: no long_image.\n");
        fail_frame();
        return;
    }
    eval_node_tree_pixel_loop(node, long_image_line_writer, eval_as_target, 1);
}

}  // namespace velloran
