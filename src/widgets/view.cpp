#include "widgets/view.h"

#include "support/optional_host.h"
#include "widgets/graphics.h"

#include <cmath>

namespace velloran::widgets {

float view_scale_x = 1, view_scale_y = 1;

void setup_view(const SparkInfoStruct* info, float zoom, float ratio) {
    float footage_ratio = 1;
    v_sparkGraphSetup(&footage_ratio);
    // A viewer that does not know its pixels shows those of the footage.
    const auto ratio_p = [](float r) { return r > 0.01f && std::isfinite(r); };
    if (!ratio_p(ratio)) ratio = ratio_p(footage_ratio) ? footage_ratio : 1;
    if (!std::isfinite(zoom)) zoom = 1;
    gfx_xform_stack_reset();
    gfx_translate(static_cast<float>(info->ViewerX), static_cast<float>(info->ViewerY));
    gfx_scale(ratio * zoom, zoom);
    view_scale_y = zoom > 0.01f ? 1.0f / zoom : 1.0f;
    view_scale_x = view_scale_y / ratio;
}

}  // namespace velloran::widgets
