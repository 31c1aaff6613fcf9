// A direction as an arm about a centre, or about the middle of the frame, and how far things are stretched along the
// arm and across it.
#include "widgets/glyph_shapes.h"
#include "widgets/placement.h"
#include "widgets/view.h"
#include "widgets/widget_factory.h"

#include <cmath>

namespace velloran::widgets {

class AngleWidget final : public PlacedWidget {
public:
    using PlacedWidget::PlacedWidget;

    bool build() {
        if (has("center")) cross_ = addGlyphToRegion(simple_cross, middle);
        if (channels("stretch") > 1) along_ = addGlyphToRegion(double_arrow, stretch_along);
        if (has("stretch")) {
            across_ = addGlyphToRegion(v_double_arrow, stretch_across);
            across_line_ = addGlyphToRegion(line_01y, stretch_across);
        }
        arrow_ = addGlyphToRegion(curved_double_arrow, arm);
        arm_ = addGlyphToRegion(line_with_dots, arm);
        return true;
    }

    void startDrag(int, float x, float y) override {
        grip_ = Point{x, y} - frame_.origin;
        press_ = frame_.in({x, y});
        stretch_at_press_[0] = stretch_[0];
        stretch_at_press_[1] = stretch_[1];
        turn_.start(frame_.turns_of({x, y}), frame_.turns);
    }

    // The arm turns about the centre and counts whole turns; the centre takes all along; a stretch keeps the direction.
    void drag(int region, float x, float y) override {
        const Point pen = {x, y};
        const Point way = frame_.in(pen)-press_;
        if (region == middle) frame_.origin = pen - grip_;
        if (region == arm) frame_.turns = turn_.move(frame_.turns_of(pen));
        if (region == stretch_along) stretch_[0] = stretch_at_press_[0] + way.x / stretch_length();
        if (region == stretch_across) stretch_[1] = stretch_at_press_[1] + way.y / stretch_length();
    }

    void getValuesFromParams() override {
        frame_.origin = get_place(frame_middle());
        frame_.flat = part_flatness("angle");
        frame_.turns = 0;
        maybe_set_val("angle", &frame_.turns, 1, Quantity::angle);
        stretch_[0] = stretch_[1] = 1;
        maybe_set_val("stretch", stretch_, 2);
        if (channels("stretch") == 1) stretch_[1] = stretch_[0];
    }

    void _setValuesIntoParams() override {
        set_place(frame_.origin);
        maybe_set_param("angle", &frame_.turns, 1, Quantity::angle);
        maybe_set_param("stretch", channels("stretch") == 1 ? &stretch_[1] : stretch_, 2);
    }

    bool setGlyphTransforms() override {
        const float arm_length = arm_pixels * frame_.pixels();
        if (cross_) cross_->transform = screen_glyph(frame_.origin, center_pixels * 0.6f);
        arm_->transform = frame_.line({0, 0}, {arm_length, 0});
        arrow_->transform = frame_.glyph({arm_length + 10 * frame_.pixels(), 0}, center_pixels);
        if (along_) along_->transform = frame_.glyph({stretch_[0] * stretch_length(), 0}, grip_pixels);
        if (across_) {
            const Point end = {0, stretch_[1] * stretch_length()};
            across_->transform = frame_.glyph(end, grip_pixels);
            across_line_->transform = y_scale_angle(end.y);
        }
        return usable(frame_.origin) && std::isfinite(frame_.turns + stretch_[0] + stretch_[1]);
    }

private:
    enum : int { middle = 0, stretch_along = 1, stretch_across = 2, arm = 3 };
    static constexpr float arm_pixels = 110, stretch_pixels = 60;

    float stretch_length() const { return stretch_pixels * frame_.pixels(); }

    // The line to the stretch across, whose shape runs upwards: what is upright to the effect may lean in pixels.
    Affine y_scale_angle(float height) const {
        Affine turned;
        turned.rotate(-0.25f);
        Affine line = frame_.line({0, 0}, {0, height});
        line.multiply(turned);
        return line;
    }

    Glyph *cross_ = nullptr, *arm_ = nullptr, *arrow_ = nullptr;
    Glyph *along_ = nullptr, *across_ = nullptr, *across_line_ = nullptr;
    LocalFrame frame_;
    float stretch_[2] = {1, 1}, stretch_at_press_[2] = {1, 1};
    Point grip_ = {0, 0}, press_ = {0, 0};
    TurnGrip turn_;
};

DEFINE_WIDGET_FACTORY(angle, AngleWidget)

}  // namespace velloran::widgets
