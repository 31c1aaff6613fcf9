// Rows of vectors: lengths, products, directions, picking of elements.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/pixel/vector_rows.cpp"
#include "hwy/foreach_target.h"
// After foreach_target.h.
#include "operators/pixel/row_fills-inl.h"
#include "rows/fast_math-inl.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

// The sums run from the first element on.
template <int n>
HWY_INLINE F dot(const F* a, const F* b) {
    F sum = a[0] * b[0];
    if constexpr (n > 1) sum = sum + a[1] * b[1];
    if constexpr (n > 2) sum = sum + a[2] * b[2];
    if constexpr (n > 3) sum = sum + a[3] * b[3];
    return sum;
}
template <int n>
HWY_INLINE void load(const I* in, F* out) {
    out[0] = real(in[0]);
    if constexpr (n > 1) out[1] = real(in[1]);
    if constexpr (n > 2) out[2] = real(in[2]);
    if constexpr (n > 3) out[3] = real(in[3]);
}

template <int n>
struct MagSquared {
    using Args = Shape<n>;
    static constexpr int results = 1;
    static HWY_INLINE void run(const I* in, I* out) {
        F a[n];
        load<n>(in, a);
        out[0] = fix(dot<n>(a, a));
    }
};
template <int n>
struct Mag {
    using Args = Shape<n>;
    static constexpr int results = 1;
    static HWY_INLINE void run(const I* in, I* out) {
        F a[n];
        load<n>(in, a);
        out[0] = fix(sqrt(dot<n>(a, a)));
    }
};
// The zero vector stays.
template <int n>
struct Normalize {
    using Args = Shape<n>;
    static constexpr int results = n;
    static HWY_INLINE void run(const I* in, I* out) {
        F a[n];
        load<n>(in, a);
        const F length = sqrt(dot<n>(a, a));
        const F divisor = select(length > F(0.0f), length, F(1.0f));
        out[0] = fix(a[0] / divisor);
        out[1] = fix(a[1] / divisor);
        if constexpr (n > 2) out[2] = fix(a[2] / divisor);
    }
};
template <int n>
struct Dot {
    using Args = Shape<n, n>;
    static constexpr int results = 1;
    static HWY_INLINE void run(const I* in, I* out) {
        F a[n], b[n];
        load<n>(in, a);
        load<n>(in + n, b);
        out[0] = fix(dot<n>(a, b));
    }
};
template <int n, bool squared>
struct Dist {
    using Args = Shape<n, n>;
    static constexpr int results = 1;
    static HWY_INLINE void run(const I* in, I* out) {
        F a[n], b[n];
        load<n>(in, a);
        load<n>(in + n, b);
        a[0] = a[0] - b[0];
        if constexpr (n > 1) a[1] = a[1] - b[1];
        if constexpr (n > 2) a[2] = a[2] - b[2];
        const F sum = dot<n>(a, a);
        out[0] = fix(squared ? sum : sqrt(sum));
    }
};
struct Cross2 {
    using Args = Shape<2, 2>;
    static constexpr int results = 1;
    static HWY_INLINE void run(const I* in, I* out) {
        out[0] = fix(real(in[0]) * real(in[3]) - real(in[1]) * real(in[2]));
    }
};
struct Cross3 {
    using Args = Shape<3, 3>;
    static constexpr int results = 3;
    static HWY_INLINE void run(const I* in, I* out) {
        F a[3], b[3];
        load<3>(in, a);
        load<3>(in + 3, b);
        out[0] = fix(a[1] * b[2] - a[2] * b[1]);
        out[1] = fix(a[2] * b[0] - a[0] * b[2]);
        out[2] = fix(a[0] * b[1] - a[1] * b[0]);
    }
};

// Turns in [0, 1), counter-clockwise from the x axis, offset added.
HWY_INLINE I direction(I x, I y, I offset) {
    const F turns = atan2_turns(real(y), real(x)) + F(1.0f);
    return (fix(turns) + offset) & I(4095);
}
struct Direction {
    using Args = Shape<2, 1>;
    static constexpr int results = 1;
    static HWY_INLINE void run(const I* in, I* out) { out[0] = direction(in[0], in[1], in[2]); }
};
struct XyToPolar {
    using Args = Shape<2, 1>;
    static constexpr int results = 2;
    static HWY_INLINE void run(const I* in, I* out) {
        const F x = real(in[0]), y = real(in[1]);
        out[0] = direction(in[0], in[1], in[2]);
        out[1] = fix(sqrt(x * x + y * y));
    }
};
struct PolarToXy {
    using Args = Shape<2>;
    static constexpr int results = 2;
    static HWY_INLINE void run(const I* in, I* out) {
        const F turns = real(in[0] & I(4095)), radius = real(in[1]);
        out[0] = fix(radius * cos_turns(turns));
        out[1] = fix(radius * sin_turns(turns));
    }
};
struct Transpose {
    using Args = Shape<2>;
    static constexpr int results = 2;
    static HWY_INLINE void run(const I* in, I* out) {
        out[0] = in[1];
        out[1] = in[0];
    }
};

