// Making values from elements, taking them apart, coercing them to other element counts. Of two elements the first is
// luma and the second alpha wherever a colour is meant.
#include "operators/pixel/node_rows.h"
#include "operators/pixel/pixel_funs.h"

namespace velloran {
namespace {

// Every function here writes the last element first: an output line may be the memory of an argument's line of the same
// element, and what an element reads lies at its own index or below.
void copy_elements(Node* node, Line (*source)(const Node*, int element)) {
    for (int e = node->elnum - 1; e >= 0; --e) copy_line(node->lines[e], source(node, e));
}

// Element of a colour, of whatever element count the argument is: luma stands for each of red, green and blue.
Line color_line(const Node* node, int arg, int element) {
    return arg_line(node, arg, element < 3 && arg_elnum(node, arg) == 2 ? 0 : element);
}

// Writes the alpha of argument arg, else its luma, into out; a single number stands for itself.
void alpha_or_luma(Node* node, int arg, int32_t* out) {
    const int elnum = arg_elnum(node, arg);
    if (elnum != 3) {
        copy_line(out, arg_line(node, arg, elnum == 1 ? 0 : elnum - 1));
        return;
    }
    const Line in[3] = {arg_line(node, arg, 0), arg_line(node, arg, 1), arg_line(node, arg, 2)};
    static constexpr int counts[1] = {3};
    run_row(row_luma, in, counts, 1, &out, 1);
}

// Luma of argument arg into out.
void luma(Node* node, int arg, int32_t* out) {
    if (arg_elnum(node, arg) < 3) {
        copy_line(out, arg_line(node, arg, 0));
        return;
    }
    const Line in[3] = {arg_line(node, arg, 0), arg_line(node, arg, 1), arg_line(node, arg, 2)};
    static constexpr int counts[1] = {3};
    run_row(row_luma, in, counts, 1, &out, 1);
}

// Colour with a given alpha, as many elements of it as the node has. In two elements the second is the alpha.
void with_alpha(Node* node) {
    const int n = node->elnum;
    if (n == 4) alpha_or_luma(node, 1, node->lines[3]);
    if (n == 2) alpha_or_luma(node, 1, node->lines[1]);
    for (int e = n == 2 ? 0 : n == 4 ? 2 : n - 1; e >= 0; --e) copy_line(node->lines[e], color_line(node, 0, e));
}

// The promotions and demotions of coerce_to and its sisters. A single number fills all elements; luma and alpha keep
// their meaning; a colour without alpha gets 1.0.
Line coerced(const Node* node, int element) {
    const int from = arg_elnum(node, 0), to = node->elnum;
    const bool is_alpha = (to == 4 && element == 3) || (to == 2 && element == 1);
    if (from == 1) return arg_line(node, 0, 0);
    if (is_alpha) return from == 3 ? one_line() : arg_line(node, 0, from - 1);
    return color_line(node, 0, element);
}
// The same, but a single number becomes an opaque grey.
Line coerced_opaque(const Node* node, int element) {
    const int to = node->elnum;
    const bool is_alpha = (to == 4 && element == 3) || (to == 2 && element == 1);
    return is_alpha && arg_elnum(node, 0) == 1 ? one_line() : coerced(node, element);
}
// A single number from a colour is its luma.
void coerce(Node* node) {
    if (node->elnum == 1) {
        luma(node, 0, node->lines[0]);
    } else {
        copy_elements(node, coerced);
    }
}

Line same_element(const Node* node, int element) { return arg_line(node, 0, element); }
Line element_of_arg(const Node* node, int element) { return arg_line(node, element, 0); }

void run_by_elnum(Node* node, const RowId (&ids)[3]) {
    const int n = arg_elnum(node, 0);
    if (n == 1) {
        copy_line(node->lines[0], arg_line(node, 0, 0));
        return;
    }
    run_vectors(node, ids[n - 2], &n, 1, 1);
}

}  // namespace

void pixel_v2(Node* node) { copy_elements(node, element_of_arg); }
void pixel_v3(Node* node) { copy_elements(node, element_of_arg); }
void pixel_v4(Node* node) { copy_elements(node, element_of_arg); }

void pixel_element_of(Node* node) {
    const int counts[2] = {arg_elnum(node, 0), node->elnum};
    run_vectors(node, static_cast<RowId>(row_element + 4 * (counts[0] - 1) + counts[1] - 1), counts, 2, counts[1]);
}

void pixel_v3_to_v4(Node* node) { with_alpha(node); }
void pixel_v3_to_v4_if4(Node* node) { with_alpha(node); }
// To a single number the alpha alone is left of a single number with alpha.
void pixel_v3_to_v4_if4_a(Node* node) {
    if (node->elnum == 1) {
        alpha_or_luma(node, 1, node->lines[0]);
    } else {
        with_alpha(node);
    }
}

// alpha = max(r, g, b) * scale, held to 0 .. 1.
void pixel_alpha_from_rgb_max_v4(Node* node) {
    if (arg_elnum(node, 0) == 1) {
        const Line in[2] = {arg_line(node, 0, 0), arg_line(node, 1, 0)};
        run_element(node, row_scale_clamp, 3, in, 2);
    } else {
        const Line in[4] = {arg_line(node, 0, 0), arg_line(node, 0, 1), arg_line(node, 0, 2), arg_line(node, 1, 0)};
        static constexpr int counts[2] = {3, 1};
        run_row(row_max_scale_clamp, in, counts, 2, &node->lines[3], 1);
    }
    for (int e = 2; e >= 0; --e) copy_line(node->lines[e], arg_line(node, 0, e));
}
void pixel_alpha_from_rgb_max(Node* node) {
    if (node->elnum == 4) {
        pixel_alpha_from_rgb_max_v4(node);
    } else {
        copy_elements(node, same_element);
    }
}

void pixel_coerce_to_v3(Node* node) { copy_elements(node, coerced); }
void pixel_coerce_up_to_v3(Node* node) { copy_elements(node, coerced); }
void pixel_coerce_to_v4(Node* node) { copy_elements(node, coerced); }
void pixel_coerce_up(Node* node) { coerce(node); }
void pixel_coerce_up_a1(Node* node) { copy_elements(node, coerced_opaque); }
void pixel_coerce_to(Node* node) { coerce(node); }
void pixel_coerce_to_alpha(Node* node) { alpha_or_luma(node, 0, node->lines[0]); }

void pixel_get_alpha(Node* node) {
    const int n = arg_elnum(node, 0);
    copy_line(node->lines[0], n == 2 || n == 4 ? arg_line(node, 0, n - 1) : one_line());
}
void pixel_get_alpha_or_luma(Node* node) { alpha_or_luma(node, 0, node->lines[0]); }
void pixel_remove_alpha(Node* node) { copy_elements(node, same_element); }

void pixel_max_element(Node* node) { run_by_elnum(node, {row_max_element2, row_max_element3, row_max_element4}); }
void pixel_min_element(Node* node) { run_by_elnum(node, {row_min_element2, row_min_element3, row_min_element4}); }
void pixel_ave_element(Node* node) { run_by_elnum(node, {row_ave_element2, row_ave_element3, row_ave_element4}); }

void pixel_transpose(Node* node) {
    static constexpr int counts[1] = {2};
    run_vectors(node, row_transpose, counts, 1, 2);
}

// Functions for the sake of what the compiler does about them; the value passes through.
void pixel_force_no_cache(Node* node) { copy_elements(node, same_element); }
void pixel_no_pass_vars(Node* node) { copy_elements(node, same_element); }
void pixel_copy(Node* node) { copy_elements(node, same_element); }

void pixel_monochrome(Node* node) { luma(node, 0, node->lines[0]); }
void pixel_monochrome_a(Node* node) {
    // The luma first: it reads the line that the alpha may be written to, and not the other way round.
    luma(node, 0, node->lines[0]);
    if (node->elnum == 2) copy_line(node->lines[1], arg_line(node, 0, arg_elnum(node, 0) - 1));
}

}  // namespace velloran
