// Rows of elementary functions: samples to floats, the function, and back by truncation.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/pixel/function_rows.cpp"
#include "hwy/foreach_target.h"
// After foreach_target.h.
#include "operators/pixel/row_fills-inl.h"
#include "rows/fast_math-inl.h"

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

// Radians.
struct Sin : Unary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = fix(sin_turns(turns_of_radians(real(in[0])))); }
};
struct Cos : Unary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = fix(cos_turns(turns_of_radians(real(in[0])))); }
};
// Turns. Whole turns are taken off the sample, so that large angles lose nothing.
struct Nsin : Unary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = fix(sin_turns(real(in[0] & I(4095)))); }
};
struct Ncos : Unary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = fix(cos_turns(real(in[0] & I(4095)))); }
};
// 0 for what is negative.
struct Sqrt : Unary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = fix(sqrt(real(max(in[0], I(0))))); }
};
// Base-2 logarithm of the magnitude; 0 counts as one step, 1/4096, so that the result stays finite: -12.
struct Log2 : Unary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = fix(log2(max(abs(real(in[0])), F(1.0f / 4096.0f)))); }
};
// The rates of x and of y, each from its two slopes.
struct Log2Rates {
    using Args = Shape<4>;
    static constexpr int results = 2;
    static HWY_INLINE I rate(I in0, I in1) {
        const F x = real(in0), y = real(in1);
        return fix(log2(max(sqrt(x * x + y * y), F(1.0f / 4096.0f))));
    }
    static HWY_INLINE void run(const I* in, I* out) {
        out[0] = rate(in[0], in[1]);
        out[1] = rate(in[2], in[3]);
    }
};

// A sample to a whole power below 32, by multiplication: exact where the result is a sample, since no product on the
// way then has more bits than a double. 0 to a negative power is beyond all samples.
struct WholePower {
    template <class D, class V>
    static HWY_INLINE V run(D d, V base, V power) {
        const V unit = hn::Set(d, 1.0 / 4096.0);
        V p = hn::Mul(hn::Abs(base), unit), n = hn::Mul(hn::Abs(power), unit), r = hn::Set(d, 1.0);
        for (int bit = 0; bit < 5; ++bit) {
            const V half = hn::Floor(hn::Mul(n, hn::Set(d, 0.5)));
            r = hn::IfThenElse(hn::Gt(n, hn::Add(half, half)), hn::Mul(r, p), r);
            p = hn::Mul(p, p);
            n = half;
        }
        const V inverse = hn::Div(hn::Set(d, 1.0), hn::Max(r, hn::Set(d, 1e-200)));
        return hn::Mul(hn::IfThenElse(hn::Lt(power, hn::Zero(d)), inverse, r), hn::Set(d, 4096.0));
    }
};

// A negative base counts by its magnitude.
struct Expt : Binary {
    static HWY_INLINE void run(const I* in, I* out) {
        const I largest_whole(16 * 4096);
        const MI small_whole = ((in[1] & I(4095)) | max(abs(in[1]) - largest_whole, I(0))) == I(0);
        out[0] = fix(pow(abs(real(in[0])), real(in[1])));
        if (!hn::AllFalse(DI(), small_whole.m))
            out[0] = select(small_whole, in_double<WholePower>(in[0], in[1]), out[0]);
    }
};
// Logarithm of value to base. Both count as at least one step, 1/4096; base 1 gives 0.
struct Log : Binary {
    static HWY_INLINE void run(const I* in, I* out) {
        const F least(1.0f / 4096.0f);
        const F base = log2(max(real(in[1]), least));
        const MF none = base == F(0.0f);
        const F value = log2(max(real(in[0]), least)) / select(none, F(1.0f), base);
        out[0] = fix(select(none, F(0.0f), value));
    }
};
// y, x: the angle in turns, -0.5 to 0.5.
struct Atan : Binary {
    static HWY_INLINE void run(const I* in, I* out) { out[0] = fix(atan2_turns(real(in[0]), real(in[1]))); }
};

// value, step, smooth, phase. Levels lie at (n + phase) * step. smooth is the share of a step that the way from one
// level to the next takes, around its middle: 0 gives hard edges, 1 the value itself. A step of 0 does nothing.
struct Posterize {
    using Args = Shape<1, 1, 1, 1>;
    static constexpr int results = 1;
    static HWY_INLINE void run(const I* in, I* out) {
        const F step = abs(real(in[1]));
        const MI none = in[1] == I(0);
        const F phase = real(in[3]);
        const F place = number(in[0]) / max(number(abs(in[1])), F(1.0f)) - phase;
        const F level = floor(place);
        const F smooth = max(real(in[2]), F(1.0f / 65536.0f));
        const F rise = clamp((place - level - F(0.5f)) / smooth + F(0.5f), F(0.0f), F(1.0f));
        // Rounded, so that white stays white for every step that divides it.
        out[0] = select(none, in[0], whole(floor((level + rise + phase) * step * F(4096.0f) + F(0.5f))));
    }
};

void fill(RowTable& table) {
    add_row<Sin>(table.fun[row_sin]);
    add_row<Cos>(table.fun[row_cos]);
    add_row<Nsin>(table.fun[row_nsin]);
    add_row<Ncos>(table.fun[row_ncos]);
    add_row<Sqrt>(table.fun[row_sqrt]);
    add_row<Log2>(table.fun[row_log2]);
    add_row<Log2Rates>(table.fun[row_log2_rates]);
    add_row<Expt>(table.fun[row_expt]);
    add_row<Log>(table.fun[row_log]);
    add_row<Atan>(table.fun[row_atan]);
    add_row<Posterize>(table.fun[row_posterize]);
}

}  // namespace

void fill_function_rows(RowTable& table) { fill(table); }

}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();
