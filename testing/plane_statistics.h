// How planes of noise are spread, and whether they are alike.
#pragma once

#include "testing/filter_node.h"

#include <cmath>

namespace velloran_tests {

inline double mean(const Plane& plane) {
    double sum = 0;
    for (const velloran::FixPixel v : plane) sum += v;
    return sum / static_cast<double>(plane.size());
}
inline double covariance(const Plane& a, const Plane& b) {
    const double mean_a = mean(a), mean_b = mean(b);
    double sum = 0;
    for (size_t i = 0; i < a.size(); ++i) sum += (a[i] - mean_a) * (b[i] - mean_b);
    return sum / static_cast<double>(a.size());
}
inline double spread(const Plane& plane) { return std::sqrt(covariance(plane, plane)); }
inline double correlation(const Plane& a, const Plane& b) { return covariance(a, b) / (spread(a) * spread(b)); }
// Of grain at full strength: even noise in 256 steps of 16.
inline const double noise_spread = 16 * std::sqrt((256.0 * 256 - 1) / 12);

}  // namespace velloran_tests
