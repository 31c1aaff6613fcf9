#include "params/resolution.h"

#include "params/control_callbacks.h"
#include "params/standard_controls.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "support/host_info.h"

#include <algorithm>
#include <cmath>

namespace velloran {
namespace {

constexpr float slow_render_seconds = 0.2f;
constexpr int smallest_dragged_size = 120;  // pixels that a drag leaves across the image

}  // namespace

int get_render_quality() {
    if (!spark_info_ptr) {
        V_error(level_warning, "No spark_info_ptr in get_render_quality");
        return 1;
    }
    // flint, effect, flame and inferno leave the field undefined.
    if (host_kind == host_spark || host_kind == host_flame || host_kind == host_inferno || !host_api_at_least(2.502f))
        return 1;
    return spark_info_ptr->Quality == 2 ? 2 : 1;
}

int get_res_factor(const SparkInfoStruct* info) {
    const GlobalsV4Record* const globals = Globals_V4;
    int res = get_popup_res_factor();
    if (get_render_quality() == 2) res = res == 1 ? 3 : res * 2;
    if (get_redraw_mode() == redraw_drag_auto_res && globals->dragging) {
        const float t = globals->last_render_seconds;
        const int r = globals->last_res_factor;
        if (!(t > slow_render_seconds)) return r;
        const int steps = static_cast<int>(std::ceil(std::sqrt(t / slow_render_seconds)));
        const int limit =
            std::max(r, std::min(info->FrameWidth / smallest_dragged_size, info->FrameHeight / smallest_dragged_size));
        return std::min(r * steps, limit);
    }
    return res;
}

}  // namespace velloran
