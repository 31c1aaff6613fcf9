#include "operators/mipmap/image_transform.h"

#include "operators/mipmap/mipmap_rows.h"
#include "rows/line_rows.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>

namespace velloran {
namespace {

int32_t level_of(double change_x, double change_y, double filter, int32_t highest) {
    const double reduction = filter * std::sqrt(change_x * change_x + change_y * change_y);
    if (!(reduction > 1.0)) return 0;
    return static_cast<int32_t>(std::min(std::log2(reduction) * fix_scale + 0.5, static_cast<double>(highest)));
}

}  // namespace

ImageTransform make_image_transform(const Mipmap& source, const AffineMap& map, float filter) {
    ImageTransform transform = {make_look_up(source), map, 0, 0};
    if (!source.settings.multi_level) return transform;
    transform.x_level = level_of(map.xx, map.xy, filter, source.max_x_level_fix);
    transform.y_level = level_of(map.yx, map.yy, filter, source.max_y_level_fix);
    return transform;
}

void transform_line(const ImageTransform& transform, int x, int y, FixPixel* const* planes, int n) {
    const LookUp& look_up = transform.look_up;
    const AffineMap& map = transform.map;
    const bool filtered = transform.x_level || transform.y_level;
    alignas(64) int32_t x_level[look_up_block], y_level[look_up_block];
    if (filtered) {
        std::fill_n(x_level, look_up_block, transform.x_level);
        std::fill_n(y_level, look_up_block, transform.y_level);
    }
    for (int first = 0; first < n; first += look_up_block) {
        const int count = std::min(look_up_block, n - first);
        const double at = x + first;
        Positions p;
        look_up.rows->along_line(map.xx * at + (map.xy * y + map.x0), map.xx, p.x, count);
        look_up.rows->along_line(map.yx * at + (map.yy * y + map.y0), map.yx, p.y, count);
        wrap_positions(look_up, p, count);
        FixPixel* out[4] = {};
        for (int c = 0; c < look_up.elements; ++c) out[c] = planes[c] + first;
        if (filtered)
            look_up_filtered(look_up, p, x_level, y_level, out, count);
        else
            look_up_bilinear(look_up, p, out, count);
    }
}

void transform_images(const ImageTransform& transform, FixPixel* const* planes, int width, int height) {
    fork_rows_if_big_image(width, height, [&](int first, int rows) {
        for (int y = first; y < first + rows; ++y) {
            if ((y & 63) == 0 && poll_abort()) return;
            FixPixel* line[4] = {};
            for (int c = 0; c < transform.look_up.elements; ++c) line[c] = planes[c] + ptrdiff_t{y} * width;
            transform_line(transform, 0, y, line, width);
        }
    });
}

void mipmap_fill_from_planes(const Mipmap& map, const FixPixel* const* planes) {
    const auto pitch = static_cast<size_t>(map.top_w);
    auto* const samples = frame_array<int32_t>(4 * pitch);
    for (int y = 0; y < map.top_h; ++y) {
        const int32_t* lines[4] = {};
        for (int c = 0; c < map.elements; ++c) {
            int32_t* const line = samples + static_cast<size_t>(c) * pitch;
            line_rows().samples_to_line(planes[c] + ptrdiff_t{y} * map.top_w, line, map.top_w);
            lines[c] = line;
        }
        mipmap_set_row(map, y, 0, lines, map.top_w);
    }
    frame_free(samples);
    mipmap_fill_levels(map);
}

}  // namespace velloran
