// The arithmetic of rows/lanes-inl.h once more, for bodies that write down what they do instead of doing it: I, F and
// the masks are values of the graph in hand. What a body does is thus said in one place, the body.
#pragma once

#include "fused/value_graph.h"

#include <cstdint>

namespace velloran {
namespace recorded {

// Host's thread; set while a body runs.
extern ValueGraph* graph_in_hand;

struct MI {
    int id;
};
struct MF {
    int id;
};
struct I {
    int id;
    I() = default;
    I(int32_t number) : id(graph_in_hand->constant(number)) {}
    static I of(int id) {
        I value;
        value.id = id;
        return value;
    }
};
struct F {
    int id;
    F() = default;
    F(float number) : id(graph_in_hand->real_constant(number)) {}
    static F of(int id) {
        F value;
        value.id = id;
        return value;
    }
};

inline int make(ValueOp op, int a, int b = no_value, int c = no_value, int32_t number = 0) {
    return graph_in_hand->make(op, a, b, c, number);
}

inline I operator+(I a, I b) { return I::of(make(ValueOp::add, a.id, b.id)); }
inline I operator-(I a, I b) { return I::of(make(ValueOp::subtract, a.id, b.id)); }
inline I operator-(I a) { return I(0) - a; }
inline I operator*(I a, I b) { return I::of(make(ValueOp::multiply, a.id, b.id)); }
inline I operator&(I a, I b) { return I::of(make(ValueOp::bit_and, a.id, b.id)); }
inline I operator|(I a, I b) { return I::of(make(ValueOp::bit_or, a.id, b.id)); }
inline I operator^(I a, I b) { return I::of(make(ValueOp::bit_xor, a.id, b.id)); }
template <int bits>
I shr(I a) {
    return I::of(make(ValueOp::shift_right, a.id, no_value, no_value, bits));
}
template <int bits>
I shl(I a) {
    return I::of(make(ValueOp::shift_left, a.id, no_value, no_value, bits));
}
inline MI operator<(I a, I b) { return {make(ValueOp::greater, b.id, a.id)}; }
inline MI operator>(I a, I b) { return {make(ValueOp::greater, a.id, b.id)}; }
inline MI operator==(I a, I b) { return {make(ValueOp::equal, a.id, b.id)}; }
inline bool any(MI m) {
    const Value& value = (*graph_in_hand)[m.id];
    return value.op != ValueOp::constant || value.number;
}
inline I select(MI m, I yes, I no) { return I::of(make(ValueOp::select, m.id, yes.id, no.id)); }
inline I min(I a, I b) { return I::of(make(ValueOp::smaller, a.id, b.id)); }
inline I max(I a, I b) { return I::of(make(ValueOp::larger, a.id, b.id)); }
inline I abs(I a) { return I::of(make(ValueOp::magnitude, a.id)); }
inline I fmul(I a, I b) { return I::of(make(ValueOp::multiply_samples, a.id, b.id)); }

inline F operator+(F a, F b) { return F::of(make(ValueOp::f_add, a.id, b.id)); }
inline F operator-(F a, F b) { return F::of(make(ValueOp::f_subtract, a.id, b.id)); }
inline F operator-(F a) { return F::of(make(ValueOp::f_negate, a.id)); }
inline F operator*(F a, F b) { return F::of(make(ValueOp::f_multiply, a.id, b.id)); }
inline F operator/(F a, F b) { return F::of(make(ValueOp::f_divide, a.id, b.id)); }
inline MF operator<(F a, F b) { return {make(ValueOp::f_greater, b.id, a.id)}; }
inline MF operator>(F a, F b) { return {make(ValueOp::f_greater, a.id, b.id)}; }
inline MF operator>=(F a, F b) { return {make(ValueOp::f_greater_equal, a.id, b.id)}; }
inline MF operator==(F a, F b) { return {make(ValueOp::f_equal, a.id, b.id)}; }
inline F select(MF m, F yes, F no) { return F::of(make(ValueOp::f_select, m.id, yes.id, no.id)); }
inline F min(F a, F b) { return F::of(make(ValueOp::f_smaller, a.id, b.id)); }
inline F max(F a, F b) { return F::of(make(ValueOp::f_larger, a.id, b.id)); }
inline F clamp(F a, F lo, F hi) { return min(max(a, lo), hi); }
inline F abs(F a) { return F::of(make(ValueOp::f_magnitude, a.id)); }
inline F sqrt(F a) { return F::of(make(ValueOp::f_square_root, a.id)); }
inline F floor(F a) { return F::of(make(ValueOp::f_floor, a.id)); }
inline F round(F a) { return F::of(make(ValueOp::f_round, a.id)); }
inline F with_sign(F a, F b) { return F::of(make(ValueOp::f_with_sign, a.id, b.id)); }

inline F number(I a) { return F::of(make(ValueOp::to_float, a.id)); }
inline I bits_of(F a) { return I::of(make(ValueOp::bits_of_float, a.id)); }
inline F float_of_bits(I a) { return F::of(make(ValueOp::float_of_bits, a.id)); }
inline I whole(F a) { return I::of(make(ValueOp::to_whole, a.id)); }
inline F real(I a) { return number(a) * F(1.0f / 4096.0f); }
inline I fix(F a) { return whole(a * F(4096.0f)); }

template <class Op>
I in_double(I a, I b) {
    return I::of(graph_in_hand->opaque(a.id, b.id));
}

}  // namespace recorded
}  // namespace velloran
