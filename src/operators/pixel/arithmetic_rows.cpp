// Rows of integer arithmetic on samples of 12 fraction bits: products wrap in 32 bits and are shifted arithmetically.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/pixel/arithmetic_rows.cpp"
#include "hwy/foreach_target.h"
// After foreach_target.h.
#include "operators/pixel/row_fills-inl.h"
#include "rows/lanes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

struct Unary {
    using Args = Shape<1>;
    static constexpr int results = 1;
};
struct Binary {
    using Args = Shape<1, 1>;
    static constexpr int results = 1;
};
struct Ternary {
    using Args = Shape<1, 1, 1>;
    static constexpr int results = 1;
};
struct Quaternary {
    using Args = Shape<1, 1, 1, 1>;
    static constexpr int results = 1;
};

struct Abs : Unary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = abs(in[0]); }
};
struct Negate : Unary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = -in[0]; }
};
struct OneMinus : Unary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = I(4096) - in[0]; }
};

struct Add : Binary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = in[0] + in[1]; }
};
struct Subtract : Binary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = in[0] - in[1]; }
};
struct Diff : Binary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = abs(in[0] - in[1]); }
};
struct Multiply : Binary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = fmul(in[0], in[1]); }
};
struct Min : Binary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = min(in[0], in[1]); }
};
struct Max : Binary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = max(in[0], in[1]); }
};
struct Xor : Binary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = in[0] ^ in[1]; }
};
struct And : Binary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = in[0] & in[1]; }
};
struct Or : Binary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = in[0] | in[1]; }
};

// Quotients go through doubles: a quotient of 32-bit numbers, also one times 4096, is at least 2^-43 of itself away
// from the next whole number unless it is one, so truncation is exact.
struct QuotientOp {
    template <class D, class V>
    static HWY_INLINE V run(D d, V a, V b) {
        const V zero = hn::Zero(d);
        const auto none = hn::Eq(b, zero);
        const V scaled = hn::Mul(a, hn::Set(d, 4096.0));
        return hn::IfThenElse(none, zero, hn::Div(scaled, hn::IfThenElse(none, hn::Set(d, 1.0), b)));
    }
};
struct RemainderOp {
    template <class D, class V>
    static HWY_INLINE V run(D d, V a, V b) {
        const V zero = hn::Zero(d);
        const V size = hn::Abs(b);
        const auto none = hn::Eq(b, zero);
        const V divisor = hn::IfThenElse(none, hn::Set(d, 1.0), size);
        const V rest = hn::Sub(a, hn::Mul(hn::Trunc(hn::Div(a, divisor)), divisor));
        const V positive = hn::Add(rest, hn::IfThenElseZero(hn::Lt(rest, zero), divisor));
        return hn::IfThenElse(none, zero, positive);
    }
};
struct BounceOp {
    template <class D, class V>
    static HWY_INLINE V run(D d, V a, V b) {
        const V limit = hn::Abs(b);
        const V period = hn::Add(limit, limit);
        const V rest = RemainderOp::run(d, a, period);
        return hn::IfThenElse(hn::Le(rest, limit), rest, hn::Sub(period, rest));
    }
};
struct StepsOp {
    template <class D, class V>
    static HWY_INLINE V run(D d, V a, V b) {
        const V divisor = hn::IfThenElse(hn::Eq(b, hn::Zero(d)), hn::Set(d, 1.0), b);
        return hn::Mul(hn::Trunc(hn::Div(a, divisor)), b);
    }
};

// Truncated; held at the ends of 32 bits; 0 where the divisor is 0, as a colour of no coverage has no light to divide.
struct Divide : Binary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = in_double<QuotientOp>(in[0], in[1]); }
};
struct Mod : Binary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = in_double<RemainderOp>(in[0], in[1]); }
};
struct Bounce : Binary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = in_double<BounceOp>(in[0], in[1]); }
};
struct Round : Binary {
    static HWY_INLINE void run(const I* in, I* out) {
        const I steps = in_double<StepsOp>(in[0], in[1]);
        const I moved = select(in[0] < I(0), steps - abs(in[1]), steps);
        out[0] = select(in[1] == I(0), in[0], moved);
    }
};

