// Maps of the plane. A point (x, y) goes to (m0 x + m2 y + m4, m1 x + m3 y + m5).
#pragma once

#include <cmath>
#include <numbers>

namespace velloran::widgets {

struct Point {
    float x, y;
};

inline Point operator+(Point a, Point b) { return {a.x + b.x, a.y + b.y}; }
inline Point operator-(Point a, Point b) { return {a.x - b.x, a.y - b.y}; }
inline Point operator*(Point a, float f) { return {a.x * f, a.y * f}; }
inline float dot(Point a, Point b) { return a.x * b.x + a.y * b.y; }
inline float length(Point a) { return std::hypot(a.x, a.y); }
inline bool usable(Point a) { return std::isfinite(a.x) && std::isfinite(a.y); }

constexpr float smallest_determinant = 0.000001f;

// The functions that change a map apply the change first, as matrix stacks do.
struct Affine {
    float m[6] = {1, 0, 0, 1, 0, 0};

    Point operator()(Point p) const { return {m[0] * p.x + m[2] * p.y + m[4], m[1] * p.x + m[3] * p.y + m[5]}; }
    void multiply(const Affine& first) {
        const Affine a = *this;
        const float* const b = first.m;
        m[0] = a.m[0] * b[0] + a.m[2] * b[1];
        m[1] = a.m[1] * b[0] + a.m[3] * b[1];
        m[2] = a.m[0] * b[2] + a.m[2] * b[3];
        m[3] = a.m[1] * b[2] + a.m[3] * b[3];
        const Point origin = a({b[4], b[5]});
        m[4] = origin.x;
        m[5] = origin.y;
    }
    void translate(float x, float y) { multiply({{1, 0, 0, 1, x, y}}); }
    void scale(float x, float y) { multiply({{x, 0, 0, y, 0, 0}}); }
    // Counter-clockwise.
    void rotate(float turns) {
        const float angle = turns * 2 * std::numbers::pi_v<float>;
        const float c = std::cos(angle), s = std::sin(angle);
        multiply({{c, s, -s, c, 0, 0}});
    }
    float determinant() const { return m[0] * m[3] - m[1] * m[2]; }
    // False where the map is flat.
    bool invert(Affine* out) const {
        const float d = determinant();
        if (!(std::fabs(d) >= smallest_determinant)) return false;
        *out = {{m[3] / d, -m[1] / d, -m[2] / d, m[0] / d, 0, 0}};
        const Point origin = (*out)({-m[4], -m[5]});
        out->m[4] = origin.x;
        out->m[5] = origin.y;
        return true;
    }
};

// Where the segment from (0, 0) to (1, 0) goes from one point to the other, of the same size both ways.
inline Affine along(Point from, Point to) {
    const Point d = to - from;
    return {{d.x, d.y, -d.y, d.x, from.x, from.y}};
}

}  // namespace velloran::widgets
