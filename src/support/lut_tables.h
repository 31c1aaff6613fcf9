// The tables that the pixel converters look up when a LUT or a gamma is in use. Filled on the host's thread between
// frames by whoever reads the LUT files; read-only during a frame. Null until made.
#pragma once

#include <cstdint>

namespace velloran {

extern int32_t* input_lut_8;    // 256 entries by native 8-bit value; the low 16 bits are the sample
extern int32_t* input_lut_12;   // 4096 entries by 12-bit value; the low 16 bits are the sample
extern uint8_t* output_lut_8;   // 4096 entries by sample held to 0..4095; native 8-bit value
extern int32_t* output_lut_16;  // 4096 entries by sample held to 0..4095; 12-bit value

}  // namespace velloran
