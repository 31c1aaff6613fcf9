// An ellipse about a centre: its size, its form across and up, how it is turned, and a soft edge around it.
//
// With the param of width, that is the size and the others are shares of it; without it they are lengths themselves. A
// width of two elements holds both. Declarations choose how it looks by the glyph of a part: "no_handles" leaves out
// what changes form and turn; "lensflare" draws a dashed ellipse, since a flare has no edge, where a size of 1 is an
// eighth of the frame's width; "scale2" shows everything at twice its size.
#include "widgets/glyph_shapes.h"
#include "widgets/placement.h"
#include "widgets/view.h"
#include "widgets/widget_factory.h"

#include <algorithm>
#include <cstring>

namespace velloran::widgets {

class EllipseWidget final : public AnchoredWidget {
public:
    using AnchoredWidget::AnchoredWidget;

    bool build() {
        flare_ = option("lensflare");
        factor_ = flare_ ? 0.25f : option("scale2") ? 2.0f : 1.0f;
        // A centre may carry the option instead of a shape.
        const char* const shape = glyph_name("center");
        if (!build_anchor(option_p(shape) ? "" : shape)) return false;
        if (!option("no_handles")) {
            x_end_ = addGlyphToRegion(double_arrow, x_end);
            y_end_ = addGlyphToRegion(v_double_arrow, y_end);
            if (has("angle")) arrow_ = addGlyphToRegion(curved_double_arrow, turn);
        }
        if (has("edge_width")) {
            edge_grip_ = addGlyphToRegion(v_double_arrow_white, edge);
            edge_ = addGlyphToRegion(ellipse_white_dash, edge);
        }
        rim_ = addGlyphToRegion(flare_ ? ellipse_white_dash : single_ellipse, rim);
        return true;
    }

    void startDrag(int, float x, float y) override {
        const Point pen = {x, y};
        start_anchor(pen);
        press_ = frame_.in(pen);
        at_press_ = {radius_[0], radius_[1]};
        edge_at_press_ = edge_width_;
        turn_.start(frame_.turns_of(pen), frame_.turns);
        rim_grip_.start(press_, radius_[0], radius_[1], smallest());
    }

    // The rim keeps form and turn; an end keeps the other axis; the edge keeps the ellipse. All of these keep the
    // place.
    void drag(int region, float x, float y) override {
        const Point pen = {x, y}, way = frame_.in(pen)-press_;
        drag_anchor(region, pen);
        switch (region) {
            case x_end:
                radius_[0] = std::max(0.0f, at_press_.x + way.x);
                if (one_size_p()) radius_[1] = radius_[0];
                break;
            case y_end:
                radius_[1] = std::max(0.0f, at_press_.y + way.y);
                if (one_size_p()) radius_[0] = radius_[1];
                break;
            case turn:
                frame_.turns = turn_.move(frame_.turns_of(pen));
                break;
            case edge:
                edge_width_ = std::max(0.0f, edge_at_press_ + length(frame_.in(pen)) - length(press_));
                break;
            case rim:
                rim_grip_.move(frame_.in(pen), &radius_[0], &radius_[1]);
                break;
        }
        moved_ = region;
    }

    void getValuesFromParams() override {
        get_anchor();
        frame_.origin = middle();
        frame_.flat = part_flatness(has("width") ? "width" : has("rel_xy") ? "rel_xy" : "rel_width");
        frame_.turns = 0;
        maybe_set_val("angle", &frame_.turns, 1, Quantity::angle);
        width_[0] = width_[1] = 1;
        if (maybe_set_val("width", width_, 2, Quantity::length) && channels("width") == 1) width_[1] = width_[0];
        relative_[0] = relative_[1] = 1;
        maybe_set_val("rel_xy", relative_, 2, relative_quantity());
        maybe_set_val("rel_width", &relative_[0], 1, relative_quantity());
        maybe_set_val("rel_height", &relative_[1], 1, relative_quantity());
        for (int i = 0; i < 2; ++i) radius_[i] = factor_ * width_[i] * relative_[i];
        edge_width_ = 0;
        maybe_set_val("edge_width", &edge_width_, 1, Quantity::length);
        moved_ = -1;
    }

