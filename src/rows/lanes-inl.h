// The arithmetic that row bodies are written in, once per instruction set: I is a register of 32-bit integers, F one of
// floats, and a body reads like the formula for one sample. Every operation here gives the same bits on every target:
// no fused multiply-add, no estimates, conversions hold at the ends of the range.
//
// A body is a record with
//     using Args = Shape<elements of argument 0, elements of argument 1, ...>;
//     static constexpr int results = ...;
//     static HWY_INLINE void run(const I* in, I* out);
// or, where the line has numbers of its own,
//     struct State { F ...; HWY_INLINE explicit State(const float* params); };
//     static HWY_INLINE void run(const I* in, I* out, const State& state);
// add_row<Body>() puts its kernels for all patterns of constant arguments into a row of a table. A kernel keeps
// constant arguments in registers, so the compiler takes what depends on them alone out of the loop.
//
// Registers are members of records, so targets whose vectors have no size at compile time are not supported.

#if defined(VELLORAN_PIXEL_LANES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef VELLORAN_PIXEL_LANES_INL_H
#undef VELLORAN_PIXEL_LANES_INL_H
#else
#define VELLORAN_PIXEL_LANES_INL_H
#endif

#include "hwy/highway.h"
#include "rows/row_patterns.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using DI = hn::ScalableTag<int32_t>;
using DF = hn::ScalableTag<float>;
constexpr int lane_count = static_cast<int>(hn::MaxLanes(DI()));

struct MI {
    hn::Mask<DI> m;
};
struct MF {
    hn::Mask<DF> m;
};

struct I {
    hn::Vec<DI> v;
    I() = default;
    HWY_INLINE I(hn::Vec<DI> x) : v(x) {}
    HWY_INLINE I(int32_t x) : v(hn::Set(DI(), x)) {}
};

struct F {
    hn::Vec<DF> v;
    F() = default;
    HWY_INLINE F(hn::Vec<DF> x) : v(x) {}
    HWY_INLINE F(float x) : v(hn::Set(DF(), x)) {}
};

HWY_INLINE I operator+(I a, I b) { return hn::Add(a.v, b.v); }
HWY_INLINE I operator-(I a, I b) { return hn::Sub(a.v, b.v); }
HWY_INLINE I operator-(I a) { return hn::Sub(hn::Zero(DI()), a.v); }
HWY_INLINE I operator*(I a, I b) { return hn::Mul(a.v, b.v); }
HWY_INLINE I operator&(I a, I b) { return hn::And(a.v, b.v); }
HWY_INLINE I operator|(I a, I b) { return hn::Or(a.v, b.v); }
HWY_INLINE I operator^(I a, I b) { return hn::Xor(a.v, b.v); }
template <int bits>
HWY_INLINE I shr(I a) {
    return hn::ShiftRight<bits>(a.v);
}
template <int bits>
HWY_INLINE I shl(I a) {
    return hn::ShiftLeft<bits>(a.v);
}
HWY_INLINE MI operator<(I a, I b) { return {hn::Lt(a.v, b.v)}; }
HWY_INLINE MI operator>(I a, I b) { return {hn::Gt(a.v, b.v)}; }
HWY_INLINE MI operator==(I a, I b) { return {hn::Eq(a.v, b.v)}; }
HWY_INLINE bool any(MI m) { return !hn::AllFalse(DI(), m.m); }
HWY_INLINE I select(MI m, I yes, I no) { return hn::IfThenElse(m.m, yes.v, no.v); }
HWY_INLINE I min(I a, I b) { return hn::Min(a.v, b.v); }
HWY_INLINE I max(I a, I b) { return hn::Max(a.v, b.v); }
// Without sign; the lowest number stays as it is.
HWY_INLINE I abs(I a) {
    const I m = shr<31>(a);
    return (a ^ m) - m;
}
// Product of two samples: 32 bits, wrapping, shifted arithmetically.
HWY_INLINE I fmul(I a, I b) { return shr<12>(a * b); }

