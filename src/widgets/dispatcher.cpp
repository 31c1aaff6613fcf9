#include "widgets/dispatcher.h"

#include "params/undo.h"

namespace velloran::widgets {
namespace {

constexpr float nowhere = -10000;

bool redraw_requested = false;

}  // namespace

WidgetDispatcher::~WidgetDispatcher() {
    for (const Widget* const widget : widgets) delete widget;
}

int WidgetDispatcher::dispatch_mouse_event(float x, float y, bool down) {
    if (!enabled) return 0;
    const bool was_pressed = was_pressed_;
    was_pressed_ = down;
    int result = 0;
    if (!was_pressed) {
        result = dispatch_move_event(x, y);
        if (down && (result & event_over)) result |= dispatch_press_event(x, y) | event_press;
    } else if (dragging) {
        result = dispatch_drag_event(x, y);
        if (down)
            result |= event_drag;
        else
            result |= dispatch_release_event(x, y) | event_release;
    } else if (!down) {
        result = dispatch_move_event(x, y);
    }  // a pen that came down beside every handle is not looked at until it is lifted
    const bool moved_on = active_widget != widget_before_ || active_region != region_before_;
    if (was_pressed != down || (result & event_kind_mask) == event_drag || moved_on) result |= event_changed;
    widget_before_ = active_widget;
    region_before_ = active_region;
    return result;
}

int WidgetDispatcher::dispatch_move_event(float x, float y) {
    if (dragging) return event_over;
    const Widget* const before = active_widget;
    if (checkHit(x, y)) {
        highlight(active_widget, active_region);
        return event_over | event_active;
    }
    unhilightAll();
    return before ? event_active : 0;
}

int WidgetDispatcher::dispatch_press_event(float x, float y) {
    dragging = false;
    last_x = last_y = nowhere;
    spark_make_next_undo_record_a_boundary();
    if (!checkHit(x, y)) {
        unhilightAll();
        return 0;
    }
    dragging = true;
    highlight(active_widget, active_region);
    active_widget->active_region = active_region;
    update();
    active_widget->startDrag(active_region, x, y);
    return event_over;
}

int WidgetDispatcher::dispatch_drag_event(float x, float y) {
    if (!active_widget || active_region < 0) return 0;
    if (x == last_x && y == last_y) return 0;
    last_x = x;
    last_y = y;
    // Values that change on the way ask for no drawing of their own.
    update_wanted = false;
    active_widget->getValuesFromParams();
    active_widget->drag(active_region, x, y);
    active_widget->needs_update = false;
    active_widget->_setValuesIntoParams();
    update_wanted = true;
    update();
    return event_over;
}

int WidgetDispatcher::dispatch_release_event(float x, float y) {
    const int region = active_region;
    if (active_widget) {
        active_widget->active_region = -1;
        update();
        active_widget->stopDrag(region, x, y);
    }
    dragging = false;
    spark_make_next_undo_record_a_boundary();
    return active_widget ? event_over : 0;
}

void WidgetDispatcher::dispatch_refresh_event() { redraw(true); }

void WidgetDispatcher::dispatch_param_change_event() {
    if (haveAnyParamValuesChanged()) update();
}

bool WidgetDispatcher::checkHit(float x, float y) {
    for (auto widget = widgets.rbegin(); widget != widgets.rend(); ++widget) {
        const int region = (*widget)->hit(x, y);
        if (region < 0) continue;
        active_widget = *widget;
        active_region = region;
        return true;
    }
    return false;
}

void WidgetDispatcher::highlight(Widget* widget, int region) {
    bool changed = false;
    for (Widget* const other : widgets) {
        const int now = other == widget ? region : -1;
        changed = changed || other->hilite_region != now;
        other->hilite_region = now;
    }
    if (changed) update();
}

void WidgetDispatcher::unhilightAll() {
    active_widget = nullptr;
    active_region = -1;
    highlight(nullptr, -1);
}

void WidgetDispatcher::redraw(bool force) {
    if (!enabled) return;
    if (!haveAnyParamValuesChanged() && !force) return;
    for (Widget* const widget : widgets) widget->draw();
}

void WidgetDispatcher::update() { redraw_requested |= update_wanted; }

bool WidgetDispatcher::haveAnyParamValuesChanged() {
    bool any = false;
    for (Widget* const widget : widgets) {
        if (widget->haveAnyParamValuesChanged()) widget->needs_update = true;
        any |= widget->needs_update;
    }
    return any;
}

const char* WidgetDispatcher::get_current_widget_name() const {
    return active_widget && active_widget->name ? active_widget->name : "";
}

bool WidgetDispatcher::any_enabled_p() const {
    for (const Widget* const widget : widgets)
        if (widget->isEnabled()) return true;
    return false;
}

void enable_dispatcher(WidgetDispatcher* dispatcher) { dispatcher->enabled = true; }

void disable_dispatcher(WidgetDispatcher* dispatcher) {
    dispatcher->enabled = false;
    dispatcher->unhilightAll();
}

bool take_redraw_request() {
    const bool requested = redraw_requested;
    redraw_requested = false;
    return requested;
}

}  // namespace velloran::widgets
