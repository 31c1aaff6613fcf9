// Noise over the whole frame by subdivision: noise, noise2, noise3. It costs a few additions for each sample whatever
// the number of octaves. See fractal_plan.h for the way.
#include "compile/pass_tests.h"
#include "frame/host_buffers.h"
#include "operators/blur/filter_args.h"
#include "operators/noise/fractal_plan.h"
#include "operators/noise/fractal_rows.h"
#include "operators/noise/noise_functions.h"
#include "operators/pixel/frame_coords.h"
#include "records/frame.h"
#include "records/node.h"
#include "support/hash.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>

namespace velloran {
namespace {

enum FractalNoiseArg : int { arg_frequency, arg_octaves, arg_shift, arg_seed, arg_scale };

constexpr double cells_per_unit = 8;
constexpr int row_padding = 128;  // samples behind a row in scratch, for registers that reach over its end

// A grid, or the needed part of one. Row r of the numbers lies at samples + (r - rows.first) * columns.count.
struct Grid {
    FixPixel* samples;
    GridSpan columns, rows;
    FixPixel* row(int64_t r) const { return samples + (r - rows.first) * columns.count; }
};

struct Channel {
    const FractalRows& rows;
    FractalChannel number;
    uint32_t seed;
};

void add_octave(const Channel& channel, const Grid& grid, int64_t row, int octave) {
    const uint32_t row_hash =
        bit_hash((static_cast<uint32_t>(row) << 4) ^ channel.seed ^ static_cast<uint32_t>(octave));
    channel.rows.add_random(grid.row(row), grid.columns.count, row_hash, static_cast<uint32_t>(grid.columns.first),
                            channel.number, octave);
}

// The rows of a grid with their columns doubled, as a task comes to need them: the last three are remembered.
class DoubledColumns {
public:
    // doubled: false if the columns stay as they are. span: of the numbers wanted. slot: the first of three of scratch.
    DoubledColumns(const FractalRows& rows, const Grid& grid, bool doubled, const GridSpan& span, int slot,
                   size_t bytes)
        : rows_(rows), grid_(grid), doubled_(doubled), span_(span) {
        for (int i = 0; i < 3; ++i) lines_[i] = static_cast<FixPixel*>(get_forked_buffer(slot + i, bytes));
    }
    const FixPixel* row(int64_t r) {
        if (!doubled_) return grid_.row(r) + (span_.first - grid_.columns.first);
        const int at = static_cast<int>(((r % 3) + 3) % 3);
        if (!made_[at] || numbers_[at] != r) {
            rows_.double_line(grid_.row(r), grid_.columns.first, lines_[at], span_.first, span_.count);
            numbers_[at] = r;
            made_[at] = true;
        }
        return lines_[at];
    }
    // Row r of the grid with its rows doubled too.
    void doubled_row(int64_t r, FixPixel* out) {
        const int64_t at = r >> 1;
        if (r & 1)
            rows_.between(row(at), row(at + 1), out, span_.count);
        else
            rows_.on(row(at - 1), row(at), row(at + 1), out, span_.count);
    }

private:
    const FractalRows& rows_;
    const Grid& grid_;
    const bool doubled_;
    const GridSpan span_;
    FixPixel* lines_[3];
    int64_t numbers_[3] = {};
    bool made_[3] = {};
};

size_t row_bytes(const GridSpan& span) { return static_cast<size_t>(span.count + row_padding) * sizeof(FixPixel); }

// One doubling, and the octave that is added after it.
void double_grid(const Channel& channel, const FractalPlan& plan, int i, const Grid& from, const Grid& to) {
    const size_t bytes = row_bytes(to.columns);
    maybe_malloc_forked_buffers(bytes, 3);
    fork_rows_if_big_image(to.columns.count, to.rows.count, [&](int first, int count) {
        DoubledColumns columns(channel.rows, from, plan.x.doubled[i], to.columns, 0, bytes);
        for (int64_t r = to.rows.first + first; r < to.rows.first + first + count; ++r) {
            if (plan.y.doubled[i])
                columns.doubled_row(r, to.row(r));
            else
                std::copy_n(columns.row(r), to.columns.count, to.row(r));
            if (plan.octave[i]) add_octave(channel, to, r, plan.octave[i]);
        }
    });
}

void scale_grid(const Channel& channel, const FractalNoise& noise, const Grid& grid) {
    fork_rows_if_big_image(grid.columns.count, grid.rows.count, [&](int first, int count) {
        for (int64_t r = grid.rows.first + first; r < grid.rows.first + first + count; ++r)
            if (noise.scale == fix_scale)
                channel.rows.halve(grid.row(r), grid.columns.count, noise.offset);
            else
                channel.rows.scale(grid.row(r), grid.columns.count, noise.scale >> 1);
    });
}

// The last doubling and the reading at the planes' samples, row by row: the doubled grid, the largest of all, is never
// whole in memory.
void read_grid(const Channel& channel, const FractalPlan& plan, const Grid& grid, FixPixel* plane, int width,
               int height) {
    const GridSpan doubled = plan.x.spans[plan.doublings + 1];
    const size_t bytes = std::max(row_bytes(doubled), static_cast<size_t>(width + row_padding) * sizeof(FixPixel));
    maybe_malloc_forked_buffers(bytes, 6);
    const int64_t start = plan.x.start - (doubled.first << 16);
    fork_rows(height, [&](int first, int count) {
        DoubledColumns columns(channel.rows, grid, true, doubled, 0, bytes);
        auto* const whole = static_cast<FixPixel*>(get_forked_buffer(3, bytes));
        FixPixel* const lines[2] = {static_cast<FixPixel*>(get_forked_buffer(4, bytes)),
                                    static_cast<FixPixel*>(get_forked_buffer(5, bytes))};
        int64_t numbers[2] = {INT64_MIN, INT64_MIN};
        const auto line = [&](int64_t r) -> const FixPixel* {
            const int at = static_cast<int>(r & 1);
            if (numbers[at] != r) {
                columns.doubled_row(r, whole);
                channel.rows.read(whole, start, plan.x.pitch, lines[at], width);
                numbers[at] = r;
            }
            return lines[at];
        };
        for (int y = first; y < first + count; ++y) {
            const int64_t place = plan.y.start + plan.y.pitch * y, r = place >> 16;
            const int quarters = static_cast<int>(place >> 14 & 3);
            FixPixel* const out = plane + ptrdiff_t{y} * width;
            const FixPixel* const below = line(r);
            if (quarters)
                channel.rows.blend(below, line(r + 1), quarters, out, width);
            else
                std::copy_n(below, width, out);
        }
    });
}

size_t grid_samples(const FractalPlan& plan, int i) {
    return static_cast<size_t>(plan.x.spans[i].count) * static_cast<size_t>(plan.y.spans[i].count);
}

// Grids by turns lie in two places, of which the last grid takes the first.
struct GridMemory {
    FixPixel* places[2];
};
GridMemory grid_memory(const FractalPlan& plan, int width) {
    size_t sizes[2] = {0, 0};
    for (int i = 0; i <= plan.doublings; ++i) {
        size_t& size = sizes[(plan.doublings - i) & 1];
        size = std::max(size, (grid_samples(plan, i) + 63) & ~size_t{63});
    }
    const size_t words = (sizes[0] + sizes[1]) / 2, pitch = static_cast<size_t>(width);
    auto* const memory =
        reinterpret_cast<FixPixel*>(spark_set_long_image(width, static_cast<int>((words + pitch - 1) / pitch)));
    return {{memory, memory + sizes[0]}};
}

void make_channel(const Channel& channel, const FractalNoise& noise, const FractalPlan& plan, FixPixel* plane,
                  int width, int height) {
    const GridMemory memory = grid_memory(plan, width);
    const auto grid = [&](int i) {
        return Grid{memory.places[(plan.doublings - i) & 1], plan.x.spans[i], plan.y.spans[i]};
    };
    Grid at = grid(0);
    std::fill_n(at.samples, grid_samples(plan, 0), FixPixel{0});
    fork_rows_if_big_image(at.columns.count, at.rows.count, [&](int first, int count) {
        for (int r = first; r < first + count; ++r) add_octave(channel, at, at.rows.first + r, 0);
    });
    for (int i = 0; i < plan.doublings; ++i) {
        const Grid next = grid(i + 1);
        double_grid(channel, plan, i, at, next);
        at = next;
        if (poll_abort()) return;
    }
    scale_grid(channel, noise, at);
    read_grid(channel, plan, at, plane, width, height);
}

void make_fractal_noise(Node* node, int32_t scale, int32_t offset) {
    const rinfo& planes = the_frame->temp_raster_info;
    const int step = std::max(planes.render_step, 1);
    const FrameCoords coords = frame_coords();
    const auto number = [node](int arg, int e) { return filter_arg(node, arg, e) / 4096.0; };
    const FractalNoise noise = {{number(arg_frequency, 0) * cells_per_unit, number(arg_frequency, 1) * cells_per_unit},
                                std::max(filter_arg(node, arg_octaves) >> fix_bits, 1),
                                {number(arg_shift, 0), number(arg_shift, 1)},
                                static_cast<uint32_t>(filter_arg(node, arg_seed) >> fix_bits),
                                scale,
                                offset};
    const FractalFrame frame = {the_frame->render_info.full_ren.w,
                                the_frame->render_info.full_ren.h,
                                static_cast<double>(coords.half_height),
                                static_cast<double>(the_frame->pixel_aspect_ratio),
                                step,
                                planes.x / step,
                                planes.y / step,
                                planes.width,
                                planes.height};
    if (planes.width < 1 || planes.height < 1) return;
    const FractalPlan plan = plan_fractal_noise(noise, frame);
    for (int c = 0; c < node->elnum; ++c) {
        make_channel({fractal_rows(), static_cast<FractalChannel>(std::min(c, 2)), noise.seed}, noise, plan,
                     node->images[c], planes.width, planes.height);
        if (poll_abort()) return;
    }
}

}  // namespace

void image_noise(Node* node) { make_fractal_noise(node, fix_scale, fix_scale / 2); }
void image_noise2(Node* node) { make_fractal_noise(node, filter_arg(node, arg_scale), 0); }
void image_noise3(Node* node) { make_fractal_noise(node, fix_scale, fix_scale / 2); }

// With a strength of 0 the noise is nothing.
int pass_noise2(Node* node) { return pass::is_zero(node, arg_scale) ? int{arg_scale} : pass::none; }

}  // namespace velloran
