#include "operators/pixel/query_funs.h"
#include "operators/pixel/frame_coords.h"

#include "records/genotype.h"
#include "records/node.h"
#include "records/rinfo.h"
#include "records/run_state.h"
#include "spark/spark.h"
#include "support/host_info.h"
#include "support/task_state.h"

#include <algorithm>
#include <cmath>

namespace velloran {

float (*param_value_at_frame)(const Param* param, int channel, float host_frame) = nullptr;

namespace {

enum CurveValArg : int { arg_param, arg_rel_frame };

void fill(Node* node, int e, int32_t value) { std::fill_n(node->lines[e], n_pixels, value); }

void fill_float(Node* node, float value) { fill(node, 0, float_to_fix(value)); }

int frame_width() { return the_frame->render_info.full_ren.w; }
int frame_height() { return the_frame->render_info.full_ren.h; }

const Param* param_of(const Node* node) {
    const Genotype* genotype = Globals_V4->effect_genotype;
    if (!genotype || node->param_index <= 0 || node->param_index > genotype->param_number) return nullptr;
    return genotype->params[node->param_index - 1];
}

}  // namespace

void pixel_get_curve_val(Node* node) {
    const Node* source = node->args[arg_param];
    const Param* param = param_of(source);
    // The host answers on its own thread only. An offset that varies over the frame gets the value of the frame in
    // hand.
    const bool at_host =
        param && param_value_at_frame && is_constant(node->args[arg_rel_frame]) && !is_forked && spark_info_ptr;
    const float offset = static_cast<float>(node->arg_vals[arg_rel_frame][0]) * fix_to_float_scale;
    for (int e = 0; e < node->elnum; ++e) {
        const int element = std::min<int>(e, source->elnum - 1);
        if (at_host)
            fill(node, e,
                 float_to_fix(param_value_at_frame(param, element, the_frame->time_globals.frame + 1.0f + offset)));
        else if (is_constant(source))
            fill(node, e, node->arg_lines[arg_param][element][0]);
        else
            std::copy_n(node->arg_lines[arg_param][element], n_pixels, node->lines[e]);
    }
}

void pixel_get_frame_number(Node* node) { fill_float(node, the_frame->time_globals.frame); }
void pixel_get_total_frames(Node* node) { fill_float(node, the_frame->time_globals.total_frames); }
void pixel_get_time(Node* node) { fill_float(node, the_frame->time_globals.seconds); }
void pixel_get_percent_time(Node* node) { fill_float(node, the_frame->time_globals.percent); }
void pixel_get_frames_per_second(Node* node) { fill_float(node, frame_rate); }
void pixel_get_aspect_ratio(Node* node) { fill_float(node, frame_coords().half_height); }
void pixel_get_frame_width(Node* node) { fill(node, 0, frame_width() * fix_scale); }
void pixel_get_frame_height(Node* node) { fill(node, 0, frame_height() * fix_scale); }

void pixel_get_frame_half_dims(Node* node) {
    fill(node, 0, frame_width() * (fix_scale / 2));
    fill(node, 1, frame_height() * (fix_scale / 2));
}

void pixel_get_pixel_coords_scale(Node* node) {
    for (int e = 0; e < 2; ++e)
        fill(node, e,
             the_frame->render_info.render_step
                 ? float_to_fix(static_cast<float>(the_frame->render_info.ratio_scale[e]))
                 : fix_scale);
}

// Two samples of the frame for each lattice cell, with a margin of four samples.
void pixel_get_max_fnoise_freq(Node* node) {
    const int step = std::max(the_frame->render_info.render_step, 1);
    const float width = static_cast<float>((frame_width() + step - 1) / step);
    const float height = static_cast<float>((frame_height() + step - 1) / step);
    const float across = (width - 4) / 2;
    const float up = (height * 2 - 4) / (2 * frame_coords().half_height) * the_frame->pixel_aspect_ratio;
    fill(node, 0, static_cast<int32_t>(std::min(across, up) * fix_scale / 8));
}

void pixel_get_transform_scale(Node* node) {
    for (int e = 0; e < 2; ++e) fill(node, e, fix_scale);
}

}  // namespace velloran
