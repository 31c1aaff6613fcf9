// A rectangle by its centre and its size, which is its width and its height; turned, and scaled as a whole and across
// and up. Without a size it is the frame's own.
#include "widgets/glyph_shapes.h"
#include "widgets/placement.h"
#include "widgets/view.h"
#include "widgets/widget_factory.h"

#include <algorithm>
#include <cmath>

namespace velloran::widgets {

class RectCSzWidget final : public AnchoredWidget {
public:
    using AnchoredWidget::AnchoredWidget;

    bool build() {
        if (!build_anchor(glyph_name("center"))) return false;
        if (has("angle")) arrow_ = addGlyphToRegion(curved_double_arrow, turn);
        if (has("scale")) whole_ = addGlyphToRegion(fancy_corner_green, whole);
        if (has("scale_rel")) {
            up_ = addGlyphToRegion(v_double_arrow_green, relative_up);
            if (channels("scale_rel") > 1) across_ = addGlyphToRegion(double_arrow, relative_across);
        }
        for (int i = 0; i < 4; ++i) corners_[i] = addGlyphToRegion(corner_lb, first_corner + i);
        for (int i = 0; i < 4; ++i) edges_[i] = addGlyphToRegion(line_01x, first_edge + i);
        return true;
    }

    void startDrag(int, float x, float y) override {
        const Point pen = {x, y};
        start_anchor(pen);
        press_ = frame_.in(pen);
        turn_.start(frame_.turns_of(pen), frame_.turns);
        for (int i = 0; i < 2; ++i) {
            half_at_press_[i] = half(i);
            size_at_press_[i] = size_[i];
            scale_at_press_[i] = scale_[i];
            relative_at_press_[i] = relative_[i];
        }
    }

    // All but the centre's handles keep the place. A side changes its own measure, a corner both, by as much as the pen
    // goes outwards; the scale and its shares grow as the pen's distance does, and keep the size.
    void drag(int region, float x, float y) override {
        const Point pen = {x, y}, local = frame_.in(pen);
        drag_anchor(region, pen);
        if (region == turn) frame_.turns = turn_.move(frame_.turns_of(pen));
        const float reach = length(press_);
        const float factor = reach > 0 ? length(local) / reach : 1;
        if (region == whole)
            for (int i = 0; i < 2; ++i) scale_[i] = scale_at_press_[i] * factor;
        if (region == relative_across) relative_[0] = relative_at_press_[0] * share(local.x, press_.x);
        if (region == relative_up) relative_[1] = relative_at_press_[1] * share(local.y, press_.y);
        const bool corner = region >= first_corner && region < first_corner + 4;
        const bool edge = region >= first_edge && region < first_edge + 4;
        if (corner || region == first_edge + 1 || region == first_edge + 3) resize(0, local.x, press_.x);
        if (corner || region == first_edge || region == first_edge + 2) resize(1, local.y, press_.y);
        if ((corner || edge) && one_size_p()) {
            // A single number grows with the side that is dragged, or the one that went farther.
            const float grown[2] = {size_[0] - size_at_press_[0], size_[1] - size_at_press_[1]};
            const float more = std::fabs(grown[0]) > std::fabs(grown[1]) ? grown[0] : grown[1];
            for (int i = 0; i < 2; ++i) size_[i] = std::max(0.0f, size_at_press_[i] + more);
        }
    }

    void getValuesFromParams() override {
        get_anchor();
        frame_ = {middle(), 0, part_flatness(has("size") ? "size" : "center")};
        maybe_set_val("angle", &frame_.turns, 1, Quantity::angle);
        const FrameSize f = frame_size();
        size_[0] = f.width;
        size_[1] = f.height / frame_.flat;
        scale_[0] = scale_[1] = relative_[0] = relative_[1] = 1;
        maybe_set_val("size", size_, 2, Quantity::length);
        if (channels("size") == 1) size_[1] = size_[0];
        maybe_set_val("scale", scale_, 2);
        if (channels("scale") == 1) scale_[1] = scale_[0];
        maybe_set_val("scale_rel", channels("scale_rel") == 1 ? &relative_[1] : relative_, 2);
    }

    void _setValuesIntoParams() override {
        set_anchor();
        maybe_set_param("angle", &frame_.turns, 1, Quantity::angle);
        maybe_set_param("size", size_, 2, Quantity::length);
        maybe_set_param("scale", scale_, 2);
        maybe_set_param("scale_rel", channels("scale_rel") == 1 ? &relative_[1] : relative_, 2);
    }

