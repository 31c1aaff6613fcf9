// A rectangle of level and upright sides, by its edges or by two corners; the crop is one. An edge moves alone, a
// corner moves the two edges that meet there, the middle moves all and keeps the size. Edges cannot pass each other.
#include "widgets/glyph_shapes.h"
#include "widgets/placement.h"
#include "widgets/view.h"
#include "widgets/widget_factory.h"

#include <algorithm>
#include <cstring>

namespace velloran::widgets {

class SimpleRectWidget final : public Widget {
public:
    using Widget::Widget;

    bool build() {
        const bool crop = name && std::strcmp(name, "Crop") == 0;
        // Corners lie on edges and come first.
        for (int i = 0; i < 4; ++i) corners_[i] = addGlyphToRegion(crop ? corner_lb_crop : corner_lb, first_corner + i);
        middle_ = addGlyphToRegion(crop ? circle_cross_crop : circle_cross, middle);
        for (int i = 0; i < 4; ++i) edges_[i] = addGlyphToRegion(crop ? line_01x_crop : line_01x, first_edge + i);
        return true;
    }

    void startDrag(int, float x, float y) override {
        at_press_ = now_;
        press_ = {x, y};
    }

    void drag(int region, float x, float y) override {
        const Point way = Point{x, y} - press_;
        const bool all = region == middle;
        const int corner = region - first_corner, edge = region - first_edge;
        const bool is_corner = region >= first_corner && region < first_corner + 4;
        const bool left = all || edge == 0 || (is_corner && (corner == 0 || corner == 3));
        const bool bottom = all || edge == 1 || (is_corner && corner <= 1);
        const bool right = all || edge == 2 || (is_corner && (corner == 1 || corner == 2));
        const bool top = all || edge == 3 || (is_corner && corner >= 2);
        Point low = at_press_.low, high = at_press_.high;
        if (left) low.x += way.x;
        if (right) high.x += way.x;
        if (bottom) low.y += way.y;
        if (top) high.y += way.y;
        if (!all) {
            if (left) low.x = std::min(low.x, high.x - 1);
            if (right) high.x = std::max(high.x, low.x + 1);
            if (bottom) low.y = std::min(low.y, high.y - 1);
            if (top) high.y = std::max(high.y, low.y + 1);
        } else {
            // Held as one: an edge that stands at a bound would lose its distance to the other.
            const Point back = {hold_back("left", low.x, high.x, false), hold_back("bottom", low.y, high.y, true)};
            low = low + back;
            high = high + back;
        }
        now_ = {low, high};
    }

    void getValuesFromParams() override {
        const FrameSize f = frame_size();
        now_ = {{0, 0}, {f.width, f.height}};
        maybe_set_val_screen("left_bottom", &now_.low);
        maybe_set_val_screen("right_top", &now_.high);
        maybe_set_val("left", &now_.low.x, 1, Quantity::position);
        maybe_set_val("bottom", &now_.low.y, 1, Quantity::position_y);
        maybe_set_val("right", &now_.high.x, 1, Quantity::position);
        maybe_set_val("top", &now_.high.y, 1, Quantity::position_y);
    }

    void _setValuesIntoParams() override {
        maybe_set_param_screen("left_bottom", now_.low);
        maybe_set_param_screen("right_top", now_.high);
        maybe_set_param("left", &now_.low.x, 1, Quantity::position);
        maybe_set_param("bottom", &now_.low.y, 1, Quantity::position_y);
        maybe_set_param("right", &now_.high.x, 1, Quantity::position);
        maybe_set_param("top", &now_.high.y, 1, Quantity::position_y);
    }

    bool setGlyphTransforms() override {
        const Point low = now_.low, high = now_.high;
        const Point corners[4] = {low, {high.x, low.y}, high, {low.x, high.y}};
        for (int i = 0; i < 4; ++i) {
            const float right = i == 1 || i == 2 ? 1.0f : -1.0f, up = i >= 2 ? 1.0f : -1.0f;
            Affine& t = corners_[i]->transform;
            t = {};
            t.translate(corners[i].x, corners[i].y);
            t.scale(view_scale_x, view_scale_y);
            t.translate(right * CORNER_OFFSET, up * CORNER_OFFSET);
            t.scale(-right * corner_pixels, -up * corner_pixels);
        }
        // From the left one counter-clockwise: left, bottom, right, top.
        for (int i = 0; i < 4; ++i) edges_[i]->transform = along(corners[(i + 3) % 4], corners[i]);
        middle_->transform = screen_glyph((low + high) * 0.5f, center_pixels * 0.6f);
        return usable(low) && usable(high);
    }

private:
    static constexpr float CORNER_OFFSET = 4;  // pixels outside the edges, so that both are seen
    static constexpr float corner_pixels = 18;
    enum : int { middle = 0, first_corner = 1, first_edge = 5 };

    // How far a rectangle must come back to be within the frame that its params allow.
    float hold_back(const char* low_part, float low, float high, bool up) const {
        if (!has(low_part) || !name || std::strcmp(name, "Crop") != 0) return 0;
        const FrameSize f = frame_size();
        const float size = up ? f.height : f.width;
        if (low < 0) return -low;
        return high > size ? std::max(size - high, -low) : 0;
    }

    Glyph* corners_[4] = {};
    Glyph* edges_[4] = {};
    Glyph* middle_ = nullptr;
    Box now_ = {}, at_press_ = {};
    Point press_ = {0, 0};
};

DEFINE_WIDGET_FACTORY(simple_rect, SimpleRectWidget)

}  // namespace velloran::widgets
