#include "widgets/primitives.h"

#include <algorithm>

namespace velloran::widgets {

Box Line::bbox() const {
    return {{std::min(from_.x, to_.x), std::min(from_.y, to_.y)}, {std::max(from_.x, to_.x), std::max(from_.y, to_.y)}};
}

bool Line::hit_p(float x, float y, float tolerance) const {
    const Point way = to_ - from_, p = Point{x, y} - from_;
    const float whole = dot(way, way);
    const float t = whole > 0 ? std::clamp(dot(p, way) / whole, 0.0f, 1.0f) : 0.0f;
    return length(p - way * t) <= tolerance;
}

void Line::draw() const { gfx_line(from_, to_); }

Box Ellipse::bbox() const { return {{-radius_x_, -radius_y_}, {radius_x_, radius_y_}}; }

bool Ellipse::hit_p(float x, float y, float tolerance) const {
    const Point p = {x, y}, unit = {x / radius_x_, y / radius_y_};
    if (to_ - from_ < 1) {
        for (const float end : {from_, to_}) {
            const float angle = end * 2 * std::numbers::pi_v<float>;
            if (length(p - Point{radius_x_ * std::cos(angle), radius_y_ * std::sin(angle)}) <= tolerance) return true;
        }
        const float turns = std::atan2(unit.y, unit.x) / (2 * std::numbers::pi_v<float>)-from_;
        if (turns - std::floor(turns) > to_ - from_) return false;
    }
    // To the point of the ellipse in the same direction.
    const float r = length(unit);
    if (r == 0) return std::min(std::fabs(radius_x_), std::fabs(radius_y_)) <= tolerance;
    return length(p * (1 - 1 / r)) <= tolerance;
}

void Ellipse::draw() const { gfx_arc({0, 0}, radius_x_, radius_y_, from_, to_); }

Box Circle::bbox() const { return {{-radius_, -radius_}, {radius_, radius_}}; }

bool Circle::hit_p(float x, float y, float tolerance) const {
    return std::fabs(std::hypot(x, y) - radius_) <= tolerance;
}

void Circle::draw() const { gfx_circle({0, 0}, radius_); }

Box Dot::bbox() const { return {{at_.x - half_, at_.y - half_}, {at_.x + half_, at_.y + half_}}; }

bool Dot::hit_p(float x, float y, float tolerance) const {
    const float across = std::max(0.0f, std::fabs(x - at_.x) - half_),
                up = std::max(0.0f, std::fabs(y - at_.y) - half_);
    return std::hypot(across, up) <= tolerance;
}

void Dot::draw() const {
    const Box box = bbox();
    gfx_rect_filled(box.low, box.high);
}

}  // namespace velloran::widgets
