// The LUTs in force as the tables that a compiled loop looks up: results for the samples 0 to 4095.
#pragma once

#include "fused/value_graph.h"

#include <cstdint>
#include <vector>

namespace velloran {

// By sample as it comes from a frame of the form (HostForm) without a LUT. Null: no LUT for it. Good until the next
// call for the form.
const int32_t* fused_input_lut(int form);
// What a frame of the form is to be given for a sample, so that a loop without a LUT stores what the LUT gives. Null:
// no LUT for it. Good until the next call for the form.
const int32_t* fused_output_lut(int form);
// table_length results of `then`, an output LUT, for those of `first`, held to 0 .. 4095.
void chain_lut(const int32_t* first, const int32_t* then, std::vector<int32_t>* results);

}  // namespace velloran
