// The handles of one effect, or of the crop, and the pen over them: highlighting, drags, and a step of Undo for each
// drag. Host's thread only.
#pragma once

#include "widgets/widget.h"

namespace velloran::widgets {

// Bits of an answer to a pen event. The two of the kind are one number.
enum : int {
    event_over = 1,    // the pen is over a handle, or has one
    event_active = 2,  // a handle is or was highlighted
    event_kind_mask = 0x3000,
    event_press = 0x1000,
    event_drag = 0x2000,
    event_release = 0x3000,
    event_changed = 0x8000  // what is seen is no longer right
};

class WidgetDispatcher : public Kept {
public:
    WidgetDispatcher() = default;
    ~WidgetDispatcher();
    WidgetDispatcher(const WidgetDispatcher&) = delete;
    WidgetDispatcher& operator=(const WidgetDispatcher&) = delete;

    int dispatch_mouse_event(float x, float y, bool down);
    int dispatch_move_event(float x, float y);
    int dispatch_press_event(float x, float y);
    int dispatch_drag_event(float x, float y);
    int dispatch_release_event(float x, float y);
    void dispatch_refresh_event();       // the viewer was drawn
    void dispatch_param_change_event();  // params may have changed by other ways

    // Looks for the handle under a point, the last made first, and makes it the active one.
    bool checkHit(float x, float y);
    void unhilightAll();
    void redraw(bool force);  // without force only where a value has changed
    void update();            // the viewer is to be drawn again
    bool haveAnyParamValuesChanged();
    const char* get_current_widget_name() const;  // of the active one, "" none
    bool any_enabled_p() const;

    KeptVector<Widget*> widgets;  // owned
    Widget* active_widget = nullptr;
    int active_region = -1;
    bool update_wanted = true;
    bool enabled = true;
    bool dragging = false;
    float last_x = 0, last_y = 0;

private:
    void highlight(Widget* widget, int region);

    bool was_pressed_ = false;
    const Widget* widget_before_ = nullptr;  // active after the event before
    int region_before_ = -1;
};

void enable_dispatcher(WidgetDispatcher* dispatcher);
void disable_dispatcher(WidgetDispatcher* dispatcher);

// Whether a dispatcher asked for the viewer to be drawn since this was asked last.
bool take_redraw_request();

}  // namespace velloran::widgets
