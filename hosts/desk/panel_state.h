// What a plug-in's panel shows, as values.
#pragma once

#include "hosts/desk/state.h"
#include "hosts/render/render_plan.h"

namespace desk {

PanelState panel_state(const render::RenderPlan& plan);

// The param behind a control, null if there is none; channel: which of its values.
const render::ParamDescription* find_param(const render::RenderPlan& plan, int number, int* channel = nullptr);

// A person gave this control a value: if it runs over the clip by itself, setups keep it from now on.
void note_given(render::RenderPlan& plan, int number);

}  // namespace desk
