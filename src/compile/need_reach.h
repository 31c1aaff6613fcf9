// What rules of needed regions (need_rect.h) are made of: reaches of filters, and how they widen the arguments'
// regions.
#pragma once

#include "records/node.h"

#include <cstdint>

namespace velloran::need {

// In samples, to each side.
struct Reach {
    int64_t x, y;
};
constexpr Reach everywhere = {32767, 32767};

inline bool varies(const Node* node, int i) { return !is_constant(node->args[i]); }
inline int32_t value(const Node* node, int i, int e) { return node->args[i]->vals[e]; }
// Largest magnitude among the elements of a constant argument, at least least.
int64_t largest(const Node* node, int i, int64_t least);
// Product of two samples, held to what an amount can be.
int32_t scaled_amount(int64_t amount, int64_t scale);

// Reach of a blur by the amounts in elements 0 and 1 of argument i; a single amount counts for both axes. Everywhere if
// the argument varies.
Reach blur_arg_reach(const Node* node, int i);

// The node's region, widened, is needed of argument i, or all of the plane; nothing of a constant. On fields rows lie
// twice as far apart.
void with_reach(Node* node, int i, Reach reach);
void all_of(Node* node, int i);
// The same of the first n_images arguments; of the others the region as it is.
void filter(Node* node, int n_images, Reach reach);

}  // namespace velloran::need
