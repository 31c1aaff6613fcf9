// Everything goes through row functions for runs of neighbouring pixels (pixel_formats_rows.h). A step above 1 is dealt
// with around them: the pixels that a source's samples read are packed into a short run first, the samples of a
// destination are repeated into one.
#include "frame/pixel_formats.h"

#include "frame/add_noise.h"
#include "frame/lut_files.h"
#include "frame/pixel_formats_rows.h"
#include "frame/pixel_types.h"
#include "records/run_state.h"
#include "rows/line_rows.h"
#include "support/errors.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cstring>

namespace velloran {

int forced_alpha_mode = 0;
int source_alpha_p = 0;

namespace {

constexpr int run_pixels = 512;             // of packed or repeated runs: they stay in the first cache
constexpr size_t fork_fill_samples = 1024;  // smaller fills are not worth a fork
// Images above this do not stay in the caches until they are read, so stores go past them.
constexpr size_t streamed_image_bytes = size_t{16} << 20;

constexpr const char* form_names[n_host_forms] = {"rgb8", "rgb10", "rgb16"};

RowStores stores_for_image(size_t bytes) { return bytes >= streamed_image_bytes ? stores_streamed : stores_cached; }

int floor_div(int a, int b) { return (a >= 0 ? a : a - b + 1) / b; }

// ---- Sources

template <class Sample>
struct SourceRun {
    SourceRow<Sample> row;
    const int32_t* table;
};

const int32_t* source_table(int form, bool use_lut) {
    if (!use_lut) return nullptr;
    return form == form_rgb8 ? input_lut_8 : input_lut_12;
}

SourceRun<FixPixel> plane_run(int form, bool use_lut) {
    const int32_t* const table = source_table(form, use_lut);
    return {pixel_format_rows().to_planes[form][table != nullptr], table};
}

SourceRun<int32_t> line_run(int form, bool use_lut) {
    const int32_t* const table = source_table(form, use_lut);
    return {pixel_format_rows().to_lines[form][table != nullptr], table};
}

// Pixels that samples [first, first + n) of a row read, side by side.
template <int pixel_bytes>
void pack_pixels(const rinfo& source, const uint8_t* host_row, int first, int n, uint8_t* out) {
    const int step = source.render_step, last = source.w - 1;
    for (int i = 0; i < n; ++i) {
        const int pixel = std::min((first + i) * step + source.render_phase, last);
        std::memcpy(out + i * pixel_bytes, host_row + static_cast<ptrdiff_t>(pixel) * pixel_bytes, pixel_bytes);
    }
}

template <class Sample>
void read_samples(const SourceRun<Sample>& run, const rinfo& source, const void* row_start, Sample* const* out,
                  int first, int count, RowStores stores) {
    const auto* const host_row = static_cast<const uint8_t*>(row_start);
    if (source.render_step == 1) {
        run.row(host_row + static_cast<ptrdiff_t>(first) * source.bytes_per_pixel, out, count, run.table, stores);
        return;
    }
    alignas(64) uint8_t packed[run_pixels * 6];
    for (int done = 0; done < count; done += run_pixels) {
        const int n = std::min(run_pixels, count - done);
        if (source.bytes_per_pixel == 3)
            pack_pixels<3>(source, host_row, first + done, n, packed);
        else
            pack_pixels<6>(source, host_row, first + done, n, packed);
        Sample* const at[3] = {out[0] + done, out[1] + done, out[2] + done};
        run.row(packed, at, n, run.table, stores_cached);
    }
}

// The part of samples [first, first + count) of the frame's grid that a source has, counted from first; empty: begin ==
// end == count.
struct Covered {
    int begin, end;
};

Covered covered_part(int source_first, int source_count, int first, int count) {
    const int begin = std::clamp(source_first - first, 0, count);
    const int end = std::clamp(source_first + source_count - first, 0, count);
    return begin < end ? Covered{begin, end} : Covered{count, count};
}

bool line_readable_p(const rinfo& source, int vlen) {
    const int form = host_form_of(source.pixel_type);
    if (form != no_form && vlen == 3) return true;
    if (!fail_frame()) return false;
    if (form == no_form) {
        char name[16];
        V_error(level_error, "No native->fix line conv for ptype %d = %s", source.pixel_type,
                pixel_type_name(source.pixel_type, name));
    } else {
        V_error(level_error, "No native->fix line conv for %s to %d", form_names[form], vlen);
    }
    return false;
}

FixPixel background_sample(const rinfo& source, int channel) {
    return clip_to_image(float_to_fix(source.background[channel]));
}

// What the tasks of source_converter work on.
struct SourceImage {
    SourceRun<FixPixel> run;
    rinfo source;
    const void* frame;
    const fix_plane* planes;
    int width;      // of a plane
    int first_row;  // of the planes, that the source has
    int n_rows;
    Covered columns;                // of the planes, that the source has
    int source_row, source_column;  // of the source, that go to first_row and columns.begin
    RowStores stores;
};

// Rows first .. first + n - 1 of those that the source has.
void read_source_rows(const SourceImage& job, int first, int n) {
    FixPixel margin[3];
    for (int c = 0; c < 3; ++c) margin[c] = background_sample(job.source, c);
    const auto [begin, end] = job.columns;
    for (int i = first; i < first + n; ++i) {
        FixPixel* at[3];
        for (int c = 0; c < 3; ++c) {
            FixPixel* const row = job.planes[c] + static_cast<ptrdiff_t>(job.first_row + i) * job.width;
            std::fill(row, row + begin, margin[c]);
            std::fill(row + end, row + job.width, margin[c]);
            at[c] = row + begin;
        }
        read_samples(job.run, job.source, source_row_of(job.source, job.frame, job.source_row + i), at,
                     job.source_column, end - begin, job.stores);
    }
    if (job.stores == stores_streamed) pixel_format_rows().finish_stores();
}

// ---- Destinations

// How rows of one pass are written.
template <class Sample>
struct DestRun {
    DestRow<Sample> row;  // null: not at all, which has been reported
    const void* table;
    bool mono;
    int pixel_bytes;
};

const void* dest_table(int form, bool use_lut) {
    if (!use_lut) return nullptr;
    return form == form_rgb8 ? static_cast<const void*>(output_lut_8) : output_lut_16;
}

bool dest_writable_p(const rinfo& dest, int vlen, int alpha_mode, const char* converter) {
    const int form = host_form_of(dest.pixel_type);
    const bool known = form != no_form && vlen >= 1 && vlen <= 4;
    const bool alpha_goes = alpha_mode == 1 || (vlen != 2 && vlen != 4);
    if (known && alpha_goes) return true;
    if (!fail_frame()) return false;
    char name[16];
    if (form == no_form)
        V_error(level_error, "No fix->native converters for pixel type %d = %s", dest.pixel_type,
                pixel_type_name(dest.pixel_type, name));
    else if (!known)
        V_error(level_error, "No fix->native conv for 4 to %s", form_names[form]);
    else
        V_error(level_error, "%s: invalid alpha mode %d for %d -> %s", converter, alpha_mode, vlen, form_names[form]);
    return false;
}

template <class Sample>
DestRun<Sample> dest_run(const rinfo& dest, int vlen, bool use_lut) {
    const int form = host_form_of(dest.pixel_type);
    const void* const table = dest_table(form, use_lut);
    const bool mono = vlen < 3;
    const PixelFormatRows& rows = pixel_format_rows();
    if constexpr (sizeof(Sample) == sizeof(FixPixel))
        return {rows.from_planes[form][table != nullptr][mono], table, mono, dest.bytes_per_pixel};
    else
        return {rows.from_lines[form][table != nullptr][mono], table, mono, dest.bytes_per_pixel};
}

// n pixels from pixel `pixel` of the frame's grid on, each the sample of its block; in begins with that of the first.
template <class Sample>
void repeat_samples(const Sample* in, int pixel, int step, int n, Sample* out) {
    for (int i = 0; i < n; ++in) {
        const int end = std::min(n, i + step - (pixel + i) % step);
        while (i < end) out[i++] = *in;
    }
}

template <class Sample>
void write_pixels(const DestRun<Sample>& run, uint8_t* pixels, int first, int count, const Sample* const* in, int step,
                  RowStores stores) {
    if (step == 1) {
        run.row(in, pixels, count, run.table, stores);
        return;
    }
    const int channels = run.mono ? 1 : 3;
    alignas(64) Sample repeated[3][run_pixels];
    const Sample* const repeated_planes[3] = {repeated[0], repeated[1], repeated[2]};
    for (int done = 0; done < count; done += run_pixels) {
        const int n = std::min(run_pixels, count - done);
        const int pixel = first + done;
        for (int c = 0; c < channels; ++c)
            repeat_samples(in[c] + (pixel / step - first / step), pixel, step, n, repeated[c]);
        run.row(repeated_planes, pixels + static_cast<ptrdiff_t>(done) * run.pixel_bytes, n, run.table, stores_cached);
    }
}

uint8_t* dest_pixel(const rinfo& dest, void* frame, int row, int column) {
    return static_cast<uint8_t*>(frame) +
           static_cast<ptrdiff_t>(row - dest.y) * static_cast<ptrdiff_t>(host_row_pitch(dest)) +
           static_cast<ptrdiff_t>(column - dest.x) * dest.bytes_per_pixel;
}

// What the tasks of dest_img_converter work on.
struct DestImage {
    DestRun<FixPixel> run;
    rinfo dest;
    void* frame;
    const FixPixel* planes[3];
    int width;                      // of a plane
    int origin_row, origin_column;  // of the planes' first sample, frame's grid
    int x0, x1, y0, y1;             // pixels to write
    int step, field;
    RowStores stores;
};

// Rows of samples first .. first + n - 1.
void write_dest_rows(const DestImage& job, int first, int n) {
    const int step = job.step, count = job.x1 - job.x0;
    for (int row = first; row < first + n; ++row) {
        if (job.field && (row & 1) == job.field - 1) continue;
        const ptrdiff_t offset =
            static_cast<ptrdiff_t>(row - job.origin_row) * job.width + (job.x0 / step - job.origin_column);
        const FixPixel* const in[3] = {job.planes[0] + offset, job.planes[1] + offset, job.planes[2] + offset};
        const int y = std::max(row * step, job.y0), end = std::min((row + 1) * step, job.y1);
        write_pixels(job.run, dest_pixel(job.dest, job.frame, y, job.x0), job.x0, count, in, step, job.stores);
        repeat_dest_row(job.dest, job.frame, y, end - y - 1, job.x0, count);
    }
    if (job.stores == stores_streamed) pixel_format_rows().finish_stores();
}

}  // namespace

// ---- Parts of use to others

size_t host_row_pitch(const rinfo& raster) {
    return static_cast<size_t>(raster.w) * static_cast<size_t>(raster.bytes_per_pixel) +
           static_cast<size_t>((raster.bit_depth >> 3) * raster.stride);
}

const void* source_row_of(const rinfo& source, const void* frame, int row) {
    const int pixel_row = std::min(row * source.render_step + source.render_phase, source.h - 1);
    return static_cast<const uint8_t*>(frame) + static_cast<size_t>(pixel_row) * host_row_pitch(source);
}

void fill_samples(FixPixel* dest, FixPixel value, size_t n) {
    const int low = value & 255, high = (value >> 8) & 255;
    if (low == high) {
        mp_memset(dest, low, n * sizeof(FixPixel));
    } else if (n >= fork_fill_samples) {
        constexpr size_t unit = 512;
        fork_rows(static_cast<int>((n + unit - 1) / unit), [&](int first, int count) {
            const size_t begin = static_cast<size_t>(first) * unit;
            std::fill(dest + begin, dest + std::min(n, begin + static_cast<size_t>(count) * unit), value);
        });
    } else {
        std::fill(dest, dest + n, value);
    }
}

// ---- Sources

void native_to_fix_line(const rinfo& source, const void* host_row, int32_t* const* lines, int first, int count,
                        int vlen, bool with_lut) {
    if (!line_readable_p(source, vlen)) return;
    read_samples(line_run(host_form_of(source.pixel_type), with_lut), source, host_row, lines, first, count,
                 stores_cached);
}

void read_source_line(const rinfo& source, const void* frame, int row, int first, int count, int32_t* const* lines,
                      int vlen, bool with_lut) {
    if (!line_readable_p(source, vlen)) return;
    const int step = source.render_step;
    const int source_row = row - floor_div(source.y, step), source_first = floor_div(source.x, step);
    const bool row_covered = source_row >= 0 && source_row < source.height;
    const auto [begin, end] =
        row_covered ? covered_part(source_first, source.width, first, count) : Covered{count, count};
    int32_t* at[3];
    for (int c = 0; c < 3; ++c) {
        const int32_t background = background_sample(source, c);
        std::fill(lines[c], lines[c] + begin, background);
        std::fill(lines[c] + end, lines[c] + count, background);
        at[c] = lines[c] + begin;
    }
    if (begin < end)
        read_samples(line_run(host_form_of(source.pixel_type), with_lut), source,
                     source_row_of(source, frame, source_row), at, first + begin - source_first, end - begin,
                     stores_cached);
}

void read_source_line_of_field(const rinfo& source, const void* frame, int row, int first, int count,
                               int32_t* const* lines, int32_t* const* spare, int vlen, bool with_lut) {
    const bool other_field = the_frame->render_field && (row & 1) == the_frame->render_field - 1;
    if (!other_field || row == 0) {
        read_source_line(source, frame, row, first, count, lines, vlen, with_lut);
        return;
    }
    read_source_line(source, frame, row - 1, first, count, lines, vlen, with_lut);
    const int step = source.render_step;
    if (row + 1 >= (the_frame->render_info.full_ren.h + step - 1) / step) return;
    read_source_line(source, frame, row + 1, first, count, spare, vlen, with_lut);
    for (int c = 0; c < vlen; ++c) line_rows().average(lines[c], spare[c], lines[c], count);
}

void source_converter(const rinfo& source, const void* frame, const rinfo& working, const fix_plane* planes, int vlen,
                      bool with_lut) {
    const int form = host_form_of(source.pixel_type);
    if (form == no_form || vlen != 3) {
        if (!fail_frame()) return;
        char name[16];
        if (form == no_form)
            V_error(level_error, "No source converter defined for %s", pixel_type_name(source.pixel_type, name));
        else
            V_error(level_error, "No source converter defined for %s to vlen=%d", form_names[form], vlen);
        return;
    }
    const int step = source.render_step;
    const int source_x = floor_div(source.x, step), source_y = floor_div(source.y, step);
    const int origin_x = floor_div(working.x, step), origin_y = floor_div(working.y, step);
    const Covered columns = covered_part(source_x, source.width, origin_x, working.width);
    Covered rows = covered_part(source_y, source.height, origin_y, working.height);
    if (columns.begin == columns.end) rows = {working.height, working.height};

    const auto plane_samples = [&](int n_rows) {
        return static_cast<size_t>(n_rows) * static_cast<size_t>(working.width);
    };
    for (int c = 0; c < 3; ++c) {
        const FixPixel background = background_sample(source, c);
        if (rows.begin > 0) fill_samples(planes[c], background, plane_samples(rows.begin));
        if (rows.end < working.height)
            fill_samples(planes[c] + plane_samples(rows.end), background, plane_samples(working.height - rows.end));
    }
    if (rows.begin == rows.end) return;

    const SourceImage job = {.run = plane_run(form, with_lut),
                             .source = source,
                             .frame = frame,
                             .planes = planes,
                             .width = working.width,
                             .first_row = rows.begin,
                             .n_rows = rows.end - rows.begin,
                             .columns = columns,
                             .source_row = origin_y + rows.begin - source_y,
                             .source_column = origin_x + columns.begin - source_x,
                             .stores = stores_for_image(plane_samples(working.height) * 3 * sizeof(FixPixel))};
    fork_rows(job.n_rows, [&](int first, int n) { read_source_rows(job, first, n); });
}

// ---- Destinations

bool dest_line_convertible_p(const rinfo& dest, int vlen, int alpha_mode) {
    return dest_writable_p(dest, vlen, alpha_mode, "dest converter");
}

void dest_converter(const rinfo& dest, void* frame, int row, int first, int count, const int32_t* const* lines,
                    int vlen, int step, int alpha_mode, bool with_lut) {
    if (!dest_writable_p(dest, vlen, alpha_mode, "dest converter") || count <= 0) return;
    const int32_t* in[4];
    std::copy(lines, lines + vlen, in);
    if (dest.add_noise > 0) {
        const int first_sample = first / step, samples = (first + count - 1) / step - first_sample + 1;
        fix_add_noise_to_line(in, vlen, row / step, first_sample, samples, dest);
    }
    write_pixels(dest_run<int32_t>(dest, vlen, with_lut), dest_pixel(dest, frame, row, first), first, count, in, step,
                 stores_cached);
}

void repeat_dest_row(const rinfo& dest, void* frame, int row, int n_rows, int first, int count) {
    const size_t pitch = host_row_pitch(dest);
    uint8_t* const pixels = dest_pixel(dest, frame, row, first);
    for (int i = 1; i <= n_rows; ++i)
        std::memcpy(pixels + static_cast<size_t>(i) * pitch, pixels,
                    static_cast<size_t>(count) * static_cast<size_t>(dest.bytes_per_pixel));
}

void fill_dest_row(const rinfo& dest, void* frame, int row, int first, int count, const int32_t* rgb, bool with_lut) {
    if (!dest_writable_p(dest, 3, 1, "dest converter") || count <= 0) return;
    int32_t colour[3][run_pixels];
    for (int c = 0; c < 3; ++c) std::fill(colour[c], colour[c] + std::min(count, run_pixels), rgb[c]);
    const int32_t* const in[3] = {colour[0], colour[1], colour[2]};
    const DestRun<int32_t> run = dest_run<int32_t>(dest, 3, with_lut);
    for (int done = 0; done < count; done += run_pixels)
        run.row(in, dest_pixel(dest, frame, row, first + done), std::min(run_pixels, count - done), run.table,
                stores_cached);
}

void dest_img_converter(const fix_plane* planes, int vlen, const rinfo& working, const RenderInfo& area,
                        const rinfo& dest, void* frame, int field, int alpha_mode, bool with_lut) {
    if (!dest_writable_p(dest, vlen, alpha_mode, "dest img converter")) return;
    const int step = working.render_step;
    const RasterRect& crop = area.croprect;
    // What there are both samples and pixels for.
    const int x0 = std::max({crop.x, dest.x, working.x}), y0 = std::max({crop.y, dest.y, working.y});
    const int x1 = std::min({crop.x + crop.w, dest.x + dest.w, working.x + working.width * step});
    const int y1 = std::min({crop.y + crop.h, dest.y + dest.h, working.y + working.height * step});
    if (dest.add_noise > 0) fix_add_noise_to_images(planes, vlen, working, dest.add_noise);
    if (x0 >= x1 || y0 >= y1) return;

    const DestRun<FixPixel> run = dest_run<FixPixel>(dest, vlen, with_lut);
    const DestImage job = {.run = run,
                           .dest = dest,
                           .frame = frame,
                           .planes = {planes[0], planes[run.mono ? 0 : 1], planes[run.mono ? 0 : 2]},
                           .width = working.width,
                           .origin_row = working.y / step,
                           .origin_column = working.x / step,
                           .x0 = x0,
                           .x1 = x1,
                           .y0 = y0,
                           .y1 = y1,
                           .step = step,
                           .field = field,
                           .stores = stores_for_image(host_row_pitch(dest) * static_cast<size_t>(y1 - y0))};
    const int first_row = y0 / step;
    fork_rows((y1 - 1) / step + 1 - first_row, [&](int first, int n) { write_dest_rows(job, first_row + first, n); });
}

int get_dest_alpha_mode(int mode_of_effect, int vlen) {
    int mode = forced_alpha_mode ? forced_alpha_mode : mode_of_effect;
    if (mode == 2 && !source_alpha_p) mode = 3;
    return vlen == 4 ? 1 : mode;
}

}  // namespace velloran
