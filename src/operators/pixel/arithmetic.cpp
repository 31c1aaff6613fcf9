// Arithmetic, blends, compositing and branches: element by element.
#include "operators/pixel/node_rows.h"
#include "operators/pixel/pixel_funs.h"

#include <algorithm>

namespace velloran {

void pixel_abs(Node* node) { run_elements(node, row_abs); }
void pixel_negate(Node* node) { run_elements(node, row_negate); }
void pixel_one_minus(Node* node) { run_elements(node, row_one_minus); }
void pixel_add(Node* node) { run_elements(node, row_add); }
void pixel_subtract(Node* node) { run_elements(node, row_subtract); }
void pixel_diff(Node* node) { run_elements(node, row_diff); }
void pixel_multiply(Node* node) { run_elements(node, row_multiply); }
void pixel_divide(Node* node) { run_elements(node, row_divide); }
void pixel_mod(Node* node) { run_elements(node, row_mod); }
void pixel_bounce(Node* node) { run_elements(node, row_bounce); }
void pixel_round(Node* node) { run_elements(node, row_round); }
void pixel_min(Node* node) { run_elements(node, row_min); }
void pixel_max(Node* node) { run_elements(node, row_max); }
// The numbers' bits: of whole numbers and of 0 and 1 as truth values this is logic, of pictures a look.
void pixel_xor(Node* node) { run_elements(node, row_xor); }
void pixel_and(Node* node) { run_elements(node, row_and); }
void pixel_or(Node* node) { run_elements(node, row_or); }
void pixel_screen(Node* node) { run_elements(node, row_screen); }
void pixel_screen_clamp(Node* node) { run_elements(node, row_screen_clamp); }
void pixel_overlay(Node* node) { run_elements(node, row_overlay); }
void pixel_clamp(Node* node) { run_elements(node, row_clamp); }
void pixel_multiply_add(Node* node) { run_elements(node, row_multiply_add); }
void pixel_interp(Node* node) { run_elements(node, row_interp); }
void pixel_dissolve(Node* node) { run_elements(node, row_dissolve); }
void pixel_posterize(Node* node) { run_elements(node, row_posterize); }

void pixel_sin(Node* node) { run_elements(node, row_sin); }
void pixel_cos(Node* node) { run_elements(node, row_cos); }
void pixel_nsin(Node* node) { run_elements(node, row_nsin); }
void pixel_ncos(Node* node) { run_elements(node, row_ncos); }
void pixel_sqrt(Node* node) { run_elements(node, row_sqrt); }
void pixel_expt(Node* node) { run_elements(node, row_expt); }
void pixel_log(Node* node) { run_elements(node, row_log); }
void pixel_atan(Node* node) { run_elements(node, row_atan); }

namespace {

enum CompArg : int { arg_back, arg_front };

// Works on light alone. The alpha, the last of two or four elements, is the first argument's, or the second's where the
// first is a single number.
void run_rgb(Node* node, RowId id) {
    const int n = node->elnum;
    const bool has_alpha = n == 2 || n == 4;
    for (int e = n - 1; e >= 0; --e) {
        if (has_alpha && e == n - 1) {
            copy_line(node->lines[e], arg_line_or_one(node, arg_elnum(node, 0) == 1 ? 1 : 0, e));
            continue;
        }
        const Line in[2] = {arg_line(node, 0, e), arg_line(node, 1, e)};
        run_element(node, id, e, in, 2);
    }
}

}  // namespace

void pixel_add_rgb(Node* node) { run_rgb(node, row_add); }
void pixel_subtract_rgb(Node* node) { run_rgb(node, row_subtract); }
void pixel_scale_rgb(Node* node) { run_rgb(node, row_multiply); }

void pixel_comp_premult(Node* node) { run_elements(node, row_comp_premult); }

// Front over back, both premultiplied (Porter and Duff, "Compositing Digital Images", SIGGRAPH 1984). A front without
// alpha is opaque; a single number is light and coverage at once.
void pixel_comp_rgba(Node* node) {
    const int front_elnum = arg_elnum(node, arg_front);
    if (front_elnum == 4) {
        Line in[8];
        for (int e = 0; e < 3; ++e) {
            in[e] = arg_line(node, arg_back, e);
            in[4 + e] = arg_line(node, arg_front, e);
        }
        in[3] = arg_line_or_one(node, arg_back, 3);
        in[7] = arg_line(node, arg_front, 3);
        static constexpr int counts[4] = {3, 1, 3, 1};
        run_row(row_comp_rgba, in, counts, 4, node->lines, 4);
        return;
    }
    for (int e = node->elnum - 1; e >= 0; --e) {
        if (front_elnum == 1) {
            const Line front = arg_line(node, arg_front, 0);
            const Line in[3] = {arg_line_or_one(node, arg_back, e), front, front};
            run_element(node, row_comp_premult, e, in, 3);
        } else {
            copy_line(node->lines[e], arg_line_or_one(node, arg_front, e));
        }
    }
}
// A front without alpha replaces the back.
void pixel_comp_rgba1(Node* node) {
    if (arg_elnum(node, arg_front) == 4) {
        pixel_comp_rgba(node);
        return;
    }
    for (int e = node->elnum - 1; e >= 0; --e) copy_line(node->lines[e], arg_line(node, arg_front, e));
}

namespace {

// A branch that is shorter than a colour with alpha counts 1.0 as its fourth element.
Line branch_line(const Node* node, int arg, int element) {
    return element == 3 && arg_elnum(node, arg) < 4 ? one_line() : arg_line(node, arg, element);
}

void run_branches(Node* node, RowId id, int tests, bool (*taken)(int32_t, int32_t)) {
    for (int e = node->elnum - 1; e >= 0; --e) {
        Line in[4];
        bool constant = true;
        for (int a = 0; a < tests; ++a) {
            in[a] = arg_line(node, a, e);
            constant = constant && in[a].constant;
        }
        in[tests] = branch_line(node, tests, e);
        in[tests + 1] = branch_line(node, tests + 1, e);
        if (constant) {
            const bool yes = taken(*in[0].samples, tests > 1 ? *in[1].samples : 0);
            copy_line(node->lines[e], in[yes ? tests : tests + 1]);
        } else {
            run_element(node, id, e, in, tests + 2);
        }
    }
}
bool greater(int32_t a, int32_t b) { return a > b; }
bool equal(int32_t a, int32_t b) { return a == b; }

}  // namespace

void pixel_if_positive(Node* node) { run_branches(node, row_select, 1, greater); }
void pixel_if_positive_coerce(Node* node) { run_branches(node, row_select, 1, greater); }
void pixel_if_greater(Node* node) { run_branches(node, row_if_greater, 2, greater); }
void pixel_if_greater_coerce(Node* node) { run_branches(node, row_if_greater, 2, greater); }
void pixel_if_eq(Node* node) { run_branches(node, row_if_equal, 2, equal); }

void pixel_if_has_alpha(Node* node) {
    const int elnum = arg_elnum(node, 0);
    const int branch = elnum == 2 || elnum == 4 ? 1 : 2;
    for (int e = node->elnum - 1; e >= 0; --e) copy_line(node->lines[e], arg_line(node, branch, e));
}

}  // namespace velloran
