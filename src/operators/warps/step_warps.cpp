#include "operators/warps/step_warps.h"

#include "engine/evaluate.h"
#include "support/memory.h"

#include <cmath>

namespace velloran {
namespace {

enum StepValue : int { value_from, value_to, value_own };

struct StepJob {
    LookUp look_up;
    const WarpStep* steps;
    int count;
    fix_plane planes[4];
    int elements;  // of the result
};
StepJob job;

void step_line(Node* root, int column, int row, int offset) {
    const LookUp& look_up = job.look_up;
    const SampleRows& rows = *look_up.rows;
    const PlaceLines from_lines = place_lines(root, value_from, value_own, look_up, column, row);
    const PlaceLines to_lines = place_lines(root, value_to, value_own, look_up, column, row);
    for_each_block(n_pixels, [&](int first, int n) {
        Positions from, to, at;
        BlockFloat sums;
        from_lines.positions(rows, first, &from, n);
        to_lines.positions(rows, first, &to, n);
        for (int k = 0; k < job.count; ++k) {
            const WarpStep& step = job.steps[k];
            rows.between(from.x, to.x, step.t, at.x, n);
            rows.between(from.y, to.y, step.t, at.y, n);
            wrap_positions(look_up, at, n);
            look_up_add(look_up, at, step.x_level, step.y_level, step.weights, k == 0, &sums, n);
        }
        rows.store_rounded(sums, PlanesAt(job.planes, job.elements, ptrdiff_t{offset} + first).planes, job.elements, n);
    });
}

}  // namespace

WarpStep* make_warp_steps(const Node* node, const StepArgs& args, int count) {
    auto* const steps = frame_array<WarpStep>(static_cast<size_t>(count));
    for (int k = 0; k < count; ++k) {
        const float t = static_cast<float>(k) / static_cast<float>(count - 1);
        steps[k] = {t, 0, 0, {}};
        if (args.from_levels < 0) continue;
        const auto level = [&](int axis, int highest) {
            const float from = static_cast<float>(warp_arg(node, args.from_levels, axis));
            const float to = static_cast<float>(warp_arg(node, args.to_levels, axis));
            return static_cast<int32_t>(std::clamp(from + (to - from) * t, 0.0f, static_cast<float>(highest)));
        };
        steps[k].x_level = level(0, mipmap.max_x_level_fix);
        steps[k].y_level = level(1, mipmap.max_y_level_fix);
    }
    return steps;
}

void add_warp_steps(Node* node, const StepArgs& args, const WarpStep* steps, int count) {
    job.look_up = make_look_up(mipmap);
    job.steps = steps;
    job.count = count;
    std::copy_n(node->images, node->elnum, job.planes);
    job.elements = node->elnum;
    Node own = own_coordinates();
    Node* const values[] = {node->args[args.from_coords], node->args[args.to_coords], &own};
    eval_node_trees_pixel_loop(values, 3, step_line);
}

}  // namespace velloran
