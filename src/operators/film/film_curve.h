// Smooth curves through a few points. Pure functions, any task.
#pragma once

namespace velloran {

constexpr int MAX_CURVE_POINTS = 20;

// A cubic between each point and the next, by the values and slopes at both.
struct FilmCurve {
    int n;  // points; with fewer than two the curve is the straight line y = x
    double x[MAX_CURVE_POINTS], y[MAX_CURVE_POINTS], slope[MAX_CURVE_POINTS];
};

// The natural cubic spline through n points whose x rise. Where all y rise or all fall the curve does so too: a spline
// that turns back between two such points has its slopes held to what keeps it from that (Fritsch and Carlson,
// "Monotone Piecewise Cubic Interpolation", SIAM J. Numer. Anal. 17(2), 1980); any other spline stays as it is.
FilmCurve make_film_curve(const float* x, const float* y, int n);

// Beyond its ends a curve stays at its last values.
double evaluate_film_curve(const FilmCurve& curve, double x);

}  // namespace velloran
