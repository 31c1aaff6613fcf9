// For each pixel the mean of the picture along a line between two places.
#include "engine/evaluate.h"
#include "operators/warps/smear_rows.h"
#include "operators/warps/warp_functions.h"
#include "operators/warps/warp_lines.h"

#include <cmath>

namespace velloran {
namespace {

enum BlurWarpArg : int {
    arg_image,
    arg_from_coords,
    arg_to_coords,
    arg_ends_brightness,
    arg_scale,
    arg_wrap,
    arg_subpixel,
    arg_log_res_factor
};
enum BlurWarpValue : int { value_from, value_to, value_own };

constexpr int most_steps = 16384;  // their sum fits 32 bits
constexpr int most_skip = 10;

struct BlurWarpJob {
    LookUp look_up;
    SmearPlan plan;
    fix_plane planes[4];
    int elements;
};
BlurWarpJob job;

void blur_warp_line(Node* root, int column, int row, int offset) {
    const LookUp& look_up = job.look_up;
    const SampleRows& rows = *look_up.rows;
    const PlaceLines from_lines = place_lines(root, value_from, value_own, look_up, column, row);
    const PlaceLines to_lines = place_lines(root, value_to, value_own, look_up, column, row);
    const auto smear = smear_rows().smear[job.elements - 1];
    for_each_block(n_pixels, [&](int first, int n) {
        Positions from, to;
        from_lines.positions(rows, first, &from, n);
        to_lines.positions(rows, first, &to, n);
        smear(job.plan, from.x, from.y, to.x, to.y,
              PlanesAt(job.planes, job.elements, ptrdiff_t{offset} + first).planes, n);
    });
}

SmearPlan make_plan(const Node* node, const AxisWrap& x_wrap, const AxisWrap& y_wrap) {
    SmearPlan plan = {};
    plan.data = mipmap.data;
    plan.row_samples = static_cast<uint32_t>(mipmap.row_samples);
    plan.width = mipmap.top_w;
    plan.height = mipmap.top_h;
    plan.x_wrap = x_wrap;
    plan.y_wrap = y_wrap;
    plan.subpixel = warp_arg(node, arg_subpixel) > 0;
    plan.skip = std::clamp(warp_arg(node, arg_log_res_factor) >> fix_bits, 0, most_skip);
    plan.most_steps = most_steps;
    const RampEnds ramp = ramp_ends(node, arg_ends_brightness);
    plan.start_weight = ramp.start;
    plan.end_weight = ramp.end;
    plan.gain = warp_arg_float(node, arg_scale);
    int16_t outside[4];
    plan.outside_counts = get_warp_outside(outside);
    for (int c = 0; c < 4; ++c) plan.outside[c] = outside[c];
    return plan;
}

}  // namespace

// The mean along the straight line from from_coords to to_coords, in steps of a pixel of its longer extent, times
// scale. Weights ramp from one end to the other by ends_brightness. What lies outside a picture that is neither
// repeated nor mirrored does not count, so that its borders stay as bright as the rest. subpixel: between the samples,
// else the nearest ones; what does not move is always looked up between them. log_res_factor takes every 2^n-th step.
void image_blur_warp(Node* node) {
    const WrapKind kind_x = wrap_kind(warp_arg(node, arg_wrap, 0)), kind_y = wrap_kind(warp_arg(node, arg_wrap, 1));
    // The border repeats the edge where nothing stands outside, since that does not count.
    const auto border = [](WrapKind kind) { return kind == wrap_none ? wrap_mirror : kind; };
    MipmapSettings settings;
    settings.wrap_x = border(kind_x);
    settings.wrap_y = border(kind_y);
    settings.whole_range = true;
    if (!mipmap_setup(node->args[arg_image], settings)) return;
    job.look_up = make_look_up(mipmap);
    job.look_up.x_wrap.on = kind_x != wrap_none;
    job.look_up.y_wrap.on = kind_y != wrap_none;
    job.plan = make_plan(node, job.look_up.x_wrap, job.look_up.y_wrap);
    std::copy_n(node->images, node->elnum, job.planes);
    job.elements = node->elnum;
    Node own = own_coordinates();
    Node* const values[] = {node->args[arg_from_coords], node->args[arg_to_coords], &own};
    eval_node_trees_pixel_loop(values, 3, blur_warp_line);
}

// Nothing but the brightness shows on a picture of one value.
void fold_blur_warp(Node* node) {
    for (int e = 0; e < 4; ++e) node->vals[e] = fix_mul(node->args[arg_image]->vals[e], warp_arg(node, arg_scale));
}

}  // namespace velloran
