// One real transform over the whole area and what the kernel reaches around it.
//
// Its rows go through complex lines two by two, one as the real and one as the imaginary part, and are taken apart
// afterwards; so half a spectrum of columns is all there is to do down the picture. Rows and columns are shared among
// the tasks; what is computed does not depend on how.
//
// complex_buf[0] holds the transformed rows as columns, [x][y], complex_stride apart; real_buf[0] holds the finished
// columns as rows, [y][x], real_stride apart, from the first even row of the area on that the crop touches.
#include "operators/convolve/convolve_parts.h"
#include "operators/convolve/convolve_rows.h"
#include "operators/fft/fft_config.h"
#include "operators/tone/tone_rows.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cstring>

namespace velloran {

namespace {

constexpr size_t line_alignment = 64;  // what plans are made for

int source_w(const fft_info_t* info) { return info->kcrop_w + info->area_w - 1; }
int source_h(const fft_info_t* info) { return info->kcrop_h + info->area_h - 1; }

int blocks_of(int n) { return padded_line(n) / convolve_block; }

// A task's lines in hand.
struct Lines {
    float* pair;        // a complex line of fft_w or fft_h
    float* pair_out;    // the same, transformed
    float* block;       // convolve_block lines
    FixPixel* samples;  // a row of the source, and two gathered ones
};

size_t longest_line(const fft_info_t* info) {
    return 2 * static_cast<size_t>(line_stride(std::max(info->fft_w, info->fft_h)));
}

size_t lines_bytes(const fft_info_t* info) {
    return longest_line(info) * (2 + convolve_block) * sizeof(float) + line_alignment +
           static_cast<size_t>(info->image_w + 2 * padded_line(source_w(info))) * sizeof(FixPixel);
}

Lines lines_of_task(const fft_info_t* info) {
    const auto at = reinterpret_cast<uintptr_t>(get_forked_buffer(0, lines_bytes(info)));
    auto* const first = reinterpret_cast<float*>((at + line_alignment - 1) & ~(line_alignment - 1));
    const size_t longest = longest_line(info);
    return {first, first + longest, first + 2 * longest,
            reinterpret_cast<FixPixel*>(first + (2 + convolve_block) * longest)};
}

// Turning rows into columns overwrites cache lines that are far apart. Where all of them together outgrow what may be
// left of the last cache, none is fetched for it.
auto transpose_of(const fft_info_t* info) {
    constexpr size_t least_streamed = size_t{24} << 20;
    return info->complex_bytes < least_streamed ? convolve_rows().transpose : convolve_rows().transpose_past;
}

// Transforms rows 0 .. n_rows - 1 into columns; the rest of the columns is zero. fill(lines, y) sets lines.pair to the
// rows y and y + 1, and tells whether there is anything in them.
template <class Fill>
void rows_to_columns(const fft_info_t* info, float* columns, int n_rows, const char* name, const Fill& fill) {
    const FftPlans plans = fft_config_get(info->fft_w, info->fft_h);
    const ConvolveRows& rows = convolve_rows();
    const ptrdiff_t pitch = info->real_stride;
    maybe_malloc_forked_buffers(lines_bytes(info), 1);
    fork_rows(blocks_of(info->fft_h), [&](int first, int count) {
        const Lines lines = lines_of_task(info);
        int status = fft_ok;
        for (int b = first; b < first + count; ++b) {
            if (poll_abort()) return;
            const int y = b * convolve_block;
            for (int k = 0; k < convolve_block; k += 2) {
                float *const even = lines.block + 2 * k * pitch, *const odd = even + 2 * pitch;
                if (y + k < n_rows && fill(lines, y + k)) {
                    status = std::max(status, fft_run_line(plans.row[fft_forward], lines.pair, lines.pair_out));
                    rows.part_spectra(lines.pair_out, even, odd, info->fft_w);
                } else {
                    std::fill(even, even + 4 * pitch, 0.0f);
                }
            }
            transpose_of(info)(lines.block, pitch, columns + 2 * ptrdiff_t{y}, info->complex_stride,
                               padded_line(info->complex_w));
        }
        fft_check(name, status);
    });
}

// Rows y and y + 1 of what the area and the kernel's reach take in.
bool fill_from_source(const ConvolveJob& job, const Lines& lines, int y) {
    const fft_info_t* info = job.info;
    const int x = info->area_x - info->kernel_right, n = source_w(info);
    const FixPixel* halves[2];
    bool any = false;
    for (int half = 0; half < 2; ++half) {
        FixPixel* const gathered = lines.samples + info->image_w + half * padded_line(n);
        const FixPixel* row = nullptr;
        if (y + half < source_h(info))
            row = convolve_source_row(job, info->area_y - info->kernel_top + y + half, lines.samples);
        any |= row != nullptr;
        if (!row) {
            std::fill(gathered, gathered + n, FixPixel{0});
            halves[half] = gathered;
        } else if (row == lines.samples) {
            convolve_gather(job, row, x, n, gathered);  // the next row is made in the same place
            halves[half] = gathered;
        } else {
            halves[half] = convolve_samples(job, row, x, n, gathered);
        }
    }
    if (!any) return false;
    if (job.raise)
        for (int half = 0; half < 2; ++half) {
            FixPixel* const raised = lines.samples + info->image_w + half * padded_line(n);
            tone_rows().map(job.raise, halves[half], raised, n);
            halves[half] = raised;
        }
    convolve_rows().join(halves[0], halves[1], lines.pair, n);
    std::fill(lines.pair + 2 * n, lines.pair + 2 * info->fft_w, 0.0f);
    return true;
}

}  // namespace

void reserve_one_transform(fft_info_t* info) {
    info->real_stride = line_stride(info->complex_w);
    info->complex_stride = line_stride(info->fft_h);
    info->real_bytes =
        2 * static_cast<size_t>(info->real_stride) * static_cast<size_t>(padded_line(info->area_h + 1)) * sizeof(float);
    info->complex_bytes = 2 * static_cast<size_t>(info->complex_stride) *
                          static_cast<size_t>(padded_line(info->complex_w)) * sizeof(float);
    info->real_buf[0] = take_fft_buf(info, info->real_bytes);
    info->complex_buf[0] = take_fft_buf(info, info->complex_bytes);
    std::memset(info->complex_buf[0], 0, info->complex_bytes);
    info->n_bufs = 1;
}

void set_spectrum_of_image(fft_info_t* info, const float* plane, int channel) {
    const auto fill = [&](const Lines& lines, int y) {
        std::fill(lines.pair, lines.pair + 2 * info->fft_w, 0.0f);
        for (int half = 0; half < 2 && y + half < info->kcrop_h; ++half) {
            const float* from =
                plane + static_cast<ptrdiff_t>(info->kcrop_y + y + half) * info->kernel_stride + info->kcrop_x;
            for (int x = 0; x < info->kcrop_w; ++x) lines.pair[2 * x + half] = from[x];
        }
        return true;
    };
    float* const columns = info->complex_buf[0];
    rows_to_columns(info, columns, info->kcrop_h, "DftiComputeForward(kernel)", fill);
    float* const spectrum = take_fft_buf(info, info->complex_bytes);
    info->kernel_spectrum[channel] = spectrum;
    const FftPlans plans = fft_config_get(info->fft_w, info->fft_h);
    fork_rows(info->complex_w, [&](int first, int count) {
        int status = fft_ok;
        for (int x = first; x < first + count; ++x) {
            const ptrdiff_t at = 2 * static_cast<ptrdiff_t>(x) * info->complex_stride;
            status = std::max(status, fft_run_line(plans.column[fft_forward], columns + at, spectrum + at));
        }
        fft_check("DftiComputeForward(kernel)", status);
    });
}

void run_one_transform(const ConvolveJob& job) {
    const fft_info_t* info = job.info;
    const ConvolveRows& rows = convolve_rows();
    fft_config_make(info->fft_w, info->fft_h);
    const FftPlans plans = fft_config_get(info->fft_w, info->fft_h);
    float *const columns = info->complex_buf[0], *const finished = info->real_buf[0];
    const float* const kernel = info->kernel_spectrum[job.channel];
    rows_to_columns(info, columns, source_h(info), "DftiComputeForward(1)",
                    [&](const Lines& lines, int y) { return fill_from_source(job, lines, y); });
    if (poll_abort()) return;

    // Rows go back in pairs of the area, so that a sample's last bits do not depend on the crop.
    const int first_row = (info->crop_y - info->area_y) & ~1, end_row = info->crop_y - info->area_y + info->crop_h;
    const int transform_row = info->kcrop_h - 1 + first_row;
    fork_rows(blocks_of(info->complex_w), [&](int first, int count) {
        const Lines lines = lines_of_task(info);
        const ptrdiff_t pitch = info->complex_stride;
        int forward = fft_ok, backward = fft_ok;
        for (int b = first; b < first + count; ++b) {
            if (poll_abort()) return;
            const int x = b * convolve_block;
            for (int k = 0; k < convolve_block; ++k) {
                float* const out = lines.block + 2 * k * pitch;
                if (x + k >= info->complex_w) {
                    std::fill(out, out + 2 * pitch, 0.0f);
                    continue;
                }
                const ptrdiff_t at = 2 * (x + k) * pitch;
                forward = std::max(forward, fft_run_line(plans.column[fft_forward], columns + at, lines.pair));
                rows.multiply(lines.pair, kernel + at, info->fft_h);
                backward = std::max(backward, fft_run_line(plans.column[fft_backward], lines.pair, out));
            }
            transpose_of(info)(lines.block + 2 * ptrdiff_t{transform_row}, pitch, finished + 2 * ptrdiff_t{x},
                               info->real_stride, padded_line(end_row - first_row));
        }
        fft_check("DftiComputeForward(1)", forward);
        fft_check("DftiComputeBackward", backward);
    });
    if (poll_abort()) return;

    const int right = info->crop_x - info->area_x + info->kcrop_w - 1;
    const int n = std::min(info->crop_w, info->dest_w - info->crop_x);
    fork_rows((end_row - first_row + 1) / 2, [&](int first, int count) {
        const Lines lines = lines_of_task(info);
        int status = fft_ok;
        for (int p = first; p < first + count; ++p) {
            const float* const even = finished + 4 * static_cast<ptrdiff_t>(p) * info->real_stride;
            const float* odd = even + 2 * info->real_stride;
            const int row = first_row + 2 * p;  // of the area
            if (row + 1 >= info->area_h) {
                std::fill(lines.block, lines.block + 2 * info->real_stride, 0.0f);
                odd = lines.block;
            }
            rows.join_spectra(even, odd, lines.pair, info->fft_w);
            status = std::max(status, fft_run_line(plans.row[fft_backward], lines.pair, lines.pair_out));
            float* const sums[] = {lines.block, lines.block + padded_line(n)};
            rows.split_floats(lines.pair_out + 2 * right, sums[0], sums[1], job.taker ? job.scale : 1.0f, n);
            for (int half = 0; half < 2; ++half) {
                const int y = info->area_y + row + half;
                if (y < info->crop_y || row + half >= end_row) continue;
                if (job.taker)
                    job.taker->take(job.taker, info->crop_x, y, sums[half], n);
                else
                    convolve_write(job, info->crop_x, y, sums[half], n);
            }
        }
        fft_check("DftiComputeBackward", status);
    });
}

}  // namespace velloran
