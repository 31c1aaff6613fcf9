// A circle: about a centre that is dragged too, or about the middle of the frame. A radius of two elements is an
// ellipse, whose form the drag of its rim keeps.
#include "support/errors.h"
#include "widgets/glyph_shapes.h"
#include "widgets/placement.h"
#include "widgets/view.h"
#include "widgets/widget_factory.h"

#include <algorithm>

namespace velloran::widgets {

class CenterRadiusWidget : public PlacedWidget {
public:
    using PlacedWidget::PlacedWidget;

    bool build() {
        // The rim first: of a small circle it lies within the cross, whose arms reach farther.
        if (has("radius")) rim_ = addGlyphToRegion(ellipse_shape(), rim);
        if (has("center")) {
            const Glyph* const shape = center_glyph(glyph_name("center"));
            if (!shape) {
                V_error(level_error, "Unknown center widget type %s", glyph_name("center"));
                return false;
            }
            cross_ = addGlyphToRegion(*shape, middle);
        }
        return true;
    }

    void startDrag(int, float x, float y) override {
        grip_ = Point{x, y} - frame_.origin;
        rim_grip_.start(frame_.in({x, y}), radius_[0], radius_[1], smallest_rim());
    }

    // The centre takes the circle along as it is; the rim keeps the centre, the form and where the pen holds it.
    void drag(int region, float x, float y) override {
        if (region == middle)
            frame_.origin = Point{x, y} - grip_;
        else
            rim_grip_.move(frame_.in({x, y}), &radius_[0], &radius_[1]);
    }

    void getValuesFromParams() override {
        frame_.origin = get_place(frame_middle());
        frame_.flat = part_flatness("radius");
        radius_[0] = radius_[1] = 0;
        maybe_set_val("radius", radius_, 2, Quantity::length);
        if (channels("radius") < 2) radius_[1] = radius_[0];
    }

    void _setValuesIntoParams() override {
        set_place(frame_.origin);
        maybe_set_param("radius", radius_, 2, Quantity::length);
    }

    bool setGlyphTransforms() override {
        if (cross_) cross_->transform = screen_glyph(frame_.origin, center_pixels * 0.6f);
        const float least = smallest_rim();
        if (rim_)
            rim_->transform =
                frame_.ellipse(std::max(std::fabs(radius_[0]), least), std::max(std::fabs(radius_[1]), least));
        return usable(frame_.origin) && std::isfinite(radius_[0] + radius_[1]);
    }

protected:
    enum : int { rim = 0, middle = 1 };

    // The pen's distance from the centre as the radius counts it.
    float perp_dist_from_center(Point pen) const { return length(frame_.in(pen)); }

private:
    const Glyph& ellipse_shape() const { return channels("radius") > 1 ? single_ellipse : single_circle; }
    static float smallest_rim() { return 5 * view_scale_x; }  // as small as a hand can take hold of

    Glyph *rim_ = nullptr, *cross_ = nullptr;
    LocalFrame frame_;
    float radius_[2] = {0, 0};
    Point grip_ = {0, 0};
    RimGrip rim_grip_;
};

class RadiusWidget final : public CenterRadiusWidget {
public:
    using CenterRadiusWidget::CenterRadiusWidget;
};

DEFINE_WIDGET_FACTORY(center_radius, CenterRadiusWidget)
DEFINE_WIDGET_FACTORY(radius, RadiusWidget)

}  // namespace velloran::widgets
