// The shapes of handles, one instance of each; widgets copy those that they use. Most reach from -1 to 1; lines begin
// at (0, 0) and end at 1, so that a widget lays them from one place to another, and corners have theirs at (0, 0).
#pragma once

#include "widgets/glyph.h"

namespace velloran::widgets {

#define WIDGET_GLYPHS(GLYPH)       \
    GLYPH(simple_cross)            \
    GLYPH(simple_cross_dash)       \
    GLYPH(simple_cross_dash_green) \
    GLYPH(single_line)             \
    GLYPH(line_01x)                \
    GLYPH(line_01xmid)             \
    GLYPH(line_01xmid_orange)      \
    GLYPH(line_01y)                \
    GLYPH(line_01x_green)          \
    GLYPH(line_01y_green)          \
    GLYPH(line_01x_crop)           \
    GLYPH(single_circle)           \
    GLYPH(single_circle_green)     \
    GLYPH(single_ellipse)          \
    GLYPH(ellipse_white)           \
    GLYPH(ellipse_white_dash)      \
    GLYPH(ellipse_red)             \
    GLYPH(ellipse_green)           \
    GLYPH(ellipse_blue)            \
    GLYPH(circle_cross)            \
    GLYPH(circle_cross_crop)       \
    GLYPH(circle_cross_red)        \
    GLYPH(circle_cross_green)      \
    GLYPH(circle_cross_blue)       \
    GLYPH(cross)                   \
    GLYPH(star8)                   \
    GLYPH(v_double_arrow)          \
    GLYPH(v_double_arrow_green)    \
    GLYPH(v_double_arrow_white)    \
    GLYPH(double_arrow)            \
    GLYPH(curved_double_arrow)     \
    GLYPH(v_curved_double_arrow)   \
    GLYPH(box)                     \
    GLYPH(fancy_corner)            \
    GLYPH(fancy_corner_green)      \
    GLYPH(X)                       \
    GLYPH(line_with_dots)          \
    GLYPH(corner_lb)               \
    GLYPH(corner_lb_crop)

#define DECLARE(name) extern const Glyph name;
WIDGET_GLYPHS(DECLARE)
#undef DECLARE

// All of them, in this order.
std::span<const Glyph* const> all_glyphs();

}  // namespace velloran::widgets
