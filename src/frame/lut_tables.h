// The tables that the pixel converters look up when a LUT or a gamma is in use. Made by lut_files.cpp on the host's
// thread between frames; read-only during a frame. Null until made.
#pragma once

#include <cstdint>

namespace velloran {

extern int32_t* input_lut_8;    // 256 samples 0 to 4095 by native 8-bit value
extern int32_t* input_lut_12;   // 4096 samples by 12-bit value
extern uint8_t* output_lut_8;   // 4096 native 8-bit values by sample held to 0..4095
extern int32_t* output_lut_16;  // 4096 12-bit values by sample held to 0..4095

}  // namespace velloran
