// The resolution that a frame is rendered at.
#pragma once

#include "spark/spark.h"

namespace velloran {

// Down-sampling factor of the next frame: the "Res" control, doubled for a preview-quality render, and raised while a
// drag in DRAG AUTO RES renders too slowly (the last render above 0.2 seconds).
int get_res_factor(const SparkInfoStruct* info);

// 1 full or 2 preview, as the host asks.
int get_render_quality();

}  // namespace velloran
