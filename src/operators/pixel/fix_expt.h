// Powers of samples, one at a time.
#pragma once

#include <cstdint>

namespace velloran {

// x to the power of power, samples of 12 fraction bits, the same bits as the node function expt gives. A negative x is
// logged with "fix_expt: x was negative." and counts by its magnitude. Any task may call.
int32_t fix_expt(int32_t x, int32_t power);

}  // namespace velloran
