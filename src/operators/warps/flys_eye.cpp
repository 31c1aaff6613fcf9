// The picture as an array of lenses shows it.
#include "engine/evaluate.h"
#include "operators/warps/pattern_rows.h"
#include "operators/warps/warp_functions.h"
#include "operators/warps/warp_lines.h"
#include "records/frame.h"

#include <cmath>

namespace velloran {
namespace {

enum FlysEyeArg : int {
    arg_image,
    arg_coords,
    arg_frequency,
    arg_shift,
    arg_rotate,
    arg_inside_zdist,
    arg_inside_rotate,
    arg_overall_zdist,
    arg_edge_softness,
    arg_wrap
};
enum FlysEyeValue : int { value_coords, value_own };

struct FlysEyeJob {
    LookUp look_up;
    Facets facets;
    float coords_offset_x, coords_offset_y;  // of positions, to the middle of the frame
    StepPart parts[most_look_up_parts];
    int part_count;
    fix_plane planes[4];
    int elements;
};
FlysEyeJob job;

// Counter-clockwise by turns.
struct Turn {
    float c, s;
    explicit Turn(float turns)
        : c(static_cast<float>(std::cos(6.283185307179586 * turns))),
          s(static_cast<float>(std::sin(6.283185307179586 * turns))) {}
};

// The share of the frame's width that a step of this many pictures' widths covers, as a level.
int32_t level_of_reduction(double x, double y, int32_t highest) {
    const double level = std::log2(std::max(std::sqrt(x * x + y * y), 1.0));
    return static_cast<int32_t>(std::clamp(level * fix_scale, 0.0, static_cast<double>(highest)));
}

void set_facets(const Node* node) {
    const float distance = warp_arg_float(node, arg_overall_zdist), inside = warp_arg_float(node, arg_inside_zdist);
    const float fx = warp_arg_float(node, arg_frequency, 0), fy = warp_arg_float(node, arg_frequency, 1);
    const Turn whole(-warp_arg_float(node, arg_rotate)), within(-warp_arg_float(node, arg_inside_rotate));
    Facets& f = job.facets;
    f.to_lattice[0] = fx * distance * whole.c;
    f.to_lattice[1] = -fx * distance * whole.s;
    f.to_lattice[2] = fy * distance * whole.s;
    f.to_lattice[3] = fy * distance * whole.c;
    f.offset[0] = -fx * warp_arg_float(node, arg_shift, 0);
    f.offset[1] = -fy * warp_arg_float(node, arg_shift, 1);
    // A facet is as wide as the picture, which is 2.
    f.to_picture[0] = f.to_picture[3] = 2 * inside * within.c;
    f.to_picture[1] = -2 * inside * within.s;
    f.to_picture[2] = 2 * inside * within.s;
    f.softness = warp_arg_float(node, arg_edge_softness);
    // How much of the picture a pixel covers in each of its axes.
    const float *a = f.to_picture, *b = f.to_lattice;
    const int32_t x_level =
        level_of_reduction(a[0] * b[0] + a[1] * b[2], a[0] * b[1] + a[1] * b[3], mipmap.max_x_level_fix);
    const int32_t y_level =
        level_of_reduction(a[2] * b[0] + a[3] * b[2], a[2] * b[1] + a[3] * b[3], mipmap.max_y_level_fix);
    constexpr float even[4] = {1, 1, 1, 1};
    job.part_count = look_up_parts(job.look_up, 0, x_level, y_level, even, job.parts);
}

void flys_eye_line(Node* root, int column, int row, int offset) {
    const LookUp& look_up = job.look_up;
    const PatternRows& rows = pattern_rows();
    const PlaceLines lines = place_lines(root, value_coords, value_own, look_up, column, row);
    const float x_unit = look_up.x_scale * fix_scale, y_unit = look_up.y_scale * fix_scale;
    for_each_block(n_pixels, [&](int first, int n) {
        Positions p;
        alignas(64) float px[look_up_block], py[look_up_block], fade[look_up_block] = {};
        lines.positions(*look_up.rows, first, &p, n);
        rows.coordinates(p.x, job.coords_offset_x, 1.0f / x_unit, px, n);
        rows.coordinates(p.y, job.coords_offset_y, 1.0f / y_unit, py, n);
        rows.facets(job.facets, px, py, fade, n);
        rows.positions(px, x_unit, -job.coords_offset_x, p.x, n);
        rows.positions(py, y_unit, -job.coords_offset_y, p.y, n);
        wrap_positions(look_up, p, n);
        look_up.taps->steps[job.elements - 1](look_up.source, {job.parts, job.part_count, job.elements, {}, {}}, p.x,
                                              p.y, p.x, p.y, fade,
                                              PlanesAt(job.planes, job.elements, ptrdiff_t{offset} + first).planes, n);
    });
}

}  // namespace

// Each place c of coords is seen as part of a lattice of hexagonal facets, frequency of them to a unit in x and y:
// the facets' lattice is at frequency * (turned by -rotate(c) * overall_zdist - shift). A facet shows the picture in
// its middle, as wide as the facet where inside_zdist is 1 and smaller by as much as it is more, turned by
// inside_rotate. Towards its border the picture fades to nothing, over edge_softness of the way from the border to the
// middle. What facets shrink is averaged.
void image_flys_eye(Node* node) {
    if (!warp_mipmap(node, arg_wrap, true)) return;
    job.look_up = make_look_up(mipmap);
    const RenderInfo& frame = the_frame->render_info;
    const float step = static_cast<float>(std::max(frame.render_step, 1));
    // Position 0 is the middle of the first sample.
    job.coords_offset_x =
        fix_scale * (static_cast<float>(mipmap.left) + 0.5f - 0.5f * static_cast<float>(frame.full_ren.w) / step);
    job.coords_offset_y =
        fix_scale * (static_cast<float>(mipmap.bottom) + 0.5f - 0.5f * static_cast<float>(frame.full_ren.h) / step);
    set_facets(node);
    std::copy_n(node->images, node->elnum, job.planes);
    job.elements = node->elnum;
    Node own = own_coordinates();
    Node* const values[] = {node->args[arg_coords], &own};
    eval_node_trees_pixel_loop(values, 2, flys_eye_line);
}

}  // namespace velloran