    bool setGlyphTransforms() override {
        lay_anchor_out();
        frame_.origin = middle();
        const float least = 4 * frame_.pixels();
        const float w = std::max(std::fabs(half(0)), least), h = std::max(std::fabs(half(1)), least);
        const Point corners[4] = {{-w, -h}, {w, -h}, {w, h}, {-w, h}};
        for (int i = 0; i < 4; ++i) {
            const float right = corners[i].x > 0 ? 1.0f : -1.0f, up = corners[i].y > 0 ? 1.0f : -1.0f;
            const Point outside = {corners[i].x + right * CORNER_OFFSET * frame_.pixels(),
                                   corners[i].y + up * CORNER_OFFSET * frame_.pixels()};
            Affine& t = corners_[i]->transform;
            t = frame_.glyph(outside, grip_pixels * 1.3f);
            t.scale(-right, -up);
            edges_[i]->transform = frame_.line(corners[i], corners[(i + 1) % 4]);
        }
        if (arrow_) arrow_->transform = frame_.glyph(reachable({w + 30 * frame_.pixels(), 0}), center_pixels * 0.8f);
        if (whole_) {
            const float beyond = 6 * CORNER_OFFSET * frame_.pixels();
            whole_->transform = frame_.glyph(reachable({w + beyond, h + beyond}), grip_pixels * 1.3f);
            whole_->transform.scale(-1, -1);
        }
        if (up_) up_->transform = frame_.glyph(reachable({0, h}), grip_pixels);
        if (across_) across_->transform = frame_.glyph(reachable({w, 0}), grip_pixels);
        return usable(middle()) && std::isfinite(w + h + frame_.turns);
    }

private:
    enum : int { turn = first_own_region, whole, relative_across, relative_up, first_corner = 10, first_edge = 20 };
    static constexpr float CORNER_OFFSET = 4;  // pixels outside the corner, so that both are seen

    float half(int i) const { return size_[i] * scale_[i] * relative_[i] / 2; }
    bool one_size_p() const { return channels("size") == 1; }

    static float share(float now, float at_press) { return at_press != 0 ? std::max(0.0f, now / at_press) : 1; }

    void resize(int i, float now, float at_press) {
        const float side = at_press < 0 ? -1.0f : 1.0f;
        const float wanted = 2 * std::max(0.0f, half_at_press_[i] + side * (now - at_press));
        // Without a size the sides pull at the scale, and without that at the shares.
        if (has("size")) {
            const float rest = scale_[i] * relative_[i];
            if (rest != 0) size_[i] = wanted / rest;
        } else if (has("scale")) {
            scale_[i] = relative_[i] != 0 ? wanted / (size_[i] * relative_[i]) : scale_[i];
            if (channels("scale") == 1) scale_[1 - i] = scale_[i];
        } else if (scale_[i] != 0) {
            relative_[i] = wanted / (size_[i] * scale_[i]);
        }
    }

    // What is pulled by the way of the pen alone may stand nearer than where it belongs: within the frame, so that it
    // can be reached however large the rectangle is.
    Point reachable(Point local) const {
        const Point p = frame_.out(local);
        return frame_.in({fit_in_xrange(p.x), fit_in_yrange(p.y)});
    }
    static float fit_in_xrange(float x) {
        const float margin = 12 * view_scale_x;
        return std::clamp(x, margin, std::max(margin, frame_size().width - margin));
    }
    static float fit_in_yrange(float y) {
        const float margin = 12 * view_scale_y;
        return std::clamp(y, margin, std::max(margin, frame_size().height - margin));
    }

    Glyph *arrow_ = nullptr, *whole_ = nullptr, *up_ = nullptr, *across_ = nullptr;
    Glyph *corners_[4] = {}, *edges_[4] = {};
    LocalFrame frame_;
    float size_[2] = {1, 1}, scale_[2] = {1, 1}, relative_[2] = {1, 1};
    float half_at_press_[2] = {}, size_at_press_[2] = {}, scale_at_press_[2] = {}, relative_at_press_[2] = {};
    Point press_ = {0, 0};
    TurnGrip turn_;
};

DEFINE_WIDGET_FACTORY(rect_c_sz, RectCSzWidget)

}  // namespace velloran::widgets
