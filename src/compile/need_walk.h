// The area that planes must cover so that a crop does not change the picture inside it.
#pragma once

#include "records/genotype.h"
#include "records/rinfo.h"

namespace velloran {

// The area, within frame, that must be worked on for the result to be right inside crop. Full-resolution pixels. The
// update before the frame must have run, since arguments that are passed through need nothing; the render step must be
// in render_info already, since regions grow by it. Host's thread.
void get_expanded_src(Genotype* genotype, const RasterRect& crop, const RasterRect& frame, RasterRect* out);

}  // namespace velloran
