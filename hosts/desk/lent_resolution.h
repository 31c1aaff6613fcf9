// The resolution that keeps up while a hand moves. What the person chose comes back after.
#pragma once

#include "hosts/desk/state.h"
#include "hosts/render/render_plan.h"

#include <utility>
#include <vector>

namespace desk {

constexpr int resolutions[] = {1, 2, 3, 4, 6, 8, 12, 16, 32};  // of the standard control, by its entries

// A standard control of the plug-in, null if it has none of that key.
const render::ParamDescription* standard_param(const render::RenderPlan& plan, const char* key);

// What the person chose.
int chosen_resolution(const render::RenderPlan& plan);
enum RedrawMode : int { redraw_process = 1, redraw_drag = 3, redraw_drag_auto_res = 4 };
int redraw_mode(const render::RenderPlan& plan);

// Host's thread. Lends the plug-in a resolution, in pixels of the frame for one that is made, for as long as this
// lives.
class LentResolution {
public:
    LentResolution(render::RenderPlan& plan, int resolution);
    ~LentResolution();
    LentResolution(const LentResolution&) = delete;
    LentResolution& operator=(const LentResolution&) = delete;

private:
    void lend(const render::ParamDescription* param, int entry);

    render::RenderPlan& plan_;
    std::vector<std::pair<int, float>> kept_;
};

}  // namespace desk
