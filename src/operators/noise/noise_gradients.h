// Directions of the gradients of lattice and simplex noise.
#pragma once

#include <array>

namespace velloran {

// Of lattice noise, by the low three bits of a permuted lattice number.
inline constexpr float grad2_x[8] = {0.5f, 0.8660254f, 0.8660254f, 0.5f, -0.5f, -0.8660254f, -0.8660254f, -0.5f};
inline constexpr float grad2_y[8] = {0.8660254f, 0.5f, -0.5f, -0.8660254f, -0.8660254f, -0.5f, 0.5f, 0.8660254f};

// Of simplex noise, by a permuted lattice number: unit vectors in even spread, by element.
struct SimplexGradients {
    std::array<float, 256> x2, y2;      // simplex_grad2
    std::array<float, 256> x3, y3, z3;  // simplex_grad3
};
// Made when the library is loaded.
extern const SimplexGradients simplex_gradients;

}  // namespace velloran
