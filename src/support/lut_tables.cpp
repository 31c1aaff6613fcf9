#include "support/lut_tables.h"

namespace velloran {

int32_t* input_lut_8 = nullptr;
int32_t* input_lut_12 = nullptr;
uint8_t* output_lut_8 = nullptr;
int32_t* output_lut_16 = nullptr;

}  // namespace velloran
