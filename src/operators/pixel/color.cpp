// Colour: hue, saturation, highlights.
#include "operators/pixel/node_rows.h"
#include "operators/pixel/pixel_funs.h"

namespace velloran {
namespace {

enum HotspotsArg : int { arg_value, arg_threshold };

// A kernel on red, green and blue with a number. The alpha stays; what has no colour stays as it is.
void run_color(Node* node, RowId id) {
    const int n = node->elnum;
    for (int e = n - 1; e >= (n >= 3 ? 3 : 0); --e) copy_line(node->lines[e], arg_line(node, 0, e));
    if (n < 3) return;
    static constexpr int counts[2] = {3, 1};
    run_vectors(node, id, counts, 2, 3);
}

constexpr int three[1] = {3};

}  // namespace

void pixel_rgb_to_hsv(Node* node) { run_vectors(node, row_rgb_to_hsv, three, 1, 3); }
void pixel_hsv_to_rgb(Node* node) { run_vectors(node, row_hsv_to_rgb, three, 1, 3); }
void pixel_sat_scale(Node* node) { run_color(node, row_sat_scale); }
void pixel_hue_shift(Node* node) { run_color(node, row_hue_shift); }
void pixel_hue_shift_preserve_luma(Node* node) { run_color(node, row_hue_shift_preserve_luma); }

// What lies above the threshold, colour by colour; the alpha of luma and alpha stays. A single number is measured
// against the luma of a coloured threshold.
void pixel_hotspots(Node* node) {
    const int n = node->elnum;
    if (n == 1 && arg_elnum(node, arg_threshold) == 3) {
        const Line in[4] = {arg_line(node, arg_value, 0), arg_line(node, arg_threshold, 0),
                            arg_line(node, arg_threshold, 1), arg_line(node, arg_threshold, 2)};
        static constexpr int counts[2] = {1, 3};
        run_row(row_above_luma, in, counts, 2, node->lines, 1);
        return;
    }
    for (int e = n - 1; e >= 0; --e) {
        if (n == 2 && e == 1) {
            copy_line(node->lines[1], arg_line(node, arg_value, 1));
            continue;
        }
        const Line in[2] = {arg_line(node, arg_value, e), arg_line(node, arg_threshold, e)};
        run_element(node, row_above_threshold, e, in, 2);
    }
}

}  // namespace velloran
