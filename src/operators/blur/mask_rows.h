// Row functions of masks. n counts samples; rows do not overlap unless they are the same.
#pragma once

#include "records/fix_pixel.h"

namespace velloran {

struct MaskRows {
    // p = p where m is white, 0 where it is black, else (p * m) >> 12
    void (*apply_mask)(FixPixel* p, const FixPixel* m, int n);
    // Where m is above 0: p, divided by b where that lies between black and white, mixed over c by m, goes to c.
    // Nothing is held to the range of a sample before the mix.
    void (*resolve_mask)(FixPixel* c, const FixPixel* p, const FixPixel* b, const FixPixel* m, int n);
};
const MaskRows& mask_rows();

}  // namespace velloran
