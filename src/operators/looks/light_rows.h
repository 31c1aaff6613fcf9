// The row kernel of light_3d.
#pragma once

#include "rows/row_patterns.h"

namespace velloran {

// Lights that shine, in the order of the kernel's params: their count and the ambient light first.
constexpr int most_lights = 4;
struct LightParams {
    float count, ambient;
    struct {
        float to_light[3], half[3];  // unit vectors: to the light, and halfway between it and the eye
        float diffuse[3];            // colour times brightness
        float highlight[3];
        float shininess;
    } lights[most_lights];
};

// Inputs: the surface's colour and its normal, three elements each. params: a LightParams.
const RowPatterns& light_rows();

}  // namespace velloran
