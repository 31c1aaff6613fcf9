#include "widgets/graphics.h"

#include "support/errors.h"
#include "widgets/gl_calls.h"

#include <algorithm>

namespace velloran::widgets {

GraphicsState GS = {0, 1};

namespace {

constexpr float largest_vertex = 16383;
constexpr GLushort dashes = 61680;  // 0xF0F0

Affine gfx_xform_stack[xform_stack_size];
int top_index = 0;
const GlCalls* gl = nullptr;  // while an overlay is drawn
// What the driver was told last: it waits with drawing until something changes.
Color color_now = {-1, -1, -1};
float width_now = -1;

float held(float v) { return v > -largest_vertex ? std::min(v, largest_vertex) : -largest_vertex; }

Point to_window(Point p) {
    const Point q = gfx_top()(p);
    return {held(q.x), held(q.y)};
}

void vertex(Point p) {
    const Point q = to_window(p);
    const float v[2] = {q.x, q.y};
    gl->glVertex2fv(v);
}

}  // namespace

void gfx_xform_stack_reset() {
    top_index = 0;
    gfx_xform_stack[0] = {};
}

void gfx_xform_stack_push() {
    if (top_index == xform_stack_size - 1) {
        V_error(level_error, "gfx_xform_stack_push: stack is full (%d entries).", xform_stack_size);
        return;
    }
    gfx_xform_stack[top_index + 1] = gfx_xform_stack[top_index];
    ++top_index;
}

void gfx_xform_stack_pop() {
    if (top_index == 0) {
        V_error(level_error, "gfx_xform_stack_pop: stack is empty.");
        return;
    }
    --top_index;
}

void gfx_translate(float x, float y) { gfx_xform_stack[top_index].translate(x, y); }
void gfx_rotate(float turns) { gfx_xform_stack[top_index].rotate(turns); }
void gfx_scale(float x, float y) { gfx_xform_stack[top_index].scale(x, y); }
void gfx_multiply(const Affine& first) { gfx_xform_stack[top_index].multiply(first); }
const Affine& gfx_top() { return gfx_xform_stack[top_index]; }

bool gfx_begin_overlay() {
    gl = gl_calls();
    if (!gl) return false;
    color_now = {-1, -1, -1};
    width_now = -1;
    gl->glPushAttrib(GL_ALL_ATTRIB_BITS);
    // What a host may have on for its picture would colour or hide the lines.
    for (const GLenum state : {GL_TEXTURE_2D, GL_LIGHTING, GL_DEPTH_TEST}) gl->glDisable(state);
    return true;
}

void gfx_end_overlay() {
    gl->glPopAttrib();
    gl->glFlush();
    gl = nullptr;
}

void gfx_color(Color color) {
    if (color.r == color_now.r && color.g == color_now.g && color.b == color_now.b) return;
    color_now = color;
    gl->glColor3f(color.r, color.g, color.b);
}

void gfx_line_width(float width) {
    if (width == width_now) return;
    width_now = width;
    gl->glLineWidth(width);
}

void gfx_stipple(bool on) {
    if (!on) {
        gl->glDisable(GL_LINE_STIPPLE);
        return;
    }
    gl->glLineStipple(1, dashes);
    gl->glEnable(GL_LINE_STIPPLE);
}

void gfx_line(Point from, Point to) {
    gl->glBegin(GL_LINES);
    vertex(from);
    vertex(to);
    gl->glEnd();
}

void gfx_arc(Point center, float radius_x, float radius_y, float from, float to) {
    const float size = std::max(length(gfx_top()(center + Point{radius_x, 0}) - gfx_top()(center)),
                                length(gfx_top()(center + Point{0, radius_y}) - gfx_top()(center)));
    // As fine as a circle of that size.
    const float whole = std::clamp(5.0f * std::sqrt(std::min(size, largest_vertex)), 11.0f, 301.0f);
    const int pieces = std::max(2, static_cast<int>(std::ceil(whole * std::min(1.0f, to - from))));
    gl->glBegin(GL_LINE_STRIP);
    for (int i = 0; i <= pieces; ++i) {
        const float turns = from + (to - from) * static_cast<float>(i) / static_cast<float>(pieces);
        const float angle = turns * 2 * std::numbers::pi_v<float>;
        vertex(center + Point{radius_x * std::cos(angle), radius_y * std::sin(angle)});
    }
    gl->glEnd();
}

void gfx_circle(Point center, float radius) {
    const Point middle = gfx_top()(center);
    const float across = length(gfx_top()(center + Point{radius, 0}) - middle);
    const float up = length(gfx_top()(center + Point{0, radius}) - middle);
    if (!usable(middle) || !(across > 0)) return;
    const float mapped = held(across);
    float y_scale = up / across;
    if (!(y_scale >= 0.1f) || !std::isfinite(y_scale)) y_scale = 1;
    const int slices = std::clamp(static_cast<int>(5.0f * std::sqrt(mapped)), 11, 301);
    GLUquadric* const quadric = gl->gluNewQuadric();
    if (!quadric) return;
    gl->gluQuadricDrawStyle(quadric, GLU_SILHOUETTE);
    gl->glPushMatrix();
    gl->glTranslatef(held(middle.x), held(middle.y), 0);
    gl->glScalef(1, y_scale, 1);
    gl->gluDisk(quadric, 0, static_cast<double>(mapped), slices, 1);
    gl->glPopMatrix();
    gl->gluDeleteQuadric(quadric);
}

void gfx_rect_filled(Point low, Point high) {
    gl->glBegin(GL_POLYGON);
    for (const Point corner : {low, Point{high.x, low.y}, high, Point{low.x, high.y}}) {
        const Point q = to_window(corner);
        gl->glVertex2f(q.x, q.y);
    }
    gl->glEnd();
}

}  // namespace velloran::widgets
