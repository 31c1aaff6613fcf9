// Row functions of depth layers. n counts samples; rows do not overlap unless they are the same. Mattes hold 4096 for
// all.
#pragma once

#include "operators/depth/z_layers.h"
#include "records/fix_pixel.h"

namespace velloran {

struct ZRows {
    void (*mask)(const FixPixel* depth, FixPixel* mask, const z_mask& layer, int n);
    // out = in * mask, rounded; in place too
    void (*multiply)(const FixPixel* in, const FixPixel* mask, FixPixel* out, int n);
    // A slice, already times its matte, over what lies behind, of which `covered` says how much is there: behind gives
    // way only where both together would be more than all.
    void (*over)(FixPixel* behind, const FixPixel* slice, const FixPixel* matte, const FixPixel* covered, int n);
    // The same of a sharp slice: what it covers of the picture.
    void (*over_sharp)(FixPixel* behind, const FixPixel* picture, const FixPixel* matte, const FixPixel* covered,
                       int n);
    // covered = min(covered + matte, 4096)
    void (*cover)(FixPixel* covered, const FixPixel* matte, int n);
    // What is covered in part becomes whole as far as that part is enough to tell its colour; the less it is, the more
    // of the picture as it was is taken for it.
    void (*settle)(FixPixel* const* sums, const FixPixel* const* pictures, int n_sums, FixPixel* covered, int n);
    // What is covered in part becomes whole: by `ground`, a sum over ground_weight, as far as that is sure, the rest as
    // the part that is there, and where that, too, is too little to tell, by the picture as it was. ground null: there
    // is none.
    void (*resolve)(FixPixel* sum, const FixPixel* covered, const FixPixel* picture, const FixPixel* ground,
                    const FixPixel* ground_weight, int n);
    // sum += in * gain, rounded, held
    void (*add)(FixPixel* sum, const FixPixel* in, float gain, int n);
};
const ZRows& z_rows();

// With less than this share of a pixel its colour is not sure: units of a sample show.
constexpr int sure_share = 256;

}  // namespace velloran
