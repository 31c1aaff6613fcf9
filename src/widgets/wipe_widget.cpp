// The edge of a wipe across the frame: how far it has come, its direction, how soft it is, its border, what a gradient
// adds, and whether it runs by itself.
//
// At an amount of 0 the edge stands at the border of the frame, at 1 at the other; a param whose part is named as a
// percentage counts to 100. What is added counts as the amount does, softness and border are lengths.
#include "widgets/glyph_shapes.h"
#include "widgets/line_across.h"
#include "widgets/view.h"
#include "widgets/widget_factory.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace velloran::widgets {

class WipeWidget final : public Widget {
public:
    using Widget::Widget;

    bool build() {
        percent_ = std::strpbrk(part_word("wipe_amount"), "%") || std::strstr(part_word("wipe_amount"), "percent");
        if (has("grad_angle")) arrow_ = addGlyphToRegion(curved_double_arrow, turn);
        if (has("autotrans_p")) box_ = addGlyphToRegion(box, automatic);
        // Grips at places of their own along the edge: their lines may all lie on it.
        if (has("edge_softness")) soft_.grip = addGlyphToRegion(v_double_arrow_green, softness);
        if (has("border_width")) border_.grip = addGlyphToRegion(v_double_arrow, border);
        if (has("grad_add")) add_grip_ = addGlyphToRegion(v_double_arrow_white, add);
        if (soft_.grip)
            for (Glyph*& line : soft_.lines) line = addGlyphToRegion(line_01x_green, softness);
        if (border_.grip)
            for (Glyph*& line : border_.lines) line = addGlyphToRegion(line_01xmid_orange, border);
        if (add_grip_) add_line_ = addGlyphToRegion(line_01x, add);
        edge_ = addGlyphToRegion(line_01xmid, place);
        return true;
    }

    void startDrag(int, float x, float y) override {
        press_ = {x, y};
        grip_ = across().in(press_).x - wipe_amount_and_angle_to_center();
        soft_.at_press = soft_.width;
        border_.at_press = border_.width;
        add_at_press_ = grad_add_to_distance(grad_add_);
        turn_.start(frame_across(0, flat_).turns_of(press_), turns_);
    }

    // The edge keeps the direction. Turning goes about the middle of the frame and keeps the amount. Softness and
    // border keep the edge and grow to both sides of it; what is added keeps the edge and is the way from it. The box
    // is pulled ahead to let the wipe run by itself, and back to stop that.
    void drag(int region, float x, float y) override {
        const Point pen = {x, y};
        const float way = across().way_in(pen - press_).x;
        const float side = across().in(press_).x < wipe_amount_and_angle_to_center() ? -2.0f : 2.0f;
        moved_ = region;
        if (region == place) amount_ = compute_wipe_amount_from_xy(pen);
        if (region == turn) turns_ = turn_.move(frame_across(0, flat_).turns_of(pen));
        if (region == softness) soft_.width = std::max(0.0f, soft_.at_press + side * way);
        if (region == border) border_.width = std::max(0.0f, border_.at_press + side * way);
        if (region == add) grad_add_ = distance_to_grad_add(add_at_press_ + way);
        const float enough = grip_pixels * view_scale_x;
        if (region == automatic && std::fabs(way) > enough) automatic_ = way > 0 ? 1.0f : 0.0f;
    }

    void getValuesFromParams() override {
        flat_ = part_flatness("grad_angle");
        turns_ = 0;
        amount_ = grad_add_ = soft_.width = border_.width = automatic_ = 0;
        maybe_set_val("grad_angle", &turns_, 1, Quantity::angle);
        if (maybe_set_val("wipe_amount", &amount_) && percent_) amount_ /= 100;
        maybe_set_val("grad_add", &grad_add_);
        maybe_set_val("edge_softness", &soft_.width, 1, Quantity::length);
        maybe_set_val("border_width", &border_.width, 1, Quantity::length);
        maybe_set_val("autotrans_p", &automatic_);
        moved_ = -1;
    }

