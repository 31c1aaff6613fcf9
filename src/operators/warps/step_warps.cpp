#include "operators/warps/step_warps.h"

#include "engine/evaluate.h"
#include "records/frame.h"
#include "support/memory.h"
#include "tasks/fork_rows.h"

#include <cmath>

namespace velloran {
namespace {

enum StepValue : int { value_from, value_to, value_own };

// Rows of places that a task has computed and not yet looked up. The steps of a pixel may reach over hundreds of rows
// of the picture; for a stretch of several rows together they are read into the second cache once and not once for
// each.
constexpr int band_rows = 16;
struct Band {
    int32_t *from_x, *from_y, *to_x, *to_y;  // band_rows rows of job.pitch
    int rows, width;                         // that are there
    int row, column;                         // of the last one, in the pass; the first column of the pass
    ptrdiff_t offset[band_rows];             // in the planes
};

struct StepJob {
    LookUp look_up;
    StepParts parts;
    fix_plane planes[4];
    int elements;  // of the result
    Band* bands;   // of each task
    ptrdiff_t pitch;
};
StepJob job;

void look_band_up(Band& band) {
    const LookUp& look_up = job.look_up;
    const auto steps = look_up.taps->steps[look_up.elements - 1];
    for_each_block(band.width, [&](int first, int n) {
        for (int k = 0; k < band.rows; ++k) {
            const ptrdiff_t at = k * job.pitch + first;
            steps(look_up.source, job.parts, band.from_x + at, band.from_y + at, band.to_x + at, band.to_y + at,
                  nullptr, PlanesAt(job.planes, job.elements, band.offset[k] + first).planes, n);
        }
    });
    band.rows = band.width = 0;
}

void step_line(Node* root, int column, int row, int offset) {
    const SampleRows& rows = *job.look_up.rows;
    Band& band = job.bands[get_processor_index()];
    if (band.rows == 0 || band.row != row) {
        if (band.rows == band_rows) look_band_up(band);
        band.row = row;
        band.column = column;
        band.offset[band.rows++] = offset;
    }
    const PlaceLines from = place_lines(root, value_from, value_own, job.look_up, column, row);
    const PlaceLines to = place_lines(root, value_to, value_own, job.look_up, column, row);
    const ptrdiff_t start = (band.rows - 1) * job.pitch + column - band.column;
    for_each_block(n_pixels, [&](int first, int n) {
        const ptrdiff_t at = start + first;
        rows.positions(from.x, first, band.from_x + at, n);
        rows.positions(from.y, first, band.from_y + at, n);
        rows.positions(to.x, first, band.to_x + at, n);
        rows.positions(to.y, first, band.to_y + at, n);
    });
    band.width = std::max(band.width, column - band.column + n_pixels);
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
    const int tasks = get_n_procs();
    job.pitch = (the_frame->temp_raster_info.width + 15) & ~15;
    const auto samples = static_cast<size_t>(job.pitch) * band_rows;
    auto* const places = frame_array<int32_t>(4 * samples * static_cast<size_t>(tasks));
    job.bands = frame_array<Band>(static_cast<size_t>(tasks));
    for (int t = 0; t < tasks; ++t) {
        int32_t* const at = places + 4 * samples * static_cast<size_t>(t);
        job.bands[t] = {at, at + samples, at + 2 * samples, at + 3 * samples, 0, 0, 0, 0, {}};
    }
    Node own = own_coordinates();
    Node* const values[] = {node->args[args.from_coords], node->args[args.to_coords], &own};
    eval_node_trees_pixel_loop(values, 3, step_line);
    fork_rows(tasks, [](int first, int n) {
        for (int t = first; t < first + n; ++t) look_band_up(job.bands[t]);
    });
    frame_free(job.bands);
    frame_free(places);
    frame_free(parts);
}

}  // namespace velloran
