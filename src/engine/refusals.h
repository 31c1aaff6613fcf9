// What would keep every frame of an effect from being made, told before one is asked for.
#pragma once

#include "records/genotype.h"

namespace velloran {

// Reports what a frame of the compiled genotype would be refused for, each at level 8 with the text reader pointed at
// the call where there is one: functions without code, an alpha that does not go out, more inputs than there can be,
// too many images, planes, or functions in a pass. Answers whether there was anything. Its params must hold their
// defaults. Host's thread.
bool report_refusals(Genotype* genotype);

}  // namespace velloran
