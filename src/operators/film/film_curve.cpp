#include "operators/film/film_curve.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

// Slopes at the points of the spline without curvature at its ends: twice differentiable at each inner point, where
//     slope[i-1] / h[i-1] + 2 slope[i] (1 / h[i-1] + 1 / h[i]) + slope[i+1] / h[i] = 3 (s[i-1] / h[i-1] + s[i] / h[i])
// with h the distances and s the mean slopes. Elimination forwards, substitution back.
void set_natural_slopes(FilmCurve& c, const double* h, const double* s) {
    const int last = std::clamp(c.n, 2, MAX_CURVE_POINTS) - 1;
    double above[MAX_CURVE_POINTS] = {}, right[MAX_CURVE_POINTS] = {};
    above[0] = 0.5;
    right[0] = 1.5 * s[0];
    for (int i = 1; i <= last; ++i) {
        const double below = i < last ? 1 / h[i - 1] : 1, beside = i < last ? 1 / h[i] : 0;
        const double middle = (i < last ? 2 * (below + beside) : 2) - below * above[i - 1];
        const double sum = i < last ? 3 * (s[i - 1] * below + s[i] * beside) : 3 * s[last - 1];
        above[i] = beside / middle;
        right[i] = (sum - below * right[i - 1]) / middle;
    }
    c.slope[last] = right[last];
    for (int i = last - 1; i >= 0; --i) c.slope[i] = right[i] - above[i] * c.slope[i + 1];
}

// Whether the cubic of mean slope s between the end slopes a and b turns back somewhere. All are taken times the sign
// of s. Its slope is the parabola a (1 - t)^2 + 2 m t (1 - t) + b t^2 with m = 3 s - a - b.
bool turns_back(double a, double b, double s) {
    if (a < 0 || b < 0) return true;
    const double m = 3 * s - a - b;
    return m < 0 && m * m > a * b;
}

}  // namespace

FilmCurve make_film_curve(const float* x, const float* y, int n) {
    FilmCurve c = {};
    c.n = n;
    std::copy(x, x + n, c.x);
    std::copy(y, y + n, c.y);
    if (n < 2) return c;
    double h[MAX_CURVE_POINTS], s[MAX_CURVE_POINTS];
    bool rises = true, falls = true;
    for (int i = 0; i + 1 < n; ++i) {
        h[i] = c.x[i + 1] - c.x[i];
        s[i] = (c.y[i + 1] - c.y[i]) / h[i];
        rises = rises && s[i] >= 0;
        falls = falls && s[i] <= 0;
    }
    set_natural_slopes(c, h, s);
    if (!rises && !falls) return c;
    const double sign = rises ? 1 : -1;
    bool back = false;
    for (int i = 0; i + 1 < n; ++i) back = back || turns_back(sign * c.slope[i], sign * c.slope[i + 1], sign * s[i]);
    for (int i = 0; back && i < n; ++i) {
        const double before = sign * s[std::max(i - 1, 0)], behind = sign * s[std::min(i, n - 2)];
        c.slope[i] = sign * std::clamp(sign * c.slope[i], 0.0, 3 * std::min(before, behind));
    }
    return c;
}

double evaluate_film_curve(const FilmCurve& c, double x) {
    if (c.n < 2) return x;
    if (!(x > c.x[0])) return c.y[0];
    if (x >= c.x[c.n - 1]) return c.y[c.n - 1];
    const int i = static_cast<int>(std::upper_bound(c.x, c.x + c.n, x) - c.x) - 1;
    const double h = c.x[i + 1] - c.x[i], t = (x - c.x[i]) / h, u = 1 - t;
    return c.y[i] * (1 + 2 * t) * u * u + c.y[i + 1] * (3 - 2 * t) * t * t +
           h * (c.slope[i] * t * u * u - c.slope[i + 1] * t * t * u);
}

}  // namespace velloran
