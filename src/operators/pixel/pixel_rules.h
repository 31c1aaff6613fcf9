// Pass-through rules of the pixel functions; see compile/pass_rules.h. A value is 0 or 1 if all of its four padded
// elements are. Rules of colour functions that work on light alone pass only what has the alpha of the result.
#pragma once

namespace velloran {

struct Node;

int pass_sum(Node* node);          // the other summand of a 0
int pass_difference(Node* node);   // 0 if 1 is 0
int pass_product(Node* node);      // the other factor of a 1; a zero factor passes the zero itself
int pass_quotient(Node* node);     // 0 if it is 0 or 1 is 1
int pass_zero_factor(Node* node);  // whichever is 0
int pass_sum_rgb(Node* node);
int pass_difference_rgb(Node* node);
int pass_product_rgb(Node* node);

// What check tells of a product with a number that is 128 or more: all but a factor near 0 wrap. Null: nothing.
const char* hint_product(const Node* node);

// For the functions that they are named after.
int pass_comp_rgba1(Node* node);
int pass_corner_pin(Node* node);
int pass_dissolve(Node* node);
int pass_if_eq(Node* node);
int pass_if_greater(Node* node);
int pass_if_greater_coerce(Node* node);
int pass_if_has_alpha(Node* node);
int pass_if_positive(Node* node);
int pass_if_positive_coerce(Node* node);
int pass_interp(Node* node);
int pass_multiply_add(Node* node);
int pass_no_pass_vars(Node* node);
int pass_posterize(Node* node);
int pass_sat_scale(Node* node);
int pass_screen(Node* node);
int pass_screen_clamp(Node* node);
int pass_v3_to_v4_if4(Node* node);
int pass_v3_to_v4_if4_a(Node* node);

}  // namespace velloran
