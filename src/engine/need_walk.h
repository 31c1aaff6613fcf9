// The area that planes must cover so that a crop does not change the picture inside it.
#pragma once

#include "genotype/genotype.h"
#include "ops/rinfo.h"

namespace velloran {

// Carries root, the region needed of the result, through the genotype: every node's need_rect afterwards holds what is
// needed of its value. The update before the frame must have run. Host's thread.
void need_rect_walk(Genotype* genotype, const NeedRect& root);

// The area, within frame, that must be worked on for the result to be right inside crop. Full-resolution pixels. The
// render step must be in temp_raster_info or render_info already, since regions grow by it.
void get_expanded_src(Genotype* genotype, const RasterRect& crop, const RasterRect& frame, RasterRect* out);

}  // namespace velloran
