#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/edges/edge_functions.h"
#include "operators/edges/edge_rows.h"
#include "operators/edges/run_distance_rows.h"
#include "operators/pixel/frame_coords.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

enum EdgeDistArg : int { arg_image, arg_scale };

// Rows to the nearest pixel of the other kind in the column, for the columns first .. first + n - 1: down and up again,
// whole rows at a time.
void measure_columns(const FixPixel* matte, uint16_t* rows, int width, int height, int first, int n) {
    const EdgeRows& edge = edge_rows();
    const auto at = [&](int y) { return ptrdiff_t{y} * width + first; };
    const auto next = [&](int y, int from) {
        edge.count_rows(matte + at(y), matte + at(from), rows + at(from), rows + at(y), n);
    };
    for (int y = 0; y < height; ++y) {
        std::fill_n(rows + at(y), n, edge_no_row);
        if (y > 0) next(y, y - 1);
    }
    for (int y = height - 2; y >= 0; --y) next(y, y + 1);
}

// The parabola (x - place)^2 + height of a sample, height being a square itself, and its value at 0.
struct Parabola {
    double place, height, at_zero;
    double at(double x) const { return (x - place) * (x - place) + height; }
};

// Squared distances of the samples first .. end - 1, all of one kind, from what is nearest of the other: in a column
// of the run, or beyond its ends, where there_first and there_last say whether there is anything. They are the lower
// envelope of a parabola for each column (P. Felzenszwalb and D. Huttenlocher, "Distance Transforms of Sampled
// Functions", 2012), of which envelope has room for two more than the run has samples.
void measure_run(const uint16_t* rows, double row_height, int first, int end, bool there_first, bool there_last,
                 Parabola* envelope, float* squares) {
    int n = 0;
    // From the last parabola but one to the last.
    double ran = 0.0, rose = 0.0;
    const auto add = [&](double place, double height) {
        const Parabola p = {place, height, place * place + height};
        double run = 0.0, rise = 0.0;
        while (n > 0) {
            run = p.place - envelope[n - 1].place;
            rise = p.at_zero - envelope[n - 1].at_zero;
            // The last one is nowhere the lowest where p comes below it before it comes below the one before. All
            // products are whole numbers that a double holds exactly, where pixels are square.
            if (n == 1 || rise * ran > rose * run) break;
            --n;
            if (n > 1) {
                ran = envelope[n - 1].place - envelope[n - 2].place;
                rose = envelope[n - 1].at_zero - envelope[n - 2].at_zero;
            }
        }
        envelope[n++] = p;
        ran = run;
        rose = rise;
    };
    if (there_first) add(first - 1, 0.0);
    for (int x = first; x < end; ++x) {
        if (rows[x] == edge_no_row) continue;
        const double up = rows[x] * row_height;
        add(x, up * up);
    }
    if (there_last) add(end, 0.0);
    if (n == 0) {
        std::fill_n(squares + first, end - first, edge_nowhere);
        return;
    }
    const Parabola* lowest = envelope;
    const Parabola* const last = envelope + n - 1;
    for (int x = first; x < end; ++x) {
        double square = lowest->at(x);
        while (lowest < last) {
            const double next = lowest[1].at(x);
            if (next > square) break;
            square = next;
            ++lowest;
        }
        squares[x] = static_cast<float>(square);
    }
}

}  // namespace

// The distance from the nearest edge of a matte, to either side of it, times scale; 1.0 is a unit of the coordinates,
// half the frame's width. Pixels of 0.5 and more are inside; an edge runs half a pixel before the middle of the nearest
// pixel of the other kind, to which the distance is exact. Without an edge it is as far as a sample counts.
void image_edge_dist(Node* node) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    if (poll_abort()) return;
    const int width = the_frame->temp_raster_info.width, height = the_frame->temp_raster_info.height;
    const int step = std::max(the_frame->temp_raster_info.render_step, 1);
    FixPixel* const matte = node->images[0];
    // Unsigned in the place of samples: frames are higher than these count.
    auto* const rows = reinterpret_cast<uint16_t*>(node->images[1]);
    fork_rows_if_wide_image(height, width,
                            [&](int first, int n) { measure_columns(matte, rows, width, height, first, n); });
    if (poll_abort()) return;

    const FrameCoords coords = frame_coords();
    // Columns in a row's height, and units in a column's width.
    const double row_height = static_cast<double>(coords.half_height * coords.width / coords.height);
    const float column = 2.0f * static_cast<float>(step) / coords.width * filter_arg_float(node, arg_scale) * 4096.0f;
    // Of square pixels all is whole numbers.
    const bool whole = row_height == 1.0 && width <= most_run_samples && height <= most_run_samples;
    const size_t square_bytes = static_cast<size_t>(width + run_block) * sizeof(float);
    const size_t envelope_bytes = std::max((static_cast<size_t>(width) + 2) * sizeof(Parabola),
                                           static_cast<size_t>(run_scratch(width)) * sizeof(int32_t));
    const size_t bytes = square_bytes + envelope_bytes;
    maybe_malloc_forked_buffers(bytes, 1);
    const EdgeRows& edge = edge_rows();
    fork_rows_if_big_image(width, height, [&](int first, int n) {
        auto* const scratch = static_cast<char*>(get_forked_buffer(0, bytes));
        auto* const squares = reinterpret_cast<float*>(scratch + envelope_bytes);
        const RunDistanceRows& distances = run_distance_rows();
        for (int y = first; y < first + n; ++y) {
            if ((y & 63) == 0 && poll_abort()) return;
            const ptrdiff_t at = ptrdiff_t{y} * width;
            for (int from = 0, end = 0; from < width; from = end) {
                end = distances.end_of_run(matte + at, from, width);
                const bool before = from > 0, behind = end < width;
                if (whole)
                    distances.measure(rows + at + from, end - from, before, behind, reinterpret_cast<int32_t*>(scratch),
                                      squares + from);
                else
                    measure_run(rows + at, row_height, from, end, before, behind, reinterpret_cast<Parabola*>(scratch),
                                squares);
            }
            edge.distances(squares, column, matte + at, width);
        }
    });
}

}  // namespace velloran