HWY_INLINE F operator+(F a, F b) { return hn::Add(a.v, b.v); }
HWY_INLINE F operator-(F a, F b) { return hn::Sub(a.v, b.v); }
HWY_INLINE F operator-(F a) { return hn::Neg(a.v); }
HWY_INLINE F operator*(F a, F b) { return hn::Mul(a.v, b.v); }
HWY_INLINE F operator/(F a, F b) { return hn::Div(a.v, b.v); }
HWY_INLINE MF operator<(F a, F b) { return {hn::Lt(a.v, b.v)}; }
HWY_INLINE MF operator>(F a, F b) { return {hn::Gt(a.v, b.v)}; }
HWY_INLINE MF operator>=(F a, F b) { return {hn::Ge(a.v, b.v)}; }
HWY_INLINE MF operator==(F a, F b) { return {hn::Eq(a.v, b.v)}; }
HWY_INLINE F select(MF m, F yes, F no) { return hn::IfThenElse(m.m, yes.v, no.v); }
// No operand of min and max is ever a NaN: bodies divide only by what they made sure is not 0.
HWY_INLINE F min(F a, F b) { return hn::Min(a.v, b.v); }
HWY_INLINE F max(F a, F b) { return hn::Max(a.v, b.v); }
HWY_INLINE F clamp(F a, F lo, F hi) { return min(max(a, lo), hi); }
HWY_INLINE F abs(F a) { return hn::Abs(a.v); }
HWY_INLINE F sqrt(F a) { return hn::Sqrt(a.v); }
HWY_INLINE F floor(F a) { return hn::Floor(a.v); }
HWY_INLINE F round(F a) { return hn::Round(a.v); }
// a with the sign of b; a is not negative.
HWY_INLINE F with_sign(F a, F b) { return hn::CopySignToAbs(a.v, b.v); }

HWY_INLINE F number(I a) { return hn::ConvertTo(DF(), a.v); }
HWY_INLINE I bits_of(F a) { return hn::BitCast(DI(), a.v); }
HWY_INLINE F float_of_bits(I a) { return hn::BitCast(DF(), a.v); }
// Truncates and holds at the ends of the range; a NaN counts as 0.
HWY_INLINE I whole(F a) { return hn::ConvertTo(DI(), hn::IfThenElseZero(hn::Eq(a.v, a.v), a.v)); }

// Between samples and floats.
HWY_INLINE F real(I a) { return number(a) * F(1.0f / 4096.0f); }
HWY_INLINE I fix(F a) { return whole(a * F(4096.0f)); }

// Op on the numbers as doubles, where 32 bits do not hold what is between; the result is truncated and held to 32 bits.
template <class Op>
HWY_INLINE I in_double(I a, I b) {
#if HWY_TARGET == HWY_SCALAR
    const hn::Sisd<double> dd;
    return hn::DemoteTo(DI(), Op::run(dd, hn::PromoteTo(dd, a.v), hn::PromoteTo(dd, b.v)));
#else
    const hn::Half<DI> half;
    const hn::Rebind<double, hn::Half<DI>> dd;
    const auto low =
        Op::run(dd, hn::PromoteTo(dd, hn::LowerHalf(half, a.v)), hn::PromoteTo(dd, hn::LowerHalf(half, b.v)));
    const auto high =
        Op::run(dd, hn::PromoteTo(dd, hn::UpperHalf(half, a.v)), hn::PromoteTo(dd, hn::UpperHalf(half, b.v)));
    return hn::Combine(DI(), hn::DemoteTo(half, high), hn::DemoteTo(half, low));
#endif
}

template <int... elements>
struct Shape {
    static constexpr int arg_count = sizeof...(elements);
    static constexpr int input_count = (elements + ...);
    static constexpr int arg_of_input(int input) {
        const int counts[] = {elements...};
        int arg = 0;
        for (int end = counts[0]; input >= end; end += counts[++arg]) {
        }
        return arg;
    }
};

