// Rows that move coordinates.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/pixel/transform_rows.cpp"
#include "hwy/foreach_target.h"
// After foreach_target.h.
#include "operators/pixel/row_fills-inl.h"
#include "operators/pixel/transform_params.h"
#include "rows/fast_math-inl.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

// vector, revolutions, center: counter-clockwise for positive revolutions.
struct Rotate {
    using Args = Shape<2, 1, 2>;
    static constexpr int results = 2;
    static HWY_INLINE void run(const I* in, I* out) {
        const F turns = real(in[2] & I(4095));
        const F c = cos_turns(turns), s = sin_turns(turns);
        const F x = real(in[0] - in[3]), y = real(in[1] - in[4]);
        out[0] = fix(x * c - y * s) + in[3];
        out[1] = fix(x * s + y * c) + in[4];
    }
};

// The angle falls from revolutions at the centre to 0 at start_rad, as the square of what is left of the way, so that
// the swirl has no rim. rotate_offset turns all.
struct Vortex {
    using Args = Shape<2>;
    static constexpr int results = 2;
    struct State {
        F revolutions, x, y, inverse_radius, offset;
        HWY_INLINE explicit State(const float* p)
            : revolutions(p[vortex_revolutions]),
              x(p[vortex_center_x]),
              y(p[vortex_center_y]),
              inverse_radius(p[vortex_inverse_radius]),
              offset(p[vortex_offset]) {}
    };
    static HWY_INLINE void run(const I* in, I* out, const State& s) {
        const F x = real(in[0]) - s.x, y = real(in[1]) - s.y;
        const F left = max(F(1.0f) - sqrt(x * x + y * y) * s.inverse_radius, F(0.0f));
        const F turns = s.offset + s.revolutions * (left * left);
        const F cosine = cos_turns(turns), sine = sin_turns(turns);
        out[0] = fix(s.x + (x * cosine - y * sine));
        out[1] = fix(s.y + (x * sine + y * cosine));
    }
};

// value, axis, revolutions: by the right hand, after O. Rodrigues. An axis of length 0 turns nothing.
// A value or axis of two elements lies in the plane z = 0.
template <int n, int m>
struct AxisRotate {
    using Args = Shape<n, m, 1>;
    static constexpr int results = 3;
    static HWY_INLINE void run(const I* in, I* out) {
        const F x = real(in[0]), y = real(in[1]), z = n == 3 ? real(in[n - 1]) : F(0.0f);
        const F ax = real(in[n]), ay = real(in[n + 1]), az = m == 3 ? real(in[n + m - 1]) : F(0.0f);
        const F length = sqrt(ax * ax + ay * ay + az * az);
        const MF any = length > F(0.0f);
        const F scale = F(1.0f) / select(any, length, F(1.0f));
        const F kx = ax * scale, ky = ay * scale, kz = az * scale;
        const F turns = real(in[n + m] & I(4095));
        const F c = select(any, cos_turns(turns), F(1.0f)), s = select(any, sin_turns(turns), F(0.0f));
        const F along = (kx * x + ky * y + kz * z) * (F(1.0f) - c);
        out[0] = fix(x * c + (ky * z - kz * y) * s + kx * along);
        out[1] = fix(y * c + (kz * x - kx * z) * s + ky * along);
        out[2] = fix(z * c + (kx * y - ky * x) * s + kz * along);
    }
};

// x moves with y, y with x.
struct Shear {
    using Args = Shape<2, 2>;
    static constexpr int results = 2;
    static HWY_INLINE void run(const I* in, I* out) {
        out[0] = in[0] + fix(real(in[1]) * real(in[2]));
        out[1] = in[1] + fix(real(in[0]) * real(in[3]));
    }
};