    void _setValuesIntoParams() override {
        const float amount = percent_ ? amount_ * 100 : amount_;
        if (moved_ == place) maybe_set_param("wipe_amount", &amount);
        if (moved_ == add) maybe_set_param("grad_add", &grad_add_);
        maybe_set_param("grad_angle", &turns_, 1, Quantity::angle);
        if (moved_ == softness) maybe_set_param("edge_softness", &soft_.width, 1, Quantity::length);
        if (moved_ == border) maybe_set_param("border_width", &border_.width, 1, Quantity::length);
        if (moved_ == automatic) maybe_set_param("autotrans_p", &automatic_);
    }

    bool setGlyphTransforms() override {
        const LocalFrame f = across();
        const float at = wipe_amount_and_angle_to_center(), reach = half_reach(f).y;
        edge_->transform = wipe_line_coords(at);
        if (arrow_) arrow_->transform = f.glyph({at, reach * 0.65f}, center_pixels * 0.8f);
        if (box_) {
            // Ahead of the edge while the wipe runs by itself.
            const float ahead = 1.6f * grip_pixels * f.pixels() * (automatic_ != 0 ? 1.0f : -1.0f);
            box_->transform = f.glyph({at + ahead, -reach * 0.65f}, grip_pixels * 0.7f);
        }
        lay_band_out(soft_, f, at, reach * 0.3f);
        lay_band_out(border_, f, at, -reach * 0.3f);
        if (add_line_) {
            const float added = at + grad_add_to_distance(grad_add_);
            add_line_->transform = wipe_line_coords(added);
            add_grip_->transform = across_glyph(f, {added, -reach * 0.5f});
        }
        return std::isfinite(at + turns_ + soft_.width + border_.width);
    }

private:
    enum : int { turn = 0, automatic = 1, softness = 2, border = 3, add = 4, place = 5 };

    // Lines on both sides of the edge, half the width away.
    struct Band {
        Glyph* grip = nullptr;
        Glyph* lines[2] = {};
        float width = 0, at_press = 0;
    };

    LocalFrame across() const { return frame_across(turns_, flat_); }
    float whole_way() const { return 2 * half_reach(across()).x; }

    // Distances from the middle of the frame, along the direction.
    float wipe_amount_and_angle_to_center() const { return (amount_ - 0.5f) * whole_way(); }
    float compute_wipe_amount_from_xy(Point pen) const {
        const float way = whole_way();
        return way > 0 ? (across().in(pen).x - grip_) / way + 0.5f : amount_;
    }
    float grad_add_to_distance(float value) const { return value * whole_way(); }
    float distance_to_grad_add(float distance) const {
        const float way = whole_way();
        return way > 0 ? distance / way : grad_add_;
    }
    // Of a width to each side.
    static float xform_dist_p_to_w(float width) { return width / 2; }

    Affine wipe_line_coords(float distance) const { return line_across(across(), distance); }

    // An upright arrow that points along the direction.
    static Affine across_glyph(const LocalFrame& f, Point at) {
        Affine t = f.glyph(at, grip_pixels);
        t.rotate(0.25f);
        return t;
    }

    void lay_band_out(Band& band, const LocalFrame& f, float at, float grip_at) {
        if (!band.grip) return;
        const float half = xform_dist_p_to_w(band.width);
        band.lines[0]->transform = wipe_line_coords(at - half);
        band.lines[1]->transform = wipe_line_coords(at + half);
        band.grip->transform = across_glyph(f, {at + half, grip_at});
    }

    bool percent_ = false;
    Glyph *edge_ = nullptr, *arrow_ = nullptr, *box_ = nullptr, *add_grip_ = nullptr, *add_line_ = nullptr;
    Band soft_, border_;
    float turns_ = 0, flat_ = 1, amount_ = 0, grad_add_ = 0, automatic_ = 0;
    float grip_ = 0, add_at_press_ = 0;
    Point press_ = {0, 0};
    int moved_ = -1;
    TurnGrip turn_;
};

DEFINE_WIDGET_FACTORY(wipe, WipeWidget)

}  // namespace velloran::widgets
