// The outlines of draw_shape: polygons and stars, straight or rounded, as lists of points.
#pragma once

namespace velloran {

enum ShapeType : int { shape_polygon = 0, shape_star = 1 };

struct ShapePoint {
    double x, y;
};

struct ShapeSpec {
    ShapeType type;
    int points;            // corners of a polygon, arms of a star
    double pointiness;     // a star's inner radius is 1 / (1 + pointiness)
    double roundness;      // 0 straight edges to 1 a circle
    double swirl, rotate;  // turns, counter-clockwise
};

constexpr int most_shape_points = 4096;

// Counter-clockwise around 0.
ShapePoint turned(ShapePoint p, double turns);

// Points of the outline for a shape of that radius in samples: as many as make its curves smooth.
int shape_outline_points(const ShapeSpec& spec, double radius);
// Writes so many points, of the shape of radius 1 around 0; the first corner is at the top.
void make_shape_outline(const ShapeSpec& spec, int n, ShapePoint* points);

}  // namespace velloran
