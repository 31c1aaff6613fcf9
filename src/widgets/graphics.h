// Drawing in the viewer: a stack of maps, and lines, circles and filled rectangles that go through its top into pixels
// of the viewer's window. Vertices are held to +-16383, so that no value is too large for a driver. Host's thread only.
#pragma once

#include "widgets/affine.h"

#include <cstdint>

namespace velloran::widgets {

// Red, green and blue from 0 to 1.
struct Color {
    float r, g, b;
    static const Color default_color, crop, red, green, yellow, blue, black, white;
};
inline constexpr Color Color::default_color = {0.3f, 0.85f, 1.0f};
inline constexpr Color Color::crop = {1.0f, 0.45f, 0.8f};
inline constexpr Color Color::red = {1.0f, 0.3f, 0.25f};
inline constexpr Color Color::green = {0.35f, 1.0f, 0.4f};
inline constexpr Color Color::yellow = {1.0f, 1.0f, 0.15f};
inline constexpr Color Color::blue = {0.4f, 0.6f, 1.0f};
inline constexpr Color Color::black = {0, 0, 0};
inline constexpr Color Color::white = {1, 1, 1};

// What all glyphs are drawn with.
struct GraphicsState {
    uint8_t highlighted;
    float line_width;  // 2 of the region that is dragged, else 1
};
extern GraphicsState GS;

constexpr int xform_stack_size = 8;

void gfx_xform_stack_reset();  // one entry that changes nothing
void gfx_xform_stack_push();
void gfx_xform_stack_pop();
// These act on the top.
void gfx_translate(float x, float y);
void gfx_rotate(float turns);
void gfx_scale(float x, float y);
void gfx_multiply(const Affine& first);
const Affine& gfx_top();

// The overlay's frame: everything between leaves the host's state as it was. False where nothing can be drawn.
bool gfx_begin_overlay();
void gfx_end_overlay();

void gfx_color(Color color);
void gfx_line_width(float width);
void gfx_stipple(bool on);  // dashes of four pixels
void gfx_line(Point from, Point to);
// Part of an ellipse as a line, from one angle counter-clockwise to another, in turns.
void gfx_arc(Point center, float radius_x, float radius_y, float from, float to);
void gfx_circle(Point center, float radius);
void gfx_rect_filled(Point low, Point high);

}  // namespace velloran::widgets
