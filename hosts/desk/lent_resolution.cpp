#include "hosts/desk/lent_resolution.h"

#include <algorithm>
#include <iterator>

namespace desk {

using render::ParamDescription;
using render::RenderPlan;
using spark_host::Control;
using spark_host::find_control;

namespace {

// The entry of a standard popup, or what it is taken for where there is none.
int entry_of(const RenderPlan& plan, const char* key, int otherwise) {
    const ParamDescription* const param = standard_param(plan, key);
    const Control* const control =
        param && !param->numbers.empty() ? find_control(plan.plugin->panel, param->numbers[0]) : nullptr;
    return control ? static_cast<int>(control_value(*control, 0)) : otherwise;
}

}  // namespace

const ParamDescription* standard_param(const RenderPlan& plan, const char* key) {
    for (const ParamDescription& param : plan.description.standard)
        if (param.key == key) return &param;
    return nullptr;
}

int chosen_resolution(const RenderPlan& plan) {
    return resolutions[std::clamp(entry_of(plan, "res_factor", 0), 0, static_cast<int>(std::size(resolutions)) - 1)];
}

int redraw_mode(const RenderPlan& plan) { return entry_of(plan, "redraw_wait", redraw_drag_auto_res); }

LentResolution::LentResolution(RenderPlan& plan, int resolution) : plan_(plan) {
    int entry = 0;
    for (int i = 0; i < static_cast<int>(std::size(resolutions)); i++)
        if (resolutions[i] <= resolution) entry = i;
    lend(standard_param(plan, "res_factor"), entry);
    // The plug-in's own choice while a pen is down stands back.
    if (redraw_mode(plan) == redraw_drag_auto_res) lend(standard_param(plan, "redraw_wait"), redraw_drag);
}

LentResolution::~LentResolution() {
    for (const auto& [number, value] : kept_)
        if (Control* const control = find_control(plan_.plugin->panel, number)) set_control_value(*control, 0, value);
}

void LentResolution::lend(const ParamDescription* param, int entry) {
    if (!param) return;
    for (const int number : param->numbers) {
        Control* const control = find_control(plan_.plugin->panel, number);
        if (!control || control->kind != SPARK_CONTROL_POPUP) continue;
        kept_.emplace_back(number, control_value(*control, 0));
        set_control_value(*control, 0, static_cast<float>(entry));
    }
}

}  // namespace desk
