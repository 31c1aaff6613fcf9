// Slices across the frame: their direction, how wide they are, and where one of them begins. The offset counts slices
// from the middle of the frame; without a width it is a length.
#include "widgets/glyph_shapes.h"
#include "widgets/line_across.h"
#include "widgets/view.h"
#include "widgets/widget_factory.h"

#include <algorithm>
#include <cmath>

namespace velloran::widgets {

class TimesliceWidget final : public Widget {
public:
    using Widget::Widget;

    bool build() {
        if (has("angle")) arrow_ = addGlyphToRegion(curved_double_arrow, turn);
        if (has("slice_width")) {
            width_grip_ = addGlyphToRegion(double_arrow, width);
            next_ = addGlyphToRegion(line_01xmid_orange, width);
            before_ = addGlyphToRegion(line_01xmid_orange, width);
        }
        line_ = addGlyphToRegion(line_01xmid, place);
        return true;
    }

    void startDrag(int, float x, float y) override {
        press_ = {x, y};
        distance_at_press_ = distance_;
        width_at_press_ = width_;
        turn_.start(frame_across(0, flat_).turns_of(press_), turns_);
    }

    // The line keeps width and direction. A slice's other side keeps the line where it is in pixels, so the offset,
    // which counts slices, changes with the width. Turning goes about the middle of the frame and keeps the distance.
    void drag(int region, float x, float y) override {
        const Point pen = {x, y};
        const float way = frame_across(turns_, flat_).way_in(pen - press_).x;
        if (region == turn) turns_ = turn_.move(frame_across(0, flat_).turns_of(pen));
        if (region == place) distance_ = distance_at_press_ + way;
        if (region == width) {
            const bool other = frame_across(turns_, flat_).in(press_).x < distance_at_press_;
            width_ = std::max(1.0f, width_at_press_ + (other ? -way : way));
        }
        moved_ = region;
    }

    void getValuesFromParams() override {
        flat_ = part_flatness("angle");
        turns_ = 0;
        maybe_set_val("angle", &turns_, 1, Quantity::angle);
        width_ = 0;
        maybe_set_val("slice_width", &width_, 1, Quantity::length);
        offset_ = 0;
        maybe_set_val("offset", &offset_, 1, offset_quantity());
        distance_ = offset_to_pixels(offset_);
        moved_ = -1;
    }

    void _setValuesIntoParams() override {
        maybe_set_param("angle", &turns_, 1, Quantity::angle);
        if (moved_ == width) maybe_set_param("slice_width", &width_, 1, Quantity::length);
        if (moved_ != width && moved_ != place) return;
        offset_ = offset_to_slices(distance_);
        maybe_set_param("offset", &offset_, 1, offset_quantity());
    }

    bool setGlyphTransforms() override {
        const LocalFrame across = frame_across(turns_, flat_);
        line_->transform = ts_line_coords(across, 0);
        if (next_) {
            next_->transform = ts_line_coords(across, 1);
            before_->transform = ts_line_coords(across, -1);
            width_grip_->transform = across.glyph({distance_ + width_, half_reach(across).y * 0.25f}, grip_pixels);
        }
        if (arrow_) arrow_->transform = across.glyph({distance_, half_reach(across).y * 0.6f}, center_pixels * 0.8f);
        return std::isfinite(distance_ + width_ + turns_);
    }

private:
    enum : int { turn = 0, width = 1, place = 2 };

    Quantity offset_quantity() const { return has("slice_width") ? Quantity::plain : Quantity::length; }
    float offset_to_pixels(float offset) const { return has("slice_width") ? offset * width_ : offset; }
    float offset_to_slices(float pixels) const {
        if (!has("slice_width")) return pixels;
        return width_ != 0 ? pixels / width_ : offset_;
    }
    // The line so many slices from the one that is dragged.
    Affine ts_line_coords(const LocalFrame& across, int slices) const {
        return line_across(across, distance_ + static_cast<float>(slices) * width_);
    }

    Glyph *line_ = nullptr, *next_ = nullptr, *before_ = nullptr, *width_grip_ = nullptr, *arrow_ = nullptr;
    float turns_ = 0, flat_ = 1;
    float width_ = 0, offset_ = 0, distance_ = 0;  // in pixels, slices, pixels
    float width_at_press_ = 0, distance_at_press_ = 0;
    Point press_ = {0, 0};
    int moved_ = -1;
    TurnGrip turn_;
};

DEFINE_WIDGET_FACTORY(timeslice, TimesliceWidget)

}  // namespace velloran::widgets