// A projective map, then the folds of its wrap modes and the bulge, all from ProjectParams: where the frame's point is
// on the picture. Points from which the picture's plane is not seen lie at project_outside.
struct Project {
    using Args = Shape<2>;
    static constexpr int results = 2;
    struct State {
        F h[9], period[2], turn[2], bulge[2], height;
        HWY_INLINE explicit State(const float* p)
            : h{F(p[0]), F(p[1]), F(p[2]), F(p[3]), F(p[4]), F(p[5]), F(p[6]), F(p[7]), F(p[8])},
              period{F(p[project_period]), F(p[project_period + 1])},
              turn{F(p[project_turn]), F(p[project_turn + 1])},
              bulge{F(p[project_bulge]), F(p[project_bulge + 1])},
              height(p[project_height]) {}
    };
    // Into one period, and back where the mirrored half of it begins.
    static HWY_INLINE F fold(F a, F period, F turn) {
        const F m = a - period * round(a / period);
        return select(m > turn, F(2.0f) - m, select(m < -turn, F(-2.0f) - m, m));
    }
    static HWY_INLINE void run(const I* in, I* out, const State& s) {
        const F x = real(in[0]), y = real(in[1]);
        const F depth = s.h[6] * x + s.h[7] * y + s.h[8];
        const MF seen = depth > F(project_least_depth);
        const F divisor = select(seen, depth, F(1.0f));
        const F u0 = select(seen, (s.h[0] * x + s.h[1] * y + s.h[2]) / divisor, F(project_outside));
        const F v0 = select(seen, (s.h[3] * x + s.h[4] * y + s.h[5]) / divisor, F(project_outside));
        const F u = fold(u0, s.period[0], s.turn[0]);
        const F v = fold(v0, s.period[1], s.turn[1]);
        const F one(1.0f), least(1.0f / 16.0f);
        const F wide = max(one + s.bulge[0] * max(one - v * v, F(0.0f)), least);
        const F high = max(one + s.bulge[1] * max(one - u * u, F(0.0f)), least);
        out[0] = fix(u / wide);
        out[1] = fix(v / high * s.height);
    }
};

// How much of the plane of such a map is seen: 1, falling to 0 over the last 1/256 before the horizon.
struct ProjectAlpha {
    using Args = Shape<2>;
    static constexpr int results = 1;
    struct State {
        F h[3];
        HWY_INLINE explicit State(const float* p) : h{F(p[0]), F(p[1]), F(p[2])} {}
    };
    static HWY_INLINE void run(const I* in, I* out, const State& s) {
        const F depth = s.h[0] * real(in[0]) + s.h[1] * real(in[1]) + s.h[2];
        out[0] = fix(clamp(depth, F(0.0f), F(1.0f)));
    }
};

// The kaleidoscopes fold the plane by mirrors into one cell, in which points keep their place; so no picture has a
// seam. Coordinates are counted in cells of the given scale and held to what a float counts exactly.
HWY_INLINE F cells(I a, F scale) { return clamp(real(a) / scale, F(-262144.0f), F(262144.0f)); }
// A scale of 0 counts as its smallest step.
HWY_INLINE F cell_scale(I scale) { return real(max(abs(scale), I(1))); }
// The triangle wave through 0 with slope 1, turning at +-1.
HWY_INLINE F bounce_wave(F a) {
    const F m = a - F(4.0f) * round(a * F(0.25f));
    return select(m > F(1.0f), F(2.0f) - m, select(m < F(-1.0f), F(-2.0f) - m, m));
}

// The triangle wave with its lower turn at 0 and its upper at 1, equal to its argument between them.
HWY_INLINE F mirror_wave(F a) { return abs(a - F(2.0f) * round(a * F(0.5f))); }

