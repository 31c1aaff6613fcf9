#include "operators/pixel/pixel_rules.h"

#include "compile/pass_tests.h"
#include "records/frame.h"
#include "records/rinfo.h"

#include <algorithm>
#include <cstdlib>

namespace velloran {

using namespace pass;

namespace {

// Whether a function that works on light alone takes its alpha, if it has one, from argument i.
bool alpha_comes_from(const Node* node, int i) { return node->elnum % 2 == 1 || i == (elnum_of(node, 0) == 1 ? 1 : 0); }

// A constant of fewer elements counts 1.0 as its fourth in a branch; elsewhere a single number or two repeat the last.
int passed_branch(const Node* node, int i) {
    if (i < 0 || !arg_constant_p(node, i) || node->elnum < 4 || elnum_of(node, i) == 4) return i;
    return node->args[i]->vals[3] == fix_scale ? i : none;
}

int choose_branch(Agreement agreement) {
    return agreement == Agreement::all ? 2 : agreement == Agreement::no_element ? 3 : none;
}

}  // namespace

int pass_sum(Node* n) { return is_zero(n, 1) ? 0 : is_zero(n, 0) ? 1 : none; }

int pass_sum_rgb(Node* n) {
    if (is_zero(n, 1) && alpha_comes_from(n, 0)) return 0;
    return is_zero(n, 0) && alpha_comes_from(n, 1) ? 1 : none;
}

int pass_difference(Node* n) { return is_zero(n, 1) ? 0 : none; }

int pass_difference_rgb(Node* n) { return is_zero(n, 1) && alpha_comes_from(n, 0) ? 0 : none; }

// A zero factor passes the zero itself.
int pass_product(Node* n) {
    if (is_zero(n, 0)) return 0;
    if (is_zero(n, 1)) return 1;
    if (is_one(n, 1)) return 0;
    return is_one(n, 0) ? 1 : none;
}

const char* hint_product(const Node* node) {
    const auto number_p = [](const Node& factor) { return factor.type == node_constant && !factor.name; };
    for (int i = 0; i < 2; ++i) {
        const Node &factor = *node->args[i], &other = *node->args[1 - i];
        if (!number_p(factor) || number_p(other)) continue;
        if (std::any_of(factor.vals, factor.vals + 4, [](int32_t v) { return std::abs(v) >= 128 * fix_scale; }))
            return "a product wraps round where it exceeds 128, and with this number nearly all do.";
    }
    return nullptr;
}

int pass_product_rgb(Node* n) {
    for (int p = 0; p < 2; ++p)
        if (is_zero(n, p) && alpha_comes_from(n, p)) return p;
    for (int p = 0; p < 2; ++p)
        if (is_one(n, 1 - p) && alpha_comes_from(n, p)) return p;
    return none;
}

int pass_quotient(Node* n) { return is_zero(n, 0) || is_one(n, 1) ? 0 : none; }

int pass_zero_factor(Node* n) { return is_zero(n, 0) ? 0 : is_zero(n, 1) ? 1 : none; }

int pass_screen(Node* n) {
    if (is_zero(n, 1)) return 0;
    if (is_zero(n, 0) || is_one(n, 1)) return 1;
    return is_one(n, 0) ? 0 : none;
}

// Values are first held to 0 .. 1, so a value that varies cannot be told to stay as it is.
int pass_screen_clamp(Node* n) {
    const int p = pass_screen(n);
    return p >= 0 && all_elements(n, p, [](int32_t v) { return v >= 0 && v <= fix_scale; }) ? p : none;
}

int pass_multiply_add(Node* n) {
    if (is_zero(n, 0) || is_zero(n, 1)) return 2;
    if (!is_zero(n, 2)) return none;
    return is_one(n, 1) ? 0 : is_one(n, 0) ? 1 : none;
}

int pass_interp(Node* n) {
    if (is_zero(n, 2)) return 0;
    if (is_one(n, 2)) return 1;
    if (equal_constants(n, 0, 1)) return 0;
    return is_zero(n, 0) && is_one(n, 1) ? 2 : none;
}

int pass_dissolve(Node* n) {
    if (all_elements(n, 2, [](int32_t v) { return v <= 0; })) return 0;
    if (all_elements(n, 2, [](int32_t v) { return v >= fix_scale; })) return 1;
    return equal_constants(n, 0, 1) ? 0 : none;
}

int pass_comp_rgba1(Node* n) { return elnum_of(n, 1) < 4 ? 1 : none; }

int pass_if_positive(Node* n) {
    if (all_elements(n, 0, [](int32_t v) { return v > 0; })) return 1;
    return all_elements(n, 0, [](int32_t v) { return v <= 0; }) ? 2 : none;
}

int pass_if_positive_coerce(Node* n) { return passed_branch(n, pass_if_positive(n)); }

int pass_if_greater(Node* n) {
    return choose_branch(compare(n, 0, 1, [](int32_t v, int32_t w) { return v > w; }));
}

int pass_if_greater_coerce(Node* n) { return passed_branch(n, pass_if_greater(n)); }

int pass_if_eq(Node* n) {
    return choose_branch(compare(n, 0, 1, [](int32_t v, int32_t w) { return v == w; }));
}

int pass_if_has_alpha(Node* n) { return elnum_of(n, 0) == 2 || elnum_of(n, 0) == 4 ? 1 : 2; }

int pass_posterize(Node* n) { return is_zero(n, 1) || is_one(n, 2) ? 0 : none; }

int pass_v3_to_v4_if4(Node* n) { return elnum_of(n, 2) % 2 == 1 ? 0 : none; }

int pass_v3_to_v4_if4_a(Node* n) {
    if (elnum_of(n, 2) == 3) return 0;
    return elnum_of(n, 0) == 1 && elnum_of(n, 2) == 1 ? 1 : none;
}

int pass_no_pass_vars(Node* n) {
    if (is_zero(n, 1)) return 0;
    return n->args[0]->type == node_var ? none : 0;
}

int pass_sat_scale(Node* n) { return is_one(n, 1) || elnum_of(n, 0) < 3 ? 0 : none; }

// Corners where the frame has them.
int pass_corner_pin(Node* n) {
    if (the_frame->render_info.full_ren.w <= 0) return none;
    const RasterRect& frame = the_frame->render_info.full_ren;
    const int32_t r =
        float_to_fix(static_cast<float>(frame.h) / static_cast<float>(frame.w) * the_frame->pixel_aspect_ratio);
    const int32_t corners[4][2] = {{-fix_scale, -r}, {fix_scale, -r}, {fix_scale, r}, {-fix_scale, r}};
    for (int i = 0; i < 4; ++i) {
        if (!arg_constant_p(n, i + 1)) return none;
        const int32_t* corner = n->args[i + 1]->vals;
        if (corner[0] != corners[i][0] || corner[1] != corners[i][1]) return none;
    }
    return 0;
}

}  // namespace velloran
