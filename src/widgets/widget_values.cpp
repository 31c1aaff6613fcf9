#include "widgets/widget_values.h"

#include "params/param_values.h"

namespace velloran::widgets {
namespace {

int screen_mode(const Param* p) { return p->scale_flags & scale_mode_mask; }

bool in_pixels_p(const Param* p) {
    if (p->type == param_int) return true;
    switch (screen_mode(p)) {
        case screen_screen:
        case screen_center:
        case screen_center0:
        case screen_x:
        case screen_y:
            return true;
        default:
            return false;
    }
}

}  // namespace

FrameSize frame_size() {
    ScreenGeometry g = button_geometry();
    if (!(g.width > 0) || !(g.height > 0)) return {1, 1, 1, 1};
    g.scale_x = g.scale_y = 1;
    const float reach = norm_height(g);
    return {g.width, g.height, g.width / 2, reach > 0 ? g.height / 2 / reach : g.height / 2};
}

ValueScale value_scale(const Param* p, int channel, Quantity quantity) {
    const FrameSize f = frame_size();
    const int mode = screen_mode(p);
    const bool up = channel == 1 || quantity == Quantity::position_y || quantity == Quantity::length_y;
    const float half = (up ? f.height : f.width) / 2, unit = up ? f.unit_y : f.unit_x;
    switch (quantity) {
        case Quantity::plain:
            return {1, 0};
        case Quantity::angle:
            // Where the text turns turns into degrees, the shown number is the one in turns.
            if (mode == screen_normalize_scale && p->normalize_scale > 1) return {1 / p->normalize_scale, 0};
            return {1, 0};
        case Quantity::position:
        case Quantity::position_y:
            if (mode == screen_center0) return {1, half};
            return in_pixels_p(p) ? ValueScale{1, 0} : ValueScale{unit, half};
        case Quantity::offset:
            // Half the frame is part of the value, and no part of a way.
            if (mode == screen_center) return {1, -half};
            return in_pixels_p(p) ? ValueScale{1, 0} : ValueScale{unit, 0};
        case Quantity::length:
        case Quantity::length_y:
            if (mode == screen_center) return {1, -half};
            return {in_pixels_p(p) ? 1 : quantity == Quantity::length_y ? f.unit_y : f.unit_x, 0};
    }
    return {1, 0};
}

float flatness(const Param* p) {
    if (p && in_pixels_p(p)) return 1;
    const FrameSize f = frame_size();
    return f.unit_y / f.unit_x;
}

float current_value(Param* p, int channel) {
    if (param_on_buttons_p(p)) param_sync_from_button(p);
    return p->value[channel];
}

}  // namespace velloran::widgets
