// The frame's own rectangle as an effect lays it down again: brought nearer or farther, turned about a centre, and
// shifted. Of the two types the first shifts what it has turned, the second shifts the picture before it is turned.
#include "widgets/glyph_shapes.h"
#include "widgets/placement.h"
#include "widgets/view.h"
#include "widgets/widget_factory.h"

#include <algorithm>
#include <cmath>

namespace velloran::widgets {

class RectWidget : public PlacedWidget {
public:
    using PlacedWidget::PlacedWidget;

    bool build() {
        if (has("center")) cross_ = addGlyphToRegion(circle_cross, middle);
        if (has("rotate")) arrow_ = addGlyphToRegion(curved_double_arrow, turn);
        for (Glyph*& corner : corners_)
            if (has("z_dist")) corner = addGlyphToRegion(fancy_corner, corner_region);
        for (Glyph*& edge : edges_) edge = addGlyphToRegion(has("shift") ? line_01xmid : line_01x, edges);
        return true;
    }

    void startDrag(int, float x, float y) override {
        press_ = {x, y};
        center_at_press_ = center_;
        shift_at_press_ = shift_;
        scale_at_press_ = scale();
        reach_at_press_ = length(around().in(press_));
        turn_.start(around().turns_of(press_), turns_);
    }

    // The centre takes the rectangle along. A corner keeps the place that the rectangle grows about and the turn, and
    // follows the pen's distance from there. The arrow turns about the same place. An edge shifts and keeps the rest.
    void drag(int region, float x, float y) override {
        const Point pen = {x, y};
        if (region == middle) center_ = center_at_press_ + pen - press_;
        if (region == turn) turns_ = turn_.move(around().turns_of(pen));
        if (region == corner_region) z_dist_ = 1 / compute_scale_from_xy(pen);
        if (region == edges) shift_ = shift_at_press_ + shift_way(pen - press_);
    }

    void getValuesFromParams() override {
        center_ = get_place(frame_middle());
        z_dist_ = 1;
        turns_ = 0;
        shift_ = {0, 0};
        maybe_set_val("z_dist", &z_dist_);
        maybe_set_val("rotate", &turns_, 1, Quantity::angle);
        maybe_set_val_screen("shift", &shift_, Quantity::offset);
    }

    void _setValuesIntoParams() override {
        set_place(center_);
        maybe_set_param("z_dist", &z_dist_);
        maybe_set_param("rotate", &turns_, 1, Quantity::angle);
        maybe_set_param_screen("shift", shift_, Quantity::offset);
    }

    bool setGlyphTransforms() override {
        const FrameSize f = frame_size();
        const Point of_frame[4] = {{0, 0}, {f.width, 0}, {f.width, f.height}, {0, f.height}};
        Point corners[4];
        for (int i = 0; i < 4; ++i) corners[i] = norm_to_screen(of_frame[i]);
        for (int i = 0; i < 4; ++i) {
            edges_[i]->transform = along(corners[i], corners[(i + 1) % 4]);
            if (corners_[i]) corners_[i]->transform = corner_glyph(corners[i], get_rect_center());
        }
        const Point right = (corners[1] + corners[2]) * 0.5f, out = right - get_rect_center();
        const float far = length(out);
        if (arrow_) {
            const Point beyond = far > 0 ? right + out * (28 * view_scale_x / far) : right;
            const float drawn =
                std::atan2(out.y / view_scale_y, out.x / view_scale_x) / (2 * std::numbers::pi_v<float>);
            arrow_->transform = screen_glyph(beyond, center_pixels * 0.8f, drawn);
        }
        if (cross_) cross_->transform = screen_glyph(center_, center_pixels * 0.7f);
        return usable(corners[0]) && usable(corners[2]) && usable(center_);
    }

protected:
    enum : int { middle = 0, turn = 1, corner_region = 2, edges = 3 };

    // A glyph whose corner stands there and whose sides run towards the middle.
    static Affine corner_glyph(Point at, Point towards) {
        const Point in = {(towards.x - at.x) / view_scale_x, (towards.y - at.y) / view_scale_y};
        return screen_glyph(at, grip_pixels * 1.3f, std::atan2(in.y, in.x) / (2 * std::numbers::pi_v<float>)-0.125f);
    }

    float scale() const { return std::fabs(z_dist_) > 0.0001f ? 1 / z_dist_ : 10000.0f; }
    LocalFrame turned() const { return {{0, 0}, turns_, part_flatness("rotate")}; }

    // From ways of the picture to ways in the viewer, and back.
    Point blur_fwd_xform(Point way) const { return turned().out(Point{way.x, way.y / turned().flat} * scale()); }
    Point blur_inv_xform(Point way) const {
        const Point local = turned().way_in(way) * (1 / scale());
        return {local.x, local.y * turned().flat};
    }

    // Where a place of the picture is laid down, and the other way.
    virtual Point norm_to_screen(Point p) const { return center_ + blur_fwd_xform(p - center_) + shift_; }
    virtual Point screen_to_norm(Point p) const { return center_ + blur_inv_xform(p - center_ - shift_); }
    // What the shift becomes where the pen goes that way.
    virtual Point shift_way(Point way) const { return way; }

    Point get_rect_center() const { return norm_to_screen(frame_middle()); }
    // About the place that growing and turning leave where it is.
    LocalFrame around() const { return {get_rect_center_matrix(), 0, turned().flat}; }
    Point get_rect_center_matrix() const { return norm_to_screen(center_); }

    float compute_scale_from_xy(Point pen) const {
        const float reach = length(around().in(pen));
        const float scale = reach_at_press_ > 0 ? scale_at_press_ * reach / reach_at_press_ : scale_at_press_;
        const float least = 0.0001f;
        return scale_at_press_ < 0 ? std::min(scale, -least) : std::max(scale, least);
    }

    Point center_ = {0, 0}, shift_ = {0, 0};
    float z_dist_ = 1, turns_ = 0;

private:
    Glyph *cross_ = nullptr, *arrow_ = nullptr;
    Glyph *corners_[4] = {}, *edges_[4] = {};
    Point press_ = {0, 0}, center_at_press_ = {0, 0}, shift_at_press_ = {0, 0};
    float scale_at_press_ = 1, reach_at_press_ = 1;
    TurnGrip turn_;
};

class RectshiftWidget final : public RectWidget {
public:
    using RectWidget::RectWidget;

protected:
    Point norm_to_screen(Point p) const override { return center_ + blur_fwd_xform(p + shift_ - center_); }
    Point screen_to_norm(Point p) const override { return center_ + blur_inv_xform(p - center_) - shift_; }
    Point shift_way(Point way) const override { return blur_inv_xform(way); }
};

DEFINE_WIDGET_FACTORY(rect, RectWidget)
DEFINE_WIDGET_FACTORY(rectshift, RectshiftWidget)

}  // namespace velloran::widgets
