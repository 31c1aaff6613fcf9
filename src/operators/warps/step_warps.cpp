#include "operators/warps/step_warps.h"

#include "engine/evaluate.h"
#include "support/memory.h"

#include <cmath>

namespace velloran {
namespace {

enum StepValue : int { value_from, value_to, value_own };

struct StepJob {
    LookUp look_up;
    StepParts parts;
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
        Positions from, to;
        from_lines.positions(rows, first, &from, n);
        to_lines.positions(rows, first, &to, n);
        look_up.taps->steps[look_up.elements - 1](look_up.source, job.parts, from.x, from.y, to.x, to.y, nullptr,
                                                  PlanesAt(job.planes, job.elements, ptrdiff_t{offset} + first).planes,
                                                  n);
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
    auto* const parts = frame_array<StepPart>(static_cast<size_t>(count) * most_look_up_parts);
    int part_count = 0;
    for (int k = 0; k < count; ++k)
        part_count += look_up_parts(job.look_up, steps[k].t, steps[k].x_level, steps[k].y_level, steps[k].weights,
                                    parts + part_count);
    job.parts = {parts, part_count, node->elnum, job.look_up.x_wrap, job.look_up.y_wrap};
    std::copy_n(node->images, node->elnum, job.planes);
    job.elements = node->elnum;
    Node own = own_coordinates();
    Node* const values[] = {node->args[args.from_coords], node->args[args.to_coords], &own};
    eval_node_trees_pixel_loop(values, 3, step_line);
    frame_free(parts);
}

}  // namespace velloran
