// What handles share that stand at a place of the frame, turned or not.
#pragma once

#include "widgets/widget.h"

namespace velloran::widgets {

constexpr float center_pixels = 25;  // from the middle of a cross to its ends, on the screen
constexpr float grip_pixels = 12;    // the same of small handles

Point frame_middle();
Point mirrored(Point p);  // through the middle of the frame

// The glyph of a centre by the name that declarations use, "" the usual one; null: no such name.
const Glyph* center_glyph(const char* name);

// Coordinates about a place, turned as the effect turns: an effect whose pixels are wider than high turns in its own
// coordinates, so that what is round to it is flat in pixels. A length of 1 is a pixel across.
struct LocalFrame {
    Point origin = {0, 0};
    float turns = 0;
    float flat = 1;  // height over width, in pixels, of what is round

    Affine map() const;
    Point out(Point local) const { return map()(local); }
    Point in(Point p) const;                        // the inverse
    Point way_in(Point way) const;                  // of a way between two points
    float turns_of(Point p) const;                  // where p lies as seen from the origin, turns left aside
    float pixels() const;                           // so many lengths does a pixel of the window cover
    Affine glyph(Point local, float pixels) const;  // keeps its size on the screen, turned along
    Affine line(Point from, Point to) const;        // for shapes from (0, 0) to (1, 0), between local points
    Affine ellipse(float radius_x, float radius_y) const;
};

// The way of a pen around a place: every turn counts.
class TurnGrip {
public:
    void start(float pen_turns, float value);
    float move(float pen_turns);  // the value turned along

private:
    float last_ = 0, value_ = 0;
};

// A length that is dragged by an ellipse's rim: the factor by which the pen changed its distance, counted in radii. An
// ellipse too small to count in is pulled away from its middle.
class RimGrip {
public:
    void start(Point local, float radius_x, float radius_y, float smallest);
    void move(Point local, float* radius_x, float* radius_y) const;

private:
    float radius_x_ = 0, radius_y_ = 0, reach_ = 0, distance_ = 0;
    bool small_ = false;
};

// A widget with the parts center, offset and negate. Its place is the centre, or what lies opposite through the middle
// of the frame where the param of negate is on, moved by the offset.
class PlacedWidget : public Widget {
public:
    using Widget::Widget;

protected:
    bool negated();
    Point get_offset();
    Point get_center(Point otherwise);  // mirrored where it is negated; otherwise: without a centre
    Point get_place(Point otherwise) { return get_center(otherwise) + get_offset(); }
    void set_center(Point at);
    // Moves the centre; the offset stays.
    void set_place(Point at) { set_center(at - get_offset()); }
};

// One whose centre, offset and side are handles of their own: the centre moves everything, a box moves the offset
// alone, and an X stands where the centre would be on the other side: drawn away from there it takes the centre there.
class AnchoredWidget : public PlacedWidget {
public:
    using PlacedWidget::PlacedWidget;

protected:
    enum : int { offset_region = 0, center_region = 1, negate_region = 2, first_own_region = 3 };

    bool build_anchor(const char* named);  // the centre's glyph; false after a message
    void start_anchor(Point pen);
    void drag_anchor(int region, Point pen);
    void get_anchor();
    void set_anchor();
    void lay_anchor_out();
    Point middle() const { return center_ + offset_; }

private:
    Glyph *box_ = nullptr, *cross_ = nullptr, *x_ = nullptr;
    Point center_ = {0, 0}, offset_ = {0, 0};
    Point press_ = {0, 0}, center_at_press_ = {0, 0}, offset_at_press_ = {0, 0};
    Point unmirrored_ = {0, 0};  // what the centre's param says, at the press
    float negate_ = 0;
};

}  // namespace velloran::widgets