    void _setValuesIntoParams() override {
        set_anchor();
        maybe_set_param("angle", &frame_.turns, 1, Quantity::angle);
        maybe_set_param("edge_width", &edge_width_, 1, Quantity::length);
        if (moved_ != rim && moved_ != x_end && moved_ != y_end) return;
        const bool own_share[2] = {has("rel_xy") || has("rel_width"), has("rel_xy") || has("rel_height")};
        if (moved_ == rim) {
            // The size takes what is common to both.
            const bool size = has("width");
            for (int i = 0; i < 2; ++i) set_factor(size ? width_[i] : relative_[i], size ? relative_[i] : width_[i], i);
        } else {
            const int i = moved_ == x_end ? 0 : 1;
            if (own_share[i]) {
                set_factor(relative_[i], width_[i], i);
            } else {
                // Without a share of its own it changes the size, and the other share makes up for that.
                set_factor(width_[i], relative_[i], i);
                if (channels("width") == 1) width_[1 - i] = width_[i];
                if (own_share[1 - i]) set_factor(relative_[1 - i], width_[1 - i], 1 - i);
            }
        }
        maybe_set_param("width", width_, 2, Quantity::length);
        maybe_set_param("rel_xy", relative_, 2, relative_quantity());
        maybe_set_param("rel_width", &relative_[0], 1, relative_quantity());
        maybe_set_param("rel_height", &relative_[1], 1, relative_quantity());
    }

    bool setGlyphTransforms() override {
        lay_anchor_out();
        frame_.origin = middle();
        const float least = smallest();
        const float rx = std::max(std::fabs(radius_[0]), least), ry = std::max(std::fabs(radius_[1]), least);
        rim_->transform = frame_.ellipse(rx, ry);
        if (x_end_) x_end_->transform = frame_.glyph({rx, 0}, grip_pixels);
        if (y_end_) y_end_->transform = frame_.glyph({0, ry}, grip_pixels);
        if (arrow_) arrow_->transform = frame_.glyph({rx + 30 * frame_.pixels(), 0}, center_pixels * 0.8f);
        if (edge_) {
            edge_->transform = frame_.ellipse(rx + edge_width_, ry + edge_width_);
            // Opposite the end that changes the form, so that an edge of no width is found too.
            edge_grip_->transform = frame_.glyph({0, -ry - edge_width_}, grip_pixels);
        }
        return usable(middle()) && std::isfinite(rx + ry + frame_.turns + edge_width_);
    }

private:
    enum : int { x_end = first_own_region, y_end, turn, edge, rim };

    static bool option_p(const char* word) {
        for (const char* const known : {"no_handles", "lensflare", "scale2"})
            if (std::strcmp(word, known) == 0) return true;
        return false;
    }
    bool option(const char* word) const {
        for (const char* part : {"center", "width", "rel_xy", "rel_width", "rel_height"})
            if (std::strcmp(glyph_name(part), word) == 0) return true;
        return false;
    }
    bool has_shares() const { return has("rel_xy") || has("rel_width") || has("rel_height"); }
    // A single number is the size both ways.
    bool one_size_p() const { return !has_shares() && channels("width") == 1; }
    Quantity relative_quantity() const { return has("width") ? Quantity::plain : Quantity::length; }
    // One of the factors of a radius, from the others.
    void set_factor(float& value, float other, int i) const {
        if (factor_ * other != 0) value = radius_[i] / (factor_ * other);
    }
    float smallest() const { return 5 * frame_.pixels(); }

    Glyph *rim_ = nullptr, *x_end_ = nullptr, *y_end_ = nullptr, *arrow_ = nullptr;
    Glyph *edge_ = nullptr, *edge_grip_ = nullptr;
    bool flare_ = false;
    float factor_ = 1;
    LocalFrame frame_;
    float width_[2] = {1, 1}, relative_[2] = {1, 1}, radius_[2] = {1, 1};
    float edge_width_ = 0, edge_at_press_ = 0;
    Point press_ = {0, 0}, at_press_ = {0, 0};
    int moved_ = -1;
    TurnGrip turn_;
    RimGrip rim_grip_;
};

DEFINE_WIDGET_FACTORY(ellipse, EllipseWidget)

}  // namespace velloran::widgets
