// Lightning between two points, and what all lightning functions share.
#include "operators/blur/filter_args.h"
#include "operators/flares/draw_flare.h"
#include "operators/lightning/bolt_rows.h"
#include "operators/lightning/lightning_functions.h"
#include "operators/lightning/zap_args.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>

namespace velloran {

namespace {

enum ZapArg : int { arg_start, arg_end, arg_vary_end, arg_bolts, arg_width_vary };

constexpr float width_unit = 0.01f;

}  // namespace

BoltLook read_bolt_look(const Node* node, int first) {
    const auto held = [&](int arg, int e, float most) {
        return std::clamp(filter_arg_float(node, first + arg, e), 0.0f, most);
    };
    BoltLook look = {};
    look.width = width_unit * held(look_width_vary, 0, 1000);
    look.width_vary = held(look_width_vary, 1, 1);
    look.end_pointiness = held(look_end_pointiness, 0, 1);
    look.start = filter_arg_float(node, first + look_start_len, 0);
    look.length = filter_arg_float(node, first + look_start_len, 1);
    look.wrinkle = held(look_wrinkle_curve, 0, 8);
    look.curve = filter_elements(node, first + look_wrinkle_curve) > 1 ? held(look_wrinkle_curve, 1, 8) : 0;
    look.branchiness = held(look_branchiness, 0, 20);
    look.branch_angle = filter_arg_float(node, first + look_branch_ang_len, 0);
    look.branch_length = held(look_branch_ang_len, 1, 8);
    look.seed = static_cast<uint32_t>(filter_arg(node, first + look_seed_phase, 0));
    look.phase = filter_arg_float(node, first + look_seed_phase, 1);
    return look;
}

int read_bolt_count(const Node* node, int i, int e) {
    return std::clamp(filter_arg(node, i, e) >> fix_bits, 0, most_bolts);
}

void finish_bolts(Node* node, BoltStrokes* all, const FixPixel* object, float show) {
    const FilterFrame frame = filter_frame();
    FixPixel* const plane = node->images[0];
    mp_memset(plane, 0, frame.bytes());
    draw_bolts(bolt_canvas(plane), *all);
    free_bolts(all);
    if (!object || show == 0) return;
    const BoltRows& rows = bolt_rows();
    fork_rows_if_big_image(frame.width, frame.height, [&](int first, int n) {
        const ptrdiff_t at = ptrdiff_t{first} * frame.width;
        rows.show(plane + at, object + at, show, n * frame.width);
    });
}

void image_zap(Node* node) {
    const BoltCanvas canvas = bolt_canvas(node->images[0]);
    const BoltLook look = read_bolt_look(node, arg_width_vary);
    const auto place = [&](int arg, float* x, float* y) {
        *x = bolt_x(canvas, sample_of_pixel(static_cast<double>(filter_arg_float(node, arg, 0))));
        *y = bolt_y(canvas, sample_of_pixel(static_cast<double>(filter_arg_float(node, arg, 1))));
    };
    BoltEnds ends = {};
    place(arg_start, &ends.ax, &ends.ay);
    place(arg_end, &ends.bx, &ends.by);
    const float vary = std::clamp(filter_arg_float(node, arg_vary_end), -8.0f, 8.0f);
    BoltStrokes all = {};
    const int n = read_bolt_count(node, arg_bolts);
    for (int i = 0; i < n && !poll_abort(); ++i) {
        BoltEnds own = ends;
        const auto number = static_cast<uint32_t>(i);
        stray(&own.bx, &own.by, vary, look, number);
        add_bolt(&all, own, look, number);
    }
    finish_bolts(node, &all, nullptr, 0);
}

}  // namespace velloran
