// Constants are padded to four elements, and a 3-vector is padded with 1.0: so [0 0 0] is not zero here, and [1 1 1] is
// one. That keeps a colour without alpha from passing where alpha would be lost.
#include "compile/pass_rules.h"

#include "records/node.h"
#include "records/rinfo.h"
#include "records/run_state.h"

#include <cstdlib>

namespace velloran {
namespace {

constexpr int none = -1;

bool is_constant_arg(const Node* node, int i) { return is_constant(node->args[i]); }

template <class Test>
bool all_elements(const Node* node, int i, Test test) {
    if (!is_constant_arg(node, i)) return false;
    for (const int32_t v : node->args[i]->vals) {
        if (!test(v)) return false;
    }
    return true;
}

bool is_zero(const Node* node, int i) {
    return all_elements(node, i, [](int32_t v) { return v == 0; });
}

bool is_one(const Node* node, int i) {
    return all_elements(node, i, [](int32_t v) { return v == fix_scale; });
}

// How arguments a and b, both constant, compare in all four elements.
enum class Agreement { not_constant, all, no_element, mixed };

template <class Test>
Agreement compare(const Node* node, int a, int b, Test test) {
    if (!is_constant_arg(node, a) || !is_constant_arg(node, b)) return Agreement::not_constant;
    int n = 0;
    for (int e = 0; e < 4; ++e) n += test(node->args[a]->vals[e], node->args[b]->vals[e]);
    return n == 4 ? Agreement::all : n == 0 ? Agreement::no_element : Agreement::mixed;
}

bool equal_constants(const Node* node, int a, int b) {
    return compare(node, a, b, [](int32_t v, int32_t w) { return v == w; }) == Agreement::all;
}

// First element of a constant argument; false if it varies.
bool first_value(const Node* node, int i, int64_t* value) {
    if (!is_constant_arg(node, i)) return false;
    *value = node->args[i]->vals[0];
    return true;
}

bool first_value_is(const Node* node, int i, int64_t value) {
    int64_t v;
    return first_value(node, i, &v) && v == value;
}

// value + vary / 2 <= 0: even the strongest that the variation gives is nothing.
bool never_above_zero(const Node* node, int value_arg, int vary_arg) {
    int64_t value, vary;
    return first_value(node, value_arg, &value) && first_value(node, vary_arg, &vary) && 2 * value + vary <= 0;
}

int elnum_of(const Node* node, int i) { return node->args[i]->elnum; }

// Whether a function that works on light alone takes its alpha, if it has one, from argument i.
bool alpha_comes_from(const Node* node, int i) { return node->elnum % 2 == 1 || i == (elnum_of(node, 0) == 1 ? 1 : 0); }

// A constant of fewer elements counts 1.0 as its fourth in a branch; elsewhere a single number or two repeat the last.
int passed_branch(const Node* node, int i) {
    if (i < 0 || !is_constant_arg(node, i) || node->elnum < 4 || elnum_of(node, i) == 4) return i;
    return node->args[i]->vals[3] == fix_scale ? i : none;
}

int choose_branch(Agreement agreement) {
    return agreement == Agreement::all ? 2 : agreement == Agreement::no_element ? 3 : none;
}

int unblurred(const Node* n, int amount, int scale) {
    if (!is_constant_arg(n, amount) || !first_value_is(n, scale, fix_scale)) return none;
    const int32_t* v = n->args[amount]->vals;
    return v[0] == 0 && v[1] == 0 && v[2] == 0 ? 0 : none;
}

}  // namespace

int pass_sum(Node* n) { return is_zero(n, 1) ? 0 : is_zero(n, 0) ? 1 : none; }

int pass_difference(Node* n) { return is_zero(n, 1) ? 0 : none; }

// A zero factor passes the zero itself.
int pass_product(Node* n) {
    if (is_zero(n, 0)) return 0;
    if (is_zero(n, 1)) return 1;
    if (is_one(n, 1)) return 0;
    return is_one(n, 0) ? 1 : none;
}

int pass_sum_rgb(Node* n) {
    if (is_zero(n, 1) && alpha_comes_from(n, 0)) return 0;
    return is_zero(n, 0) && alpha_comes_from(n, 1) ? 1 : none;
}

int pass_difference_rgb(Node* n) { return is_zero(n, 1) && alpha_comes_from(n, 0) ? 0 : none; }

int pass_product_rgb(Node* n) {
    for (int p = 0; p < 2; ++p)
        if (is_zero(n, p) && alpha_comes_from(n, p)) return p;
    for (int p = 0; p < 2; ++p)
        if (is_one(n, 1 - p) && alpha_comes_from(n, p)) return p;
    return none;
}

int pass_quotient(Node* n) { return is_zero(n, 0) || is_one(n, 1) ? 0 : none; }

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

int pass_dirt(Node* n) {
    constexpr int opacity = 6, vary_opacity = 7, density = 8, vary_density = 9, scale = 10, vary_scale = 11;
    return never_above_zero(n, density, vary_density) || never_above_zero(n, opacity, vary_opacity) ||
                   never_above_zero(n, scale, vary_scale)
               ? 0
               : none;
}

int pass_hairs(Node* n) {
    constexpr int opacity = 3, max_hairs = 4, scale = 7, vary_scale = 8;
    return first_value_is(n, opacity, 0) || first_value_is(n, max_hairs, 0) || never_above_zero(n, scale, vary_scale)
               ? 0
               : none;
}

int pass_same_elnum(Node* n) { return n->elnum == elnum_of(n, 0) ? 0 : none; }

int pass_scalar(Node* n) { return elnum_of(n, 0) == 1 ? 0 : none; }

int pass_v3_to_v4_if4(Node* n) { return elnum_of(n, 2) % 2 == 1 ? 0 : none; }

int pass_v3_to_v4_if4_a(Node* n) {
    if (elnum_of(n, 2) == 3) return 0;
    return elnum_of(n, 0) == 1 && elnum_of(n, 2) == 1 ? 1 : none;
}

int pass_zero_factor(Node* n) { return is_zero(n, 0) ? 0 : is_zero(n, 1) ? 1 : none; }

int pass_sat_scale(Node* n) { return is_one(n, 1) || elnum_of(n, 0) < 3 ? 0 : none; }

int pass_unmoved(Node* n) { return is_zero(n, 1) ? 0 : none; }

// Corners where the frame has them.
int pass_corner_pin(Node* n) {
    if (the_frame->render_info.full_ren.w <= 0) return none;
    const RasterRect& frame = the_frame->render_info.full_ren;
    const int32_t r =
        float_to_fix(static_cast<float>(frame.h) / static_cast<float>(frame.w) * the_frame->pixel_aspect_ratio);
    const int32_t corners[4][2] = {{-fix_scale, -r}, {fix_scale, -r}, {fix_scale, r}, {-fix_scale, r}};
    for (int i = 0; i < 4; ++i) {
        if (!is_constant_arg(n, i + 1)) return none;
        const int32_t* corner = n->args[i + 1]->vals;
        if (corner[0] != corners[i][0] || corner[1] != corners[i][1]) return none;
    }
    return 0;
}

int pass_noise2(Node* n) { return is_zero(n, 4) ? 4 : none; }

int pass_blur(Node* n) {
    if (is_zero(n, 1) && is_one(n, 3)) return 0;
    return is_zero(n, 3) ? 3 : none;
}

int pass_dir_blur(Node* n) { return unblurred(n, 1, 5); }

int pass_masked_dir_blur(Node* n) { return unblurred(n, 2, 6); }

// A warp by the unmoved position.
int pass_warp(Node* n) {
    constexpr int xy = 2;
    if (n->args[1]->type != node_var || n->args[1]->var_index != xy) return none;
    return the_frame->temp_raster_info.wrap.wrap_clipped ? none : 0;
}

int pass_always(Node*) { return 0; }

int pass_no_pass_vars(Node* n) {
    if (is_zero(n, 1)) return 0;
    return n->args[0]->type == node_var ? none : 0;
}

int pass_deband(Node* n) { return first_value_is(n, 2, 0) || first_value_is(n, 3, 0) ? 0 : none; }

}  // namespace velloran