// Three mirrors along the sides of an equilateral triangle around the origin, of side 2 in cells: the picture within it
// fills the plane. The corners of the triangular lattice carry three colours, and each triangle has one corner of each;
// a point folds to the same mix of the home triangle's corners as it is of its own triangle's.
struct Kaleido {
    using Args = Shape<2, 1>;
    static constexpr int results = 2;
    static constexpr float root3 = 1.7320508f;
    static HWY_INLINE F corner(F color, float c0, float c1, float c2) {
        return select(color == F(0.0f), F(c0), select(color == F(1.0f), F(c1), F(c2)));
    }
    static HWY_INLINE F next(F color) { return select(color == F(2.0f), F(0.0f), color + F(1.0f)); }
    static HWY_INLINE void run(const I* in, I* out) {
        const F scale = cell_scale(in[2]);
        // Lattice coordinates from the left lower corner (-1, -1/sqrt 3); edges (2, 0) and (1, sqrt 3).
        const F x = cells(in[0], scale) + F(1.0f), y = cells(in[1], scale) + F(1.0f / root3);
        const F v = y * F(1.0f / root3), u = (x - v) * F(0.5f);
        const F iu = floor(u), iv = floor(v), fu = u - iu, fv = v - iv;
        const F sum = fu + fv;
        const MF upper = sum > F(1.0f);
        const F wa = abs(F(1.0f) - sum);
        const F wb = select(upper, F(1.0f) - fv, fu);
        const F wc = select(upper, F(1.0f) - fu, fv);
        const F row = iu - iv;
        const F a = row - F(3.0f) * floor((row + F(0.5f)) * F(1.0f / 3.0f));
        const F b = next(a), c = next(b);
        const F px =
            wa * corner(a, -1.0f, 1.0f, 0.0f) + wb * corner(b, -1.0f, 1.0f, 0.0f) + wc * corner(c, -1.0f, 1.0f, 0.0f);
        const float low = -1.0f / root3, top = 2.0f / root3;
        const F py = wa * corner(a, low, low, top) + wb * corner(b, low, low, top) + wc * corner(c, low, low, top);
        out[0] = fix(px * scale);
        out[1] = fix(py * scale);
    }
};

// Four mirrors along the sides of a square that stands on its corner: |x| + |y| <= 1 in cells.
struct KaleidoDiamonds {
    using Args = Shape<2, 1>;
    static constexpr int results = 2;
    static HWY_INLINE void run(const I* in, I* out) {
        const F scale = cell_scale(in[2]);
        const F x = cells(in[0], scale), y = cells(in[1], scale);
        const F a = bounce_wave(x + y), b = bounce_wave(x - y);
        out[0] = fix((a + b) * F(0.5f) * scale);
        out[1] = fix((a - b) * F(0.5f) * scale);
    }
};

// Three mirrors along the sides of half a square, 0 <= y <= x <= 1 in cells: eight such wedges meet at the origin.
struct KaleidoOct {
    using Args = Shape<2, 1>;
    static constexpr int results = 2;
    static HWY_INLINE void run(const I* in, I* out) {
        const F scale = cell_scale(in[2]);
        const F a = mirror_wave(cells(in[0], scale)), b = mirror_wave(cells(in[1], scale));
        out[0] = fix(max(a, b) * scale);
        out[1] = fix(min(a, b) * scale);
    }
};

void fill(RowTable& table) {
    add_row<Rotate>(table.fun[row_rotate]);
    add_row_of_params<Vortex>(table.fun[row_vortex]);
    add_row<AxisRotate<2, 2>>(table.fun[row_axis_rotate22]);
    add_row<AxisRotate<2, 3>>(table.fun[row_axis_rotate23]);
    add_row<AxisRotate<3, 2>>(table.fun[row_axis_rotate32]);
    add_row<AxisRotate<3, 3>>(table.fun[row_axis_rotate33]);
    add_row<Shear>(table.fun[row_shear]);
    add_row_of_params<Project>(table.fun[row_project]);
    add_row_of_params<ProjectAlpha>(table.fun[row_project_alpha]);
    add_row<Kaleido>(table.fun[row_kaleido]);
    add_row<KaleidoDiamonds>(table.fun[row_kaleido_diamonds]);
    add_row<KaleidoOct>(table.fun[row_kaleido_oct]);
}

}  // namespace

void fill_transform_rows(RowTable& table) { fill(table); }

}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();
