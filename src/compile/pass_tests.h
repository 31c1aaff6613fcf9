// What pass-through rules ask of a node's arguments. Constants are padded to four elements, and a 3-vector is padded
// with 1.0: so [0 0 0] is not zero here, and [1 1 1] is one. That keeps a colour without alpha from passing where alpha
// would be lost.
#pragma once

#include "records/node.h"

#include <cstdint>

namespace velloran::pass {

constexpr int none = -1;

inline bool arg_constant_p(const Node* node, int i) { return is_constant(node->args[i]); }

template <class Test>
bool all_elements(const Node* node, int i, Test test) {
    if (!arg_constant_p(node, i)) return false;
    for (const int32_t v : node->args[i]->vals) {
        if (!test(v)) return false;
    }
    return true;
}

inline bool is_zero(const Node* node, int i) {
    return all_elements(node, i, [](int32_t v) { return v == 0; });
}

inline bool is_one(const Node* node, int i) {
    return all_elements(node, i, [](int32_t v) { return v == fix_scale; });
}

// How arguments a and b, both constant, compare in all four elements.
enum class Agreement { not_constant, all, no_element, mixed };

template <class Test>
Agreement compare(const Node* node, int a, int b, Test test) {
    if (!arg_constant_p(node, a) || !arg_constant_p(node, b)) return Agreement::not_constant;
    int n = 0;
    for (int e = 0; e < 4; ++e) n += test(node->args[a]->vals[e], node->args[b]->vals[e]);
    return n == 4 ? Agreement::all : n == 0 ? Agreement::no_element : Agreement::mixed;
}

inline bool equal_constants(const Node* node, int a, int b) {
    return compare(node, a, b, [](int32_t v, int32_t w) { return v == w; }) == Agreement::all;
}

// First element of a constant argument; false if it varies.
inline bool first_value(const Node* node, int i, int64_t* value) {
    if (!arg_constant_p(node, i)) return false;
    *value = node->args[i]->vals[0];
    return true;
}

inline bool first_value_is(const Node* node, int i, int64_t value) {
    int64_t v;
    return first_value(node, i, &v) && v == value;
}

inline int elnum_of(const Node* node, int i) { return node->args[i]->elnum; }

}  // namespace velloran::pass
