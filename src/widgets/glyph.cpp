#include "widgets/glyph.h"

#include "widgets/view.h"

namespace velloran::widgets {

bool Glyph::hit_p(float x, float y) const {
    Affine inverse;
    if (!transform.invert(&inverse)) return false;
    const Point p = {x, y};
    const Point at = inverse(p);
    if (!usable(at)) return false;
    // The tolerance in the glyph's units, measured towards its middle: where it is drawn wider than high, that is the
    // way on which a pen beside the shape lies. Where it is not, every way gives the same.
    const Point middle = {transform.m[4], transform.m[5]};
    Point way = {(middle.x - x) / view_scale_x, (middle.y - y) / view_scale_y};
    const float far = length(way);
    way = far > 0 ? way * (1 / far) : Point{1, 0};
    const Point near = inverse(p + Point{way.x * hit_pixels * view_scale_x, way.y * hit_pixels * view_scale_y});
    const float tolerance = length(near - at);
    for (const GraphicPrimitive* const primitive : primitives)
        if (primitive->hit_p(at.x, at.y, tolerance)) return true;
    return false;
}

void Glyph::draw_rim() const {
    gfx_xform_stack_push();
    gfx_multiply(transform);
    gfx_color(Color::black);
    gfx_line_width(3);
    for (const GraphicPrimitive* const primitive : primitives) primitive->draw();
    gfx_xform_stack_pop();
}

void Glyph::draw() const {
    gfx_xform_stack_push();
    gfx_multiply(transform);
    gfx_color(GS.highlighted ? Color::yellow : color);
    // Colour is never the only sign.
    gfx_line_width(GS.line_width + (GS.highlighted ? 1.0f : 0.0f));
    for (const GraphicPrimitive* const primitive : primitives) primitive->draw();
    if (GS.highlighted && GS.line_width > 1) {
        gfx_stipple(true);
        gfx_color(Color::red);
        for (const GraphicPrimitive* const primitive : primitives) primitive->draw();
        gfx_stipple(false);
    }
    gfx_xform_stack_pop();
}

}  // namespace velloran::widgets
