// Reading planes with edges, and writing sums back.
#include "operators/convolve/convolve_parts.h"
#include "operators/convolve/convolve_rows.h"
#include "records/frame.h"
#include "records/run_state.h"
#include "support/errors.h"

#include <algorithm>
#include <cstring>

namespace velloran {

int convolve_edge_index(int i, int start, int size, int edge) {
    i -= start;
    if (i >= 0 && i < size) return start + i;
    switch (edge) {
        case convolve_edge_black:
            return -1;
        case convolve_edge_repeat:
            return start + (i < 0 ? 0 : size - 1);
        case convolve_edge_wrap: {
            const int m = i % size;
            return start + (m < 0 ? m + size : m);
        }
        default: {
            int m = i % (2 * size);
            if (m < 0) m += 2 * size;
            return start + (m < size ? m : 2 * size - 1 - m);
        }
    }
}

SourceArea convolve_source_area(const fft_info_t* info) {
    const SourceArea whole = {0, 0, info->image_w, info->image_h};
    if (info->own_edges || the_frame->temp_raster_info.wrap.wrap_sw <= 0 ||
        the_frame->temp_raster_info.wrap.wrap_sh <= 0)
        return whole;
    const WrapDims& wrap = the_frame->temp_raster_info.wrap;
    const int step = std::max(the_frame->temp_raster_info.render_step, 1);
    const SourceArea area = {wrap.wrap_sx - the_frame->temp_raster_info.x / step,
                             wrap.wrap_sy - the_frame->temp_raster_info.y / step, wrap.wrap_sw, wrap.wrap_sh};
    if (area.x < 0 || area.y < 0 || area.x + area.w > info->image_w || area.y + area.h > info->image_h) {
        fail_frame();
        V_error(level_error, "Copy_subimage: wrap dims err: %d, %d, %d, %d, vs %dx%d\n", area.x, area.y, area.w, area.h,
                info->image_w, info->image_h);
        return whole;
    }
    return area;
}

const FixPixel* convolve_source_row(const ConvolveJob& job, int y, FixPixel* buffer) {
    const SourceArea& area = job.area;
    const fft_info_t* info = job.info;
    const int row = convolve_edge_index(y, area.y, area.h, info->edge_y);
    if (row < 0) return nullptr;
    const FixPixel* at = job.source + static_cast<ptrdiff_t>(row) * info->image_w;
    if (info->crop_field == 0 || (row & 1) != info->crop_field - 1 || info->image_h < 2) return at;
    // A row of the other field: the mean of the rows around it, at the ends the one there is.
    const FixPixel* below = row > 0 ? at - info->image_w : at + info->image_w;
    const FixPixel* above = row + 1 < info->image_h ? at + info->image_w : below;
    for (int x = 0; x < info->image_w; ++x) buffer[x] = static_cast<FixPixel>((below[x] + above[x]) >> 1);
    return buffer;
}

void convolve_gather(const ConvolveJob& job, const FixPixel* row, int x, int n, FixPixel* out) {
    const SourceArea& area = job.area;
    const int inside = std::max(area.x, x), end = std::min(area.x + area.w, x + n);
    if (inside < end)
        std::memcpy(out + (inside - x), row + inside, static_cast<size_t>(end - inside) * sizeof(FixPixel));
    for (int i = 0; i < n; ++i) {
        if (x + i == inside && inside < end) i += end - inside;
        if (i >= n) break;
        const int from = convolve_edge_index(x + i, area.x, area.w, job.info->edge_x);
        out[i] = from < 0 ? FixPixel{0} : row[from];
    }
}

const FixPixel* convolve_samples(const ConvolveJob& job, const FixPixel* row, int x, int n, FixPixel* buffer) {
    if (x >= job.area.x && x + n <= job.area.x + job.area.w) return row + x;
    convolve_gather(job, row, x, n, buffer);
    return buffer;
}

void convolve_write(const ConvolveJob& job, int x, int y, const float* sums, int n) {
    const fft_info_t* info = job.info;
    if (y < 0 || y >= info->dest_h || x >= info->dest_w) return;
    n = std::min(n, info->dest_w - x);
    const ptrdiff_t at = static_cast<ptrdiff_t>(y) * info->dest_w + x;
    if (job.dest) {
        convolve_rows().to_fix(sums, job.dest + at, job.scale, n);
    } else {
        for (int i = 0; i < n; ++i) job.float_dest[at + i] = sums[i] * job.scale;
    }
}

}  // namespace velloran
