#include "widgets/glyph_shapes.h"

namespace velloran::widgets {
namespace {

template <const auto&... shapes>
constexpr const GraphicPrimitive* list_of[] = {&shapes...};

constexpr Color orange = {1.0f, 0.6f, 0.15f};

// Lines.
constexpr Line level(-1, 0, 1, 0), upright(0, -1, 0, 1);
constexpr Line unit_x, unit_y(0, 0, 0, 1);
constexpr Line rising(-0.7f, -0.7f, 0.7f, 0.7f), falling(-0.7f, 0.7f, 0.7f, -0.7f);
constexpr Line dash_l1(-1, 0, -0.7f, 0), dash_l2(-0.4f, 0, -0.1f, 0), dash_r1(0.1f, 0, 0.4f, 0), dash_r2(0.7f, 0, 1, 0);
constexpr Line dash_d1(0, -1, 0, -0.7f), dash_d2(0, -0.4f, 0, -0.1f), dash_u1(0, 0.1f, 0, 0.4f), dash_u2(0, 0.7f, 0, 1);
// A cross that leaves its middle free, so that one sees what it points at.
constexpr Line gap_l(-1, 0, -0.2f, 0), gap_r(0.2f, 0, 1, 0), gap_d(0, -1, 0, -0.2f), gap_u(0, 0.2f, 0, 1);
constexpr Dot middle_dot(0, 0, 0.05f);
constexpr Circle ring, small_ring(0.55f);
constexpr Ellipse whole_ellipse;
constexpr Ellipse ellipse_d0(1, 1, 0, 0.0625f), ellipse_d1(1, 1, 0.125f, 0.1875f), ellipse_d2(1, 1, 0.25f, 0.3125f),
    ellipse_d3(1, 1, 0.375f, 0.4375f), ellipse_d4(1, 1, 0.5f, 0.5625f), ellipse_d5(1, 1, 0.625f, 0.6875f),
    ellipse_d6(1, 1, 0.75f, 0.8125f), ellipse_d7(1, 1, 0.875f, 0.9375f);
// A line with a mark at its middle, where one takes hold of it.
constexpr Line mid_a(0.5f, -0.02f, 0.5f, 0.02f);
constexpr Dot end_0(0, 0, 0.03f), end_1(1, 0, 0.03f);

// Arrows.
constexpr Line head_r1(1, 0, 0.65f, 0.25f), head_r2(1, 0, 0.65f, -0.25f), head_l1(-1, 0, -0.65f, 0.25f),
    head_l2(-1, 0, -0.65f, -0.25f);
constexpr Line head_u1(0, 1, 0.25f, 0.65f), head_u2(0, 1, -0.25f, 0.65f), head_d1(0, -1, 0.25f, -0.65f),
    head_d2(0, -1, -0.25f, -0.65f);
// A quarter of a circle about (-0.6, 0) that runs upwards, as the path of a handle that turns; its ends are arrows.
constexpr Line bow_1(0, -0.85f, 0.18f, -0.6f), bow_2(0.18f, -0.6f, 0.29f, -0.31f), bow_3(0.29f, -0.31f, 0.33f, 0),
    bow_4(0.33f, 0, 0.29f, 0.31f), bow_5(0.29f, 0.31f, 0.18f, 0.6f), bow_6(0.18f, 0.6f, 0, 0.85f);
constexpr Line bow_h1(0, 0.85f, 0.03f, 0.48f), bow_h2(0, 0.85f, 0.35f, 0.72f), bow_h3(0, -0.85f, 0.03f, -0.48f),
    bow_h4(0, -0.85f, 0.35f, -0.72f);
// The same that runs across, bent upwards.
constexpr Line arch_1(-0.85f, 0, -0.6f, 0.18f), arch_2(-0.6f, 0.18f, -0.31f, 0.29f), arch_3(-0.31f, 0.29f, 0, 0.33f),
    arch_4(0, 0.33f, 0.31f, 0.29f), arch_5(0.31f, 0.29f, 0.6f, 0.18f), arch_6(0.6f, 0.18f, 0.85f, 0);
constexpr Line arch_h1(0.85f, 0, 0.48f, 0.03f), arch_h2(0.85f, 0, 0.72f, 0.35f), arch_h3(-0.85f, 0, -0.48f, 0.03f),
    arch_h4(-0.85f, 0, -0.72f, 0.35f);

// Boxes and corners.
constexpr Line box_b(-1, -1, 1, -1), box_r(1, -1, 1, 1), box_t(1, 1, -1, 1), box_l(-1, 1, -1, -1);
// A corner that can be pulled: an angle, and an arrow outwards through it.
constexpr Line pull(0.35f, 0.35f, -0.55f, -0.55f), pull_h1(-0.55f, -0.55f, -0.15f, -0.5f),
    pull_h2(-0.55f, -0.55f, -0.5f, -0.15f);

#define DASHED_ELLIPSE ellipse_d0, ellipse_d1, ellipse_d2, ellipse_d3, ellipse_d4, ellipse_d5, ellipse_d6, ellipse_d7
#define DASHED_CROSS dash_l1, dash_l2, dash_r1, dash_r2, dash_d1, dash_d2, dash_u1, dash_u2
#define CIRCLE_CROSS small_ring, gap_l, gap_r, gap_d, gap_u, middle_dot
#define UP_DOWN upright, head_u1, head_u2, head_d1, head_d2
#define CORNER unit_x, unit_y
#define FANCY_CORNER unit_x, unit_y, pull, pull_h1, pull_h2

}  // namespace

#define SHAPE(name, color, ...) const Glyph name = {#name, list_of<__VA_ARGS__>, color, {}};
SHAPE(simple_cross, Color::default_color, level, upright)
SHAPE(simple_cross_dash, Color::default_color, DASHED_CROSS)
SHAPE(simple_cross_dash_green, Color::green, DASHED_CROSS)
SHAPE(single_line, Color::default_color, level)
SHAPE(line_01x, Color::default_color, unit_x)
SHAPE(line_01xmid, Color::default_color, unit_x, mid_a)
SHAPE(line_01xmid_orange, orange, unit_x, mid_a)
SHAPE(line_01y, Color::default_color, unit_y)
SHAPE(line_01x_green, Color::green, unit_x)
SHAPE(line_01y_green, Color::green, unit_y)
SHAPE(line_01x_crop, Color::crop, unit_x)
SHAPE(single_circle, Color::default_color, ring)
SHAPE(single_circle_green, Color::green, ring)
SHAPE(single_ellipse, Color::default_color, whole_ellipse)
SHAPE(ellipse_white, Color::white, whole_ellipse)
SHAPE(ellipse_white_dash, Color::white, DASHED_ELLIPSE)
SHAPE(ellipse_red, Color::red, whole_ellipse)
SHAPE(ellipse_green, Color::green, whole_ellipse)
SHAPE(ellipse_blue, Color::blue, whole_ellipse)
SHAPE(circle_cross, Color::default_color, CIRCLE_CROSS)
SHAPE(circle_cross_crop, Color::crop, CIRCLE_CROSS)
SHAPE(circle_cross_red, Color::red, CIRCLE_CROSS)
SHAPE(circle_cross_green, Color::green, CIRCLE_CROSS)
SHAPE(circle_cross_blue, Color::blue, CIRCLE_CROSS)
SHAPE(cross, Color::default_color, gap_l, gap_r, gap_d, gap_u, middle_dot)
SHAPE(star8, Color::default_color, level, upright, rising, falling)
SHAPE(v_double_arrow, Color::default_color, UP_DOWN)
SHAPE(v_double_arrow_green, Color::green, UP_DOWN)
SHAPE(v_double_arrow_white, Color::white, UP_DOWN)
SHAPE(double_arrow, Color::default_color, level, head_r1, head_r2, head_l1, head_l2)
SHAPE(curved_double_arrow, Color::default_color, bow_1, bow_2, bow_3, bow_4, bow_5, bow_6, bow_h1, bow_h2, bow_h3,
      bow_h4)
SHAPE(v_curved_double_arrow, Color::default_color, arch_1, arch_2, arch_3, arch_4, arch_5, arch_6, arch_h1, arch_h2,
      arch_h3, arch_h4)
SHAPE(box, Color::default_color, box_b, box_r, box_t, box_l)
SHAPE(fancy_corner, Color::default_color, FANCY_CORNER)
SHAPE(fancy_corner_green, Color::green, FANCY_CORNER)
SHAPE(X, Color::default_color, rising, falling)
SHAPE(line_with_dots, Color::default_color, unit_x, end_0, end_1)
SHAPE(corner_lb, Color::default_color, CORNER)
SHAPE(corner_lb_crop, Color::crop, CORNER)
#undef SHAPE

std::span<const Glyph* const> all_glyphs() {
    static constexpr const Glyph* all[] = {
#define ENTRY(name) &name,
        WIDGET_GLYPHS(ENTRY)
#undef ENTRY
    };
    return all;
}

}  // namespace velloran::widgets