struct Screen : Binary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = in[0] + fmul(I(4096) - in[0], in[1]); }
};
// Both values are first held to 0 .. 1, so that light above white cannot darken.
struct ScreenClamp : Binary {
    static HWY_INLINE void run(const I* in, I* out) {
        const I a = min(max(in[0], I(0)), I(4096));
        const I b = min(max(in[1], I(0)), I(4096));
        out[0] = a + fmul(I(4096) - a, b);
    }
};
struct Overlay : Binary {
    static HWY_INLINE void run(const I* in, I* out) {
        const I dark = fmul(in[1], in[0]);
        const I light = in[1] + fmul(I(4096) - in[1], in[0]);
        out[0] = select(in[1] > I(2048), light + light - I(4096), dark + dark);
    }
};
// value * scale, held to 0 .. 1.
struct ScaleClamp : Binary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = min(max(fmul(in[0], in[1]), I(0)), I(4096)); }
};
struct MaxScaleClamp {
    using Args = Shape<3, 1>;
    static constexpr int results = 1;
    static HWY_INLINE void run(const I* in, I* out) {
        out[0] = min(max(fmul(max(in[0], max(in[1], in[2])), in[3]), I(0)), I(4096));
    }
};
// What value has above the threshold, else 0.
struct AboveThreshold : Binary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = select(in[0] > in[1], in[0] - in[1], I(0)); }
};

struct MultiplyAdd : Ternary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = fmul(in[0], in[1]) + in[2]; }
};
struct Clamp : Ternary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = min(max(in[0], min(in[1], in[2])), max(in[1], in[2])); }
};
struct Interp : Ternary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = in[0] + fmul(in[1] - in[0], in[2]); }
};
struct Dissolve : Ternary {
    static HWY_INLINE void run(const I* in, I* out) {
        const I mix = in[0] + fmul(in[1] - in[0], in[2]);
        out[0] = select(in[2] > I(0), select(in[2] > I(4094), in[1], mix), in[0]);
    }
};
HWY_INLINE I comp_premult(I back, I front, I matte) {
    const I mix = front + fmul(I(4096) - matte, back);
    return select(matte > I(0), select(matte > I(4094), front, mix), front + back);
}
struct CompPremult : Ternary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = comp_premult(in[0], in[1], in[2]); }
};
// Back's colour and alpha, front's colour and alpha.
struct CompRgba {
    using Args = Shape<3, 1, 3, 1>;
    static constexpr int results = 4;
    static HWY_INLINE void run(const I* in, I* out) {
        out[0] = comp_premult(in[0], in[4], in[7]);
        out[1] = comp_premult(in[1], in[5], in[7]);
        out[2] = comp_premult(in[2], in[6], in[7]);
        out[3] = comp_premult(in[3], in[7], in[7]);
    }
};
struct Select : Ternary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = select(in[0] > I(0), in[1], in[2]); }
};
struct IfGreater : Quaternary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = select(in[0] > in[1], in[2], in[3]); }
};
struct IfEqual : Quaternary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = select(in[0] == in[1], in[2], in[3]); }
};

void fill(RowTable& table) {
    add_row<Abs>(table.fun[row_abs]);
    add_row<Negate>(table.fun[row_negate]);
    add_row<OneMinus>(table.fun[row_one_minus]);
    add_row<Add>(table.fun[row_add]);
    add_row<Subtract>(table.fun[row_subtract]);
    add_row<Diff>(table.fun[row_diff]);
    add_row<Multiply>(table.fun[row_multiply]);
    add_row<Divide>(table.fun[row_divide]);
    add_row<Mod>(table.fun[row_mod]);
    add_row<Bounce>(table.fun[row_bounce]);
    add_row<Round>(table.fun[row_round]);
    add_row<Min>(table.fun[row_min]);
    add_row<Max>(table.fun[row_max]);
    add_row<Xor>(table.fun[row_xor]);
    add_row<And>(table.fun[row_and]);
    add_row<Or>(table.fun[row_or]);
    add_row<Screen>(table.fun[row_screen]);
    add_row<ScreenClamp>(table.fun[row_screen_clamp]);
    add_row<Overlay>(table.fun[row_overlay]);
    add_row<ScaleClamp>(table.fun[row_scale_clamp]);
    add_row<MaxScaleClamp>(table.fun[row_max_scale_clamp]);
    add_row<AboveThreshold>(table.fun[row_above_threshold]);
    add_row<MultiplyAdd>(table.fun[row_multiply_add]);
    add_row<Clamp>(table.fun[row_clamp]);
    add_row<Interp>(table.fun[row_interp]);
    add_row<Dissolve>(table.fun[row_dissolve]);
    add_row<CompPremult>(table.fun[row_comp_premult]);
    add_row<CompRgba>(table.fun[row_comp_rgba]);
    add_row<Select>(table.fun[row_select]);
    add_row<IfGreater>(table.fun[row_if_greater]);
    add_row<IfEqual>(table.fun[row_if_equal]);
}

}  // namespace

void fill_arithmetic_rows(RowTable& table) { fill(table); }

}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();
