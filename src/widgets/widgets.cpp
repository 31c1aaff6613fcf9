#include "widgets/widgets.h"

#include "params/standard_controls.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "support/host_info.h"
#include "support/optional_host.h"
#include "widgets/dispatcher.h"
#include "widgets/view.h"
#include "widgets/widget_types.h"

namespace velloran {

using widgets::Widget;
using widgets::WidgetDispatcher;

namespace {

WidgetDispatcher* effect_dispatcher(const Genotype* genotype) {
    return genotype && genotype->widgets ? genotype->widgets->dispatcher : nullptr;
}

void make_effect_widgets(EffectWidgets* all) {
    all->dispatcher = new WidgetDispatcher;
    all->dispatcher->widgets.reserve(static_cast<size_t>(all->n_widgets));  // a widget that was made has its place
    for (int i = 0; i < all->n_widgets; ++i) {
        const WidgetRecord& record = all->widgets[i];
        const WidgetType* const type = find_widget_type(record.type_name);
        if (!type) {
            V_error(level_error, "No such widget type name as %s", record.type_name ? record.type_name : "(none)");
            continue;
        }
        Widget* const widget = type->create(record.name, type->name, record.enable_param, record.parts, record.n_parts);
        if (!widget) continue;
        // Which record it is of: one that could not be made leaves no gap.
        widget->index = i;
        all->dispatcher->widgets.push_back(widget);
    }
}

// Effects of a plug-in may have come to share switches since.
void renew_enables(const EffectWidgets* all) {
    for (Widget* const widget : all->dispatcher->widgets)
        widget->enable_param = all->widgets[widget->index].enable_param;
}

// The clause of a part that no text declares.
ParamWidgetData clause_of_part(const char* part) {
    ParamWidgetData data = {};
    data.part_name = const_cast<char*>(part);
    data.default_on = data.enable_index = -1;
    data.number = -1;
    return data;
}

void make_crop_widgets(GlobalsV4Record* g) {
    static const struct {
        GlobalParamIndex index;
        ParamWidgetData data;
    } edges[] = {
        {global_crop_left, clause_of_part("left")},
        {global_crop_bottom, clause_of_part("bottom")},
        {global_crop_right, clause_of_part("right")},
        {global_crop_top, clause_of_part("top")},
    };
    static constexpr const char* type_name = "simple_rect";
    WidgetPart parts[4];
    int n = 0;
    for (const auto& edge : edges)
        if (g->global_params[edge.index]) parts[n++] = {g->global_params[edge.index], &edge.data};
    if (n < 4) return;  // not made yet, or a stub without a crop
    g->crop_widgets = new WidgetDispatcher;
    g->crop_widgets->widgets.reserve(1);
    const WidgetType* const type = find_widget_type(type_name);
    if (!type) {
        V_error(level_error, "Global widget %d: no such widget type name as %s", 0, type_name);
        return;
    }
    if (Widget* const crop = type->create("Crop", type->name, g->global_params[global_crop_view], parts, n))
        g->crop_widgets->widgets.push_back(crop);
}

// The standard controls may have been made anew.
bool crop_widgets_outdated_p(const GlobalsV4Record* g) {
    for (const Widget* const crop : g->crop_widgets->widgets)
        if (crop->part_param("left") != g->global_params[global_crop_left] ||
            crop->enable_param != g->global_params[global_crop_view])
            return true;
    return false;
}

}  // namespace

void make_effect_handles(Genotype* genotype) {
    if (genotype && genotype->widgets && !genotype->widgets->dispatcher) make_effect_widgets(genotype->widgets);
}

void spark_create_widgets(Genotype* genotype) {
    make_effect_handles(genotype);
    if (genotype && genotype->widgets) renew_enables(genotype->widgets);
    if (Globals_V4->crop_widgets && crop_widgets_outdated_p(Globals_V4)) free_crop_widgets();
    if (!Globals_V4->crop_widgets) make_crop_widgets(Globals_V4);
}

void free_widget_dispatcher(EffectWidgets* all) {
    delete all->dispatcher;
    all->dispatcher = nullptr;
}

void free_crop_widgets() {
    delete Globals_V4->crop_widgets;
    Globals_V4->crop_widgets = nullptr;
}

void spark_redraw_widgets(Genotype* genotype, SparkInfoStruct* info, void*, float zoom, float ratio) {
    WidgetDispatcher* const crop = Globals_V4->crop_widgets;
    WidgetDispatcher* const effect = effect_dispatcher(genotype);
    if (!any_widgets_enabled_p() && !(crop && crop->any_enabled_p())) return;
    widgets::setup_view(info, zoom, ratio);
    if (!widgets::gfx_begin_overlay()) return;
    if (crop) crop->dispatch_refresh_event();
    if (effect) effect->dispatch_refresh_event();
    widgets::gfx_end_overlay();
}

int spark_dispatch_mouse_event(SparkInfoStruct* info, float x, float y, int down, float zoom, int* need_process) {
    GlobalsV4Record* const g = Globals_V4;
    widgets::setup_view(info, zoom, host_api_at_least(4.019f) ? v_sparkGetViewerRatio() : 1.0f);
    WidgetDispatcher* order[] = {effect_dispatcher(g->effect_genotype), g->crop_widgets};
    // Who has the pen keeps it.
    if (order[1] && order[1]->dragging) std::swap(order[0], order[1]);
    g->dragging = 0;
    int consumed = 0;
    for (WidgetDispatcher* const dispatcher : order) {
        if (!dispatcher) continue;
        if (consumed) {
            dispatcher->unhilightAll();
            continue;
        }
        const int word = dispatcher->dispatch_mouse_event(x, y, down != 0);
        if (word & widgets::event_changed) *need_process = 1;
        if (down && (word & widgets::event_kind_mask) == widgets::event_drag) g->dragging = 2;
        if ((word & widgets::event_over) || (word & widgets::event_kind_mask)) consumed = 1;
    }
    if (widgets::take_redraw_request()) sparkViewingDraw();
    return consumed;
}

bool any_widgets_enabled_p() {
    const WidgetDispatcher* const effect = effect_dispatcher(Globals_V4->effect_genotype);
    return effect && effect->any_enabled_p();
}

}  // namespace velloran
