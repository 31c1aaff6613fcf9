// Pass-through rules: which argument of a node has the value that the node would compute.
//
// A rule looks at the node's effective arguments (Node::args), which are settled: their constants, element counts and
// types. It answers an argument index, or -1 if the node has to be evaluated. Host thread only; cannot fail. Arguments
// are counted from 0; a value is 0 or 1 if all of its four padded elements are.
#pragma once

namespace velloran {

struct Node;

// For functions of several names.
int pass_always(Node* node);       // 0
int pass_scalar(Node* node);       // 0 if it has one element
int pass_same_elnum(Node* node);   // 0 if it has as many elements as the node
int pass_unmoved(Node* node);      // 0 if 1 is 0
int pass_sum(Node* node);          // the other summand of a 0
int pass_difference(Node* node);   // 0 if 1 is 0
int pass_product(Node* node);      // the other factor of a 1; a zero factor passes the zero itself
int pass_quotient(Node* node);     // 0 if it is 0 or 1 is 1
int pass_zero_factor(Node* node);  // whichever is 0

// For the functions that they are named after.
int pass_blur(Node* node);
int pass_comp_rgba1(Node* node);
int pass_corner_pin(Node* node);
int pass_deband(Node* node);
int pass_dir_blur(Node* node);
int pass_dirt(Node* node);            // stains, dust
int pass_difference_rgb(Node* node);  // the rules for light alone: alpha stays what it was
int pass_dissolve(Node* node);
int pass_hairs(Node* node);
int pass_if_eq(Node* node);
int pass_if_greater(Node* node);
int pass_if_greater_coerce(Node* node);
int pass_if_has_alpha(Node* node);
int pass_if_positive(Node* node);
int pass_if_positive_coerce(Node* node);
int pass_interp(Node* node);
int pass_masked_dir_blur(Node* node);
int pass_multiply_add(Node* node);
int pass_no_pass_vars(Node* node);
int pass_noise2(Node* node);
int pass_posterize(Node* node);
int pass_product_rgb(Node* node);
int pass_sat_scale(Node* node);
int pass_screen(Node* node);
int pass_screen_clamp(Node* node);
int pass_sum_rgb(Node* node);
int pass_v3_to_v4_if4(Node* node);
int pass_v3_to_v4_if4_a(Node* node);
int pass_warp(Node* node);

}  // namespace velloran
