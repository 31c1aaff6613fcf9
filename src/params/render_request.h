// The way up from the params to the entry points: a control that changes asks for a frame. The entry points put their
// functions here before the first callback; null means that no frame can be had.
#pragma once

#include "spark/spark.h"

namespace velloran {

struct RenderRequests {
    void* (*process)(SparkInfoStruct* info);             // V4_SparkProcess: the frame, or null
    int (*get_res_factor)(const SparkInfoStruct* info);  // the factor that a render would have now
};
extern RenderRequests render_requests;

}  // namespace velloran