template <int n>
struct MaxElement {
    using Args = Shape<n>;
    static constexpr int results = 1;
    static HWY_INLINE void run(const I* in, I* out) {
        out[0] = max(in[0], in[1]);
        if constexpr (n > 2) out[0] = max(out[0], in[2]);
        if constexpr (n > 3) out[0] = max(out[0], in[3]);
    }
};
template <int n>
struct MinElement {
    using Args = Shape<n>;
    static constexpr int results = 1;
    static HWY_INLINE void run(const I* in, I* out) {
        out[0] = min(in[0], in[1]);
        if constexpr (n > 2) out[0] = min(out[0], in[2]);
        if constexpr (n > 3) out[0] = min(out[0], in[3]);
    }
};
// a / 3 rounded down.
struct ThirdOp {
    template <class D, class V>
    static HWY_INLINE V run(D d, V a, V) {
        return hn::Floor(hn::Div(a, hn::Set(d, 3.0)));
    }
};
// The mean, rounded down; the sum wraps.
template <int n>
struct AveElement {
    using Args = Shape<n>;
    static constexpr int results = 1;
    static HWY_INLINE void run(const I* in, I* out) {
        if constexpr (n == 2) out[0] = shr<1>(in[0] + in[1]);
        if constexpr (n == 3) out[0] = in_double<ThirdOp>(in[0] + in[1] + in[2], in[0]);
        if constexpr (n == 4) out[0] = shr<2>(in[0] + in[1] + in[2] + in[3]);
    }
};
// Elements of a vector by number, counted from 0 and held to what there is.
template <int n, int m>
struct Element {
    using Args = Shape<n, m>;
    static constexpr int results = m;
    static HWY_INLINE I pick(const I* in, I index) {
        I value = in[0];
        if constexpr (n > 1) value = select(index > I(4095), in[1], value);
        if constexpr (n > 2) value = select(index > I(8191), in[2], value);
        if constexpr (n > 3) value = select(index > I(12287), in[3], value);
        return value;
    }
    static HWY_INLINE void run(const I* in, I* out) {
        out[0] = pick(in, in[n]);
        if constexpr (m > 1) out[1] = pick(in, in[n + 1]);
        if constexpr (m > 2) out[2] = pick(in, in[n + 2]);
        if constexpr (m > 3) out[3] = pick(in, in[n + 3]);
    }
};
template <int n>
void add_elements(RowTable& table) {
    constexpr int first = row_element + 4 * (n - 1);
    add_row<Element<n, 1>>(table.fun[first]);
    add_row<Element<n, 2>>(table.fun[first + 1]);
    add_row<Element<n, 3>>(table.fun[first + 2]);
    add_row<Element<n, 4>>(table.fun[first + 3]);
}

// The share of light inside a cone: 1 within the inner angle of the axis, 0 beyond the outer, between them the cosine's
// way to the power falloff_power, as in the spotlights of the common 3-D interfaces.
//   params  axis x, y, z of length 1; cosine of the outer angle; 1 / (cosine inner - cosine outer); power.
struct Spotlight {
    using Args = Shape<3>;
    static constexpr int results = 1;
    struct State {
        F axis[3], outer, scale, power;
        HWY_INLINE explicit State(const float* p)
            : axis{F(p[0]), F(p[1]), F(p[2])}, outer(p[3]), scale(p[4]), power(p[5]) {}
    };
    static HWY_INLINE void run(const I* in, I* out, const State& s) {
        F v[3];
        load<3>(in, v);
        const F length = sqrt(dot<3>(v, v));
        const F cosine = dot<3>(v, s.axis) / select(length > F(0.0f), length, F(1.0f));
        const F share = clamp((cosine - s.outer) * s.scale, F(0.0f), F(1.0f));
        out[0] = fix(select(share > F(0.0f), pow(share, s.power), F(0.0f)));
    }
};

void fill(RowTable& table) {
    add_row<MagSquared<2>>(table.fun[row_mag_squared2]);
    add_row<MagSquared<3>>(table.fun[row_mag_squared3]);
    add_row<Mag<2>>(table.fun[row_mag2]);
    add_row<Mag<3>>(table.fun[row_mag3]);
    add_row<Normalize<2>>(table.fun[row_normalize2]);
    add_row<Normalize<3>>(table.fun[row_normalize3]);
    add_row<Dot<2>>(table.fun[row_dot2]);
    add_row<Dot<3>>(table.fun[row_dot3]);
    add_row<Dot<4>>(table.fun[row_dot4]);
    add_row<Cross2>(table.fun[row_cross2]);
    add_row<Cross3>(table.fun[row_cross3]);
    add_row<Dist<1, false>>(table.fun[row_dist1]);
    add_row<Dist<2, false>>(table.fun[row_dist2]);
    add_row<Dist<3, false>>(table.fun[row_dist3]);
    add_row<Dist<1, true>>(table.fun[row_dist_squared1]);
    add_row<Dist<2, true>>(table.fun[row_dist_squared2]);
    add_row<Dist<3, true>>(table.fun[row_dist_squared3]);
    add_row<Direction>(table.fun[row_direction]);
    add_row<PolarToXy>(table.fun[row_polar_to_xy]);
    add_row<XyToPolar>(table.fun[row_xy_to_polar]);
    add_row<Transpose>(table.fun[row_transpose]);
    add_row<MaxElement<2>>(table.fun[row_max_element2]);
    add_row<MaxElement<3>>(table.fun[row_max_element3]);
    add_row<MaxElement<4>>(table.fun[row_max_element4]);
    add_row<MinElement<2>>(table.fun[row_min_element2]);
    add_row<MinElement<3>>(table.fun[row_min_element3]);
    add_row<MinElement<4>>(table.fun[row_min_element4]);
    add_row<AveElement<2>>(table.fun[row_ave_element2]);
    add_row<AveElement<3>>(table.fun[row_ave_element3]);
    add_row<AveElement<4>>(table.fun[row_ave_element4]);
    add_elements<1>(table);
    add_elements<2>(table);
    add_elements<3>(table);
    add_elements<4>(table);
    add_row_of_params<Spotlight>(table.fun[row_spotlight]);
}

}  // namespace

void fill_vector_rows(RowTable& table) { fill(table); }

}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();
