#include "operators/polygons/shape_outline.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

constexpr double pi = 3.14159265358979323846;
constexpr double most_deviation = 1.0 / 64;   // of a chord from its arc, in samples
constexpr int most_pieces = 1024;             // of an edge
constexpr int most_outline_points = 1 << 16;  // but at least two for each edge

int edges_of(const ShapeSpec& spec) { return spec.type == shape_star ? 2 * spec.points : spec.points; }

bool straight(const ShapeSpec& spec) { return spec.roundness <= 0.0 && spec.swirl == 0.0; }

double corner_radius(const ShapeSpec& spec, int corner) {
    return spec.type == shape_star && (corner & 1) ? 1.0 / (1.0 + std::max(spec.pointiness, 0.0)) : 1.0;
}

ShapePoint polar(double radius, double angle) { return {radius * std::cos(angle), radius * std::sin(angle)}; }

ShapePoint mix(ShapePoint a, ShapePoint b, double t) { return {a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t}; }

// The point at t, 0 to 1, of the edge from a corner on. Roundness leads from the straight edge over a wave between the
// two radii, which has no corners, to the circle: the three weigh like the points of a quadratic curve.
ShapePoint edge_point(const ShapeSpec& spec, int corner, double t) {
    const double step = 2.0 * pi / edges_of(spec);
    const double angle = step * corner, from = corner_radius(spec, corner), to = corner_radius(spec, corner + 1);
    const ShapePoint line = mix(polar(from, angle), polar(to, angle + step), t);
    const double at = angle + step * t;
    const ShapePoint wave = polar(from + (to - from) * 0.5 * (1.0 - std::cos(pi * t)), at), circle = polar(1.0, at);
    const double w = std::clamp(spec.roundness, 0.0, 1.0);
    return mix(mix(line, wave, w), mix(wave, circle, w), w);
}

// What lies nearer to the centre turns by swirl as well, the centre most; the first corner is at the top.
ShapePoint swirled(const ShapeSpec& spec, ShapePoint p) {
    const double radius = std::sqrt(p.x * p.x + p.y * p.y);
    return turned(p, 0.25 + spec.rotate + spec.swirl * (1.0 - radius));
}

}  // namespace

ShapePoint turned(ShapePoint p, double turns) {
    const double c = std::cos(2.0 * pi * turns), s = std::sin(2.0 * pi * turns);
    return {p.x * c - p.y * s, p.x * s + p.y * c};
}

int shape_outline_points(const ShapeSpec& spec, double radius) {
    const int edges = edges_of(spec);
    if (straight(spec)) return edges;
    // An arc of angle a at radius r leaves its chord by r a a / 8.
    const double angle = 2.0 * pi * (1.0 / edges + std::fabs(spec.swirl) * (1.0 - corner_radius(spec, 1))) + pi / edges;
    const double pieces = std::ceil(angle / std::sqrt(8.0 * most_deviation / std::max(radius, 1.0)));
    return edges * static_cast<int>(std::clamp(
                       pieces, 2.0, static_cast<double>(std::clamp(most_outline_points / edges, 2, most_pieces))));
}

void make_shape_outline(const ShapeSpec& spec, int n, ShapePoint* points) {
    const int edges = edges_of(spec), pieces = n / edges;
    for (int i = 0; i < n; ++i)
        points[i] = swirled(spec, edge_point(spec, i / pieces, static_cast<double>(i % pieces) / pieces));
}

}  // namespace velloran
