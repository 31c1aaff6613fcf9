#include "operators/noise/noise_gradients.h"

#include "support/hash.h"

#include <cmath>

namespace velloran {
namespace {

// Points of the unit ball, drawn by rejection from one walk of the hash, and brought to length 1.
SimplexGradients make_gradients() {
    SimplexGradients gradients = {};
    uint32_t h = bit_hash(123);
    const auto draw = [&h] {
        h = bit_hash(h);
        return unit_hash(h) * 2 - 1;
    };
    for (size_t i = 0; i < 256;) {
        const double x = draw(), y = draw(), length = std::sqrt(x * x + y * y);
        if (length >= 1) continue;
        gradients.x2[i] = static_cast<float>(x / length);
        gradients.y2[i] = static_cast<float>(y / length);
        ++i;
    }
    for (size_t i = 0; i < 256;) {
        const double x = draw(), y = draw(), z = draw(), length = std::sqrt(x * x + y * y + z * z);
        if (length >= 1) continue;
        gradients.x3[i] = static_cast<float>(x / length);
        gradients.y3[i] = static_cast<float>(y / length);
        gradients.z3[i] = static_cast<float>(z / length);
        ++i;
    }
    return gradients;
}

}  // namespace

const SimplexGradients simplex_gradients = make_gradients();

}  // namespace velloran
