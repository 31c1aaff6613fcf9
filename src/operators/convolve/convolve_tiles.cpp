// Overlap-save on tiles.
//
// Two tiles that lie side by side go through one complex transform, as its real and its imaginary part: a kernel is
// real, so the parts never mix, and nothing has to be taken apart. The two-dimensional transform is made of transforms
// of lines with transpositions between them, for two reasons. Columns are worked one after the other while they are in
// the first cache: forward, times the kernel's spectrum, back. And a task that goes down a column of tiles keeps the
// transformed rows that the next tile shares with this one, and takes back only the rows that hold finished samples.
//
// Buffers of a task: complex_buf holds the transformed rows as columns, [x][y], complex_stride apart; real_buf holds
// the finished columns as rows, [y][x], real_stride apart, and the lines in hand.
#include "operators/convolve/convolve_parts.h"
#include "operators/convolve/convolve_rows.h"
#include "operators/fft/fft_config.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cstring>

namespace velloran {

namespace {

constexpr int block = convolve_block;

// The lines in hand of a task, behind its finished rows.
struct TaskBuffers {
    float* columns;   // [fft_w][complex_stride]
    float* finished;  // [tile_h][real_stride]
    float* lines_in;  // [block][real_stride] or [complex_stride]
    float* lines_out;
    FixPixel* samples;  // a row of the source, and two gathered ones
};

size_t line_floats(const fft_info_t* info) {
    return static_cast<size_t>(2 * block * std::max(info->real_stride, info->complex_stride));
}

size_t finished_floats(const fft_info_t* info) {
    return static_cast<size_t>(2 * info->real_stride) * static_cast<size_t>(padded_line(info->tile_h));
}

TaskBuffers buffers_of(const fft_info_t* info, int task) {
    TaskBuffers b;
    b.columns = info->complex_buf[task];
    b.finished = info->real_buf[task];
    b.lines_in = b.finished + finished_floats(info);
    b.lines_out = b.lines_in + line_floats(info);
    b.samples = reinterpret_cast<FixPixel*>(b.lines_out + line_floats(info));
    return b;
}

// Asks for n samples of a plane's row from column x on. A tile's rows are short and far apart, so that the processor
// does not see by itself what comes next.
template <int for_writing>
void ask_for(const FixPixel* plane, int pitch, int n_rows, int x, int y, int n) {
    constexpr int samples_of_line = 64 / static_cast<int>(sizeof(FixPixel));
    if (y < 0 || y >= n_rows) return;
    const FixPixel* const row = plane + static_cast<ptrdiff_t>(y) * pitch;
    for (int i = std::max(x, 0); i < std::min(x + n, pitch); i += samples_of_line)
        __builtin_prefetch(row + i, for_writing, 2);
}
constexpr int rows_ahead = 2;

// Rows first .. fft_h - 1 of a pair of tiles that begins at (x, y) of the source, transformed, into the columns. Status
// of the transforms: they fail all or none.
int transform_rows(const ConvolveJob& job, const FftPlans& plans, const TaskBuffers& b, int x, int y, int first) {
    const fft_info_t* info = job.info;
    const ConvolveRows& rows = convolve_rows();
    const int width = info->fft_w;
    const ptrdiff_t pitch = info->real_stride;
    FixPixel *left = b.samples + info->image_w, *right = left + padded_line(width);
    int status = fft_ok;
    for (int r = first; r < info->fft_h; r += block) {
        const int count = std::min(block, info->fft_h - r);
        for (int k = 0; k < count; ++k) {
            float* in = b.lines_in + 2 * k * pitch;
            ask_for<0>(job.source, info->image_w, info->image_h, x, y + r + k + rows_ahead, width + info->tile_w);
            const FixPixel* row = convolve_source_row(job, y + r + k, b.samples);
            if (!row) {
                std::memset(b.lines_out + 2 * k * pitch, 0, static_cast<size_t>(2 * width) * sizeof(float));
                continue;
            }
            const FixPixel* halves[2];
            for (int half = 0; half < 2; ++half)
                halves[half] = convolve_samples(job, row, x + half * info->tile_w, width, half ? right : left);
            rows.join(halves[0], halves[1], in, width);
            status = fft_run_line(plans.row[fft_forward], in, b.lines_out + 2 * k * pitch);
        }
        rows.transpose(b.lines_out, pitch, b.columns + 2 * r, info->complex_stride, padded_line(width));
    }
    return status;
}

// All columns: forward, times the kernel, back, and the rows that hold finished samples as rows.
int transform_columns(const ConvolveJob& job, const FftPlans& plans, const TaskBuffers& b) {
    const fft_info_t* info = job.info;
    const ConvolveRows& rows = convolve_rows();
    const ptrdiff_t pitch = info->complex_stride;
    const float* kernel = info->kernel_spectrum[job.channel];
    const int first = info->tile_overlap_y;
    int status = fft_ok;
    for (int x = 0; x < info->fft_w; x += block) {
        const int count = std::min(block, info->fft_w - x);
        for (int k = 0; k < count; ++k) {
            float* spectrum = b.lines_in;
            status = fft_run_line(plans.column[fft_forward], b.columns + 2 * (x + k) * pitch, spectrum);
            rows.multiply(spectrum, kernel + 2 * (x + k) * pitch, info->fft_h);
            fft_run_line(plans.column[fft_backward], spectrum, b.lines_out + 2 * k * pitch);
        }
        rows.transpose(b.lines_out + 2 * first, pitch, b.finished + 2 * x, info->real_stride,
                       padded_line(info->tile_h));
    }
    return status;
}

// What of a tile lies in a stretch of the destination: samples first .. end - 1 of the tile that begins at at.
struct TilePart {
    int first, end;
};
TilePart part_of(int at, int size, int start, int stop) {
    return {std::clamp(start - at, 0, size), std::clamp(stop - at, 0, size)};
}

int write_rows(const ConvolveJob& job, const FftPlans& plans, const TaskBuffers& b, int x, int y) {
    const fft_info_t* info = job.info;
    const ConvolveRows& rows = convolve_rows();
    const int tile_w = info->tile_w, right_edge = std::min(info->crop_x + info->crop_w, info->dest_w);
    const TilePart part = part_of(y, info->tile_h, info->crop_y, std::min(info->crop_y + info->crop_h, info->dest_h));
    const TilePart left = part_of(x, tile_w, info->crop_x, right_edge),
                   right = part_of(x + tile_w, tile_w, info->crop_x, right_edge);
    const FixPixel* const written = job.taker ? job.taker->written : job.dest;
    int status = fft_ok;
    FixPixel *staged_left = b.samples + info->image_w, *staged_right = staged_left + padded_line(info->fft_w);
    for (int r = part.first; r < part.end; ++r) {
        float* line = b.lines_out;
        if (written) ask_for<1>(written, info->dest_w, info->dest_h, x, y + r + rows_ahead, 2 * tile_w);
        status =
            fft_run_line(plans.row[fft_backward], b.finished + 2 * r * static_cast<ptrdiff_t>(info->real_stride), line);
        const float* sums = line + 2 * info->tile_overlap_x;
        const ptrdiff_t at = static_cast<ptrdiff_t>(y + r) * info->dest_w + x;
        if (!job.dest) {
            float *const of_left = b.lines_in, *const of_right = of_left + padded_line(tile_w);
            rows.split_floats(sums, of_left, of_right, job.scale, tile_w);
            const auto hand_on = [&](const float* of_tile, const TilePart& tile, int column) {
                const int n = tile.end - tile.first;
                if (n <= 0) return;
                if (job.taker)
                    job.taker->take(job.taker, column + tile.first, y + r, of_tile + tile.first, n);
                else
                    std::copy(of_tile + tile.first, of_tile + tile.end, job.float_dest + at + column - x + tile.first);
            };
            hand_on(of_left, left, x);
            hand_on(of_right, right, x + tile_w);
        } else if (left.first == 0) {
            FixPixel* dest = job.dest + at;
            const int both = right.end;
            rows.split(sums, dest, both > 0 ? dest + tile_w : nullptr, job.scale, both > 0 ? both : left.end);
            if (both > 0 && both < left.end)
                rows.split(sums + 2 * both, dest + both, nullptr, job.scale, left.end - both);
        } else {
            // The crop begins within the pair.
            rows.split(sums, staged_left, staged_right, job.scale, tile_w);
            std::copy(staged_left + left.first, staged_left + left.end, job.dest + at + left.first);
            std::copy(staged_right + right.first, staged_right + right.end, job.dest + at + tile_w + right.first);
        }
    }
    return status;
}

// The pairs of tiles, or the tiles of a pair's column, that a stretch of the destination touches, counted over the
// area.
struct TileRange {
    int first, count;
};
TileRange tiles_in(int start, int size, int area_start, int tile) {
    const int first = (start - area_start) / tile;
    return {first, (start + size - area_start + tile - 1) / tile - first};
}

// Tiles first .. first + count - 1, counted down the columns of pairs.
void work_tiles(const ConvolveJob& job, const TileRange& pairs, const TileRange& down, int first, int count) {
    const fft_info_t* info = job.info;
    const FftPlans plans = fft_config_get(info->fft_w, info->fft_h);
    const TaskBuffers b = buffers_of(info, get_processor_index());
    for (int u = first; u < first + count; ++u) {
        if (poll_abort()) return;
        const int x = info->area_x + (pairs.first + u / down.count) * 2 * info->tile_w,
                  y = info->area_y + (down.first + u % down.count) * info->tile_h;
        int kept = 0;
        if (u > first && u % down.count > 0) {
            kept = info->tile_overlap_y;
            for (int c = 0; c < info->fft_w; ++c) {
                float* column = b.columns + 2 * static_cast<ptrdiff_t>(c) * info->complex_stride;
                std::memmove(column, column + 2 * info->tile_h, static_cast<size_t>(2 * kept) * sizeof(float));
            }
        }
        // The kernel's first sample stands at the transform's origin: sample t of a tile takes in samples up to kcrop
        // size - 1 before it, and the finished ones come last.
        int forward = transform_rows(job, plans, b, x + info->kcrop_centre_x - info->tile_overlap_x,
                                     y + info->kcrop_centre_y - info->tile_overlap_y, kept);
        if (forward == fft_ok) forward = transform_columns(job, plans, b);
        fft_check("DftiComputeForward(1)", forward);
        fft_check("DftiComputeBackward", write_rows(job, plans, b, x, y));
    }
}

}  // namespace

void reserve_tiles(fft_info_t* info, int n_processors) {
    info->real_stride = line_stride(info->fft_w);
    info->complex_stride = line_stride(info->fft_h);
    info->complex_bytes =
        static_cast<size_t>(2 * info->complex_stride) * static_cast<size_t>(padded_line(info->fft_w)) * sizeof(float);
    info->real_bytes = (finished_floats(info) + 2 * line_floats(info)) * sizeof(float) +
                       static_cast<size_t>(info->image_w + 2 * padded_line(info->fft_w)) * sizeof(FixPixel);
    for (int i = info->n_bufs; i < n_processors; ++i) {
        info->real_buf[i] = take_fft_buf(info, info->real_bytes);
        info->complex_buf[i] = take_fft_buf(info, info->complex_bytes);
        std::memset(info->real_buf[i], 0, info->real_bytes);
        std::memset(info->complex_buf[i], 0, info->complex_bytes);
        info->n_bufs = i + 1;
    }
}

void set_spectrum_of_tile(fft_info_t* info, const float* plane, int channel) {
    const ConvolveRows& rows = convolve_rows();
    const FftPlans plans = fft_config_get(info->fft_w, info->fft_h);
    const TaskBuffers b = buffers_of(info, 0);
    const ptrdiff_t row_pitch = info->real_stride, column_pitch = info->complex_stride;
    std::memset(b.columns, 0, info->complex_bytes);
    for (int y = 0; y < info->kcrop_h; y += block) {
        std::memset(b.lines_out, 0, line_floats(info) * sizeof(float));
        for (int k = 0; k < std::min(block, info->kcrop_h - y); ++k) {
            float* in = b.lines_in;
            std::memset(in, 0, static_cast<size_t>(2 * info->fft_w) * sizeof(float));
            const float* from =
                plane + static_cast<ptrdiff_t>(info->kcrop_y + y + k) * info->kernel_stride + info->kcrop_x;
            for (int x = 0; x < info->kcrop_w; ++x) in[2 * x] = from[x];
            fft_run_line(plans.row[fft_forward], in, b.lines_out + 2 * k * row_pitch);
        }
        rows.transpose(b.lines_out, row_pitch, b.columns + 2 * y, column_pitch, padded_line(info->fft_w));
    }
    float* spectrum = take_fft_buf(info, info->complex_bytes);
    for (int x = 0; x < info->fft_w; ++x)
        if (!fft_check("DftiComputeForward(kernel)",
                       fft_run_line(plans.column[fft_forward], b.columns + 2 * x * column_pitch,
                                    spectrum + 2 * x * column_pitch)))
            break;
    info->kernel_spectrum[channel] = spectrum;
}

void run_tiles(const ConvolveJob& job) {
    const fft_info_t* info = job.info;
    fft_config_make(info->fft_w, info->fft_h);
    const TileRange pairs = tiles_in(info->crop_x, info->crop_w, info->area_x, 2 * info->tile_w),
                    down = tiles_in(info->crop_y, info->crop_h, info->area_y, info->tile_h);
    const int n_tiles = pairs.count * down.count;
    if (info->mode == convolve_tiles_in_turn)
        work_tiles(job, pairs, down, 0, n_tiles);
    else
        fork_rows(n_tiles, [&](int first, int count) { work_tiles(job, pairs, down, first, count); });
}

}  // namespace velloran
