// What glyphs are drawn from, in the units of the glyph. They have no state: glyphs share them.
#pragma once

#include "widgets/graphics.h"

namespace velloran::widgets {

struct Box {
    Point low, high;
};

class GraphicPrimitive {
public:
    constexpr virtual ~GraphicPrimitive() {}
    virtual Box bbox() const = 0;
    // Whether (x, y) lies within tolerance of what is drawn.
    virtual bool hit_p(float x, float y, float tolerance) const = 0;
    virtual void draw() const = 0;
};

// The segment from (0, 0) to (1, 0), or another.
class Line final : public GraphicPrimitive {
public:
    constexpr Line() = default;
    constexpr ~Line() override {}
    constexpr Line(float x0, float y0, float x1, float y1) : from_{x0, y0}, to_{x1, y1} {}
    Box bbox() const override;
    bool hit_p(float x, float y, float tolerance) const override;
    void draw() const override;

private:
    Point from_ = {0, 0}, to_ = {1, 0};
};

// An ellipse about (0, 0) or part of one, counter-clockwise between two angles in turns.
class Ellipse final : public GraphicPrimitive {
public:
    constexpr Ellipse() = default;
    constexpr ~Ellipse() override {}
    constexpr Ellipse(float radius_x, float radius_y, float from = 0, float to = 1)
        : radius_x_(radius_x), radius_y_(radius_y), from_(from), to_(to) {}
    Box bbox() const override;
    bool hit_p(float x, float y, float tolerance) const override;
    void draw() const override;

private:
    float radius_x_ = 1, radius_y_ = 1, from_ = 0, to_ = 1;
};

class Circle final : public GraphicPrimitive {
public:
    constexpr Circle() = default;
    constexpr ~Circle() override {}
    constexpr explicit Circle(float radius) : radius_(radius) {}
    Box bbox() const override;
    bool hit_p(float x, float y, float tolerance) const override;
    void draw() const override;

private:
    float radius_ = 1;
};

// A filled square.
class Dot final : public GraphicPrimitive {
public:
    constexpr ~Dot() override {}
    constexpr Dot(float x, float y, float half) : at_{x, y}, half_(half) {}
    Box bbox() const override;
    bool hit_p(float x, float y, float tolerance) const override;
    void draw() const override;

private:
    Point at_;
    float half_;
};

}  // namespace velloran::widgets
