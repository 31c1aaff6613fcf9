// Row functions of the gradient between points.
#pragma once

#include "records/fix_pixel.h"

namespace velloran {

constexpr int gradient_points = 6, gradient_channels = 3;
// Squares of distances are held to this, and of softness to more than its inverse, so that products of all points stay
// within a float.
constexpr float gradient_farthest = 1e6f;

struct GradientPoint {
    float x, y, size, softness;  // coordinates; softness is a square, above 0
    float color[gradient_channels];
};

struct Gradient {
    int n;
    GradientPoint points[gradient_points];
};

struct GradientNRows {
    // The row at height y: samples first .. first + n - 1, of which sample i lies at x + i * x_step.
    void (*mix)(const Gradient& gradient, float x, float x_step, float y, int first, FixPixel* const* out, int n);
};
const GradientNRows& gradient_n_rows();

}  // namespace velloran
