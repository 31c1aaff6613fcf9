#include "frame/filter_radius.h"
#include "operators/lightning/bolt_rows.h"
#include "operators/lightning/bolts.h"
#include "records/frame.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace velloran {

namespace {

// The rows first .. last of one stroke, all places in samples of the whole picture.
void draw_stroke(const BoltCanvas& canvas, const BoltRows& rows, const BoltStroke& s, int first, int last) {
    const double unit = static_cast<double>(canvas.unit), aspect = static_cast<double>(canvas.aspect);
    const double ax = static_cast<double>(s.ax) * unit, ay = static_cast<double>(s.ay) * unit / aspect;
    const double dx = static_cast<double>(s.bx) * unit - ax, dy = static_cast<double>(s.by) * unit / aspect - ay;
    const double wide = std::max(static_cast<double>(std::max(s.a_width, s.b_width)) * unit, 0.5) + 1;
    const double low = std::min(ay, ay + dy) - wide / aspect - canvas.bottom,
                 high = std::max(ay, ay + dy) + wide / aspect - canvas.bottom;
    if (!(high >= first) || !(low <= last)) return;
    const double left = std::min(ax, ax + dx) - wide - canvas.left, right = std::max(ax, ax + dx) + wide - canvas.left;
    if (!(right >= 0) || !(left <= canvas.width - 1)) return;
    const int begin = std::max(first, static_cast<int>(std::ceil(std::max(low, -1.0)))),
              end = std::min(last, static_cast<int>(std::floor(std::min(high, 1.0 * canvas.height))));
    const double whole = std::floor(ax);
    const double tall = dy * aspect, square = dx * dx + tall * tall;
    StrokeShape shape = {};
    shape.fraction = static_cast<float>(ax - whole);
    shape.dx = static_cast<float>(dx);
    shape.dy = static_cast<float>(tall);
    shape.inverse_square = square > 1e-12 ? static_cast<float>(1 / square) : 0.0f;
    shape.a_width = s.a_width * canvas.unit;
    shape.rise = (s.b_width - s.a_width) * canvas.unit;
    // On a row of its own a slanting line covers little of its width: it comes into reach of the row at one place and
    // leaves it at another, and both move evenly from row to row. A sample more at either end does no harm.
    const double x = ax - canvas.left, slope = std::abs(dy) > 1e-9 ? dx / dy : 0,
                 reach = std::abs(slope) * wide / aspect;
    const bool slants = std::abs(dy) > 1e-9;
    const double least = std::min(x, x + dx), most = std::max(x, x + dx), last_column = canvas.width - 1;
    const double at_row_0 = x + slope * (canvas.bottom - ay);
    constexpr int most_spans = 64;
    StrokeSpan spans[most_spans];
    int n_spans = 0;
    for (int y = begin; y <= end; ++y) {
        double from = left, to = right;
        if (slants) {
            const double middle = at_row_0 + slope * y;
            from = std::clamp(middle - reach, least, most) - wide;
            to = std::clamp(middle + reach, least, most) + wide;
        }
        if (!(to >= 0) || !(from <= last_column)) continue;
        const int x0 = static_cast<int>(std::max(from, 0.0)), x1 = static_cast<int>(std::min(to, last_column));
        StrokeSpan& row = spans[n_spans++];
        row.p = canvas.plane + ptrdiff_t{y} * canvas.width + x0;
        row.first = static_cast<int32_t>(x0 + canvas.left - whole);
        row.n = x1 - x0 + 1;
        row.least = -x0;
        row.most = canvas.width - x0;
        row.up = static_cast<float>((y + canvas.bottom - ay) * aspect);
        if (n_spans == most_spans) {
            rows.stroke(shape, spans, n_spans);
            n_spans = 0;
        }
    }
    if (n_spans > 0) rows.stroke(shape, spans, n_spans);
}

}  // namespace

BoltCanvas bolt_canvas(FixPixel* plane) {
    const rinfo& raster = the_frame->temp_raster_info;
    const int step = std::max(raster.render_step, 1);
    return {plane,
            raster.width,
            raster.height,
            raster.x / step,
            raster.y / step,
            std::max(static_cast<float>(filter_frame_width()) / 2.0f, 0.5f),
            the_frame->pixel_aspect_ratio > 0 ? the_frame->pixel_aspect_ratio : 1.0f};
}

float bolt_x(const BoltCanvas& canvas, double sample) {
    return static_cast<float>(std::clamp(sample / static_cast<double>(canvas.unit), -1000.0, 1000.0));
}
float bolt_y(const BoltCanvas& canvas, double sample) {
    return static_cast<float>(
        std::clamp(sample * static_cast<double>(canvas.aspect) / static_cast<double>(canvas.unit), -1000.0, 1000.0));
}

void draw_bolts(const BoltCanvas& canvas, const BoltStrokes& all) {
    const BoltRows& rows = bolt_rows();
    fork_rows_if_big_image(canvas.width, canvas.height, [&](int first, int n) {
        for (int i = 0; i < all.total_points; ++i) {
            if ((i & 1023) == 0 && poll_abort()) return;
            draw_stroke(canvas, rows, all.strokes[i], first, first + n - 1);
        }
    });
}

}  // namespace velloran