struct NoState {
    HWY_INLINE explicit NoState(const float*) {}
};
template <class Body, class = void>
struct StateOf {
    using type = NoState;
    static HWY_INLINE void run(const I* in, I* out, const NoState&) { Body::run(in, out); }
};
template <class Body>
struct StateOf<Body, std::void_t<typename Body::State>> {
    using type = typename Body::State;
    static HWY_INLINE void run(const I* in, I* out, const type& state) { Body::run(in, out, state); }
};

template <class Body, unsigned constants>
struct Kernel {
    using Args = typename Body::Args;
    static constexpr int inputs = Args::input_count;
    static constexpr int results = Body::results;
    template <size_t k>
    static constexpr bool constant = ((constants >> Args::arg_of_input(k)) & 1) != 0;

    template <size_t k>
    static HWY_INLINE I first(const int32_t* const* in) {
        return constant<k> ? I(*in[k]) : I(0);
    }
    template <size_t k>
    static HWY_INLINE I load(const int32_t* const* in, const I* fixed, int x) {
        if constexpr (constant<k>) {
            return fixed[k];
        } else {
            return I(hn::LoadU(DI(), in[k] + x));
        }
    }
    // The last samples, fewer than a register holds.
    template <size_t k>
    static HWY_INLINE I load_end(const int32_t* const* in, const I* fixed, int x, int n) {
        if constexpr (constant<k>) {
            return fixed[k];
        } else {
            HWY_ALIGN int32_t buffer[lane_count] = {};
            std::memcpy(buffer, in[k] + x, static_cast<size_t>(n) * sizeof(int32_t));
            return I(hn::Load(DI(), buffer));
        }
    }
    static HWY_INLINE void store_end(I value, int32_t* out, int n) {
        HWY_ALIGN int32_t buffer[lane_count];
        hn::Store(value.v, DI(), buffer);
        std::memcpy(out, buffer, static_cast<size_t>(n) * sizeof(int32_t));
    }

    template <size_t... k, size_t... r>
    static HWY_INLINE void work(const int32_t* const* in, int32_t* const* out, int n, const float* params,
                                std::index_sequence<k...>, std::index_sequence<r...>) {
        const typename StateOf<Body>::type state(params);
        const I fixed[inputs] = {first<k>(in)...};
        int x = 0;
        for (; x + lane_count <= n; x += lane_count) {
            const I a[inputs] = {load<k>(in, fixed, x)...};
            I b[results];
            StateOf<Body>::run(a, b, state);
            (hn::StoreU(b[r].v, DI(), out[r] + x), ...);
        }
        if (x < n) {
            const I a[inputs] = {load_end<k>(in, fixed, x, n - x)...};
            I b[results];
            StateOf<Body>::run(a, b, state);
            (store_end(b[r], out[r] + x, n - x), ...);
        }
    }
    static void row(const int32_t* const* in, int32_t* const* out, int n, const float* params) {
        // The pointers are copied so that no store can be taken to change them.
        const int32_t* in_lines[inputs];
        int32_t* out_lines[results];
        for (int k = 0; k < inputs; ++k) in_lines[k] = in[k];
        for (int r = 0; r < results; ++r) out_lines[r] = out[r];
        work(in_lines, out_lines, n, params, std::make_index_sequence<inputs>(), std::make_index_sequence<results>());
    }
};

template <class Body, size_t... pattern>
void add_patterns(RowPatterns& row, std::index_sequence<pattern...>) {
    ((row[pattern] = Kernel<Body, pattern>::row), ...);
}
template <class Body>
void add_row(RowPatterns& row) {
    constexpr size_t patterns = size_t{1} << Body::Args::arg_count;
    static_assert(patterns <= row_pattern_count);
    add_patterns<Body>(row, std::make_index_sequence<patterns - 1>());
}
// A row whose first argument alone varies within a line, or all do.
template <class Body>
void add_row_of_params(RowPatterns& row) {
    add_patterns<Body>(row, std::index_sequence<0>());
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();

#endif  // toggle
