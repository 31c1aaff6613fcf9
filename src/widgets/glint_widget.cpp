// A star of rays about a centre: its size, the length of each kind of ray in shares of it, and the size of each colour.
// A size of 1 is an eighth of the frame's width, as the functions count that draw rays.
#include "support/errors.h"
#include "widgets/glyph_shapes.h"
#include "widgets/placement.h"
#include "widgets/view.h"
#include "widgets/widget_factory.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace velloran::widgets {

class GlintWidget final : public PlacedWidget {
public:
    using PlacedWidget::PlacedWidget;

    bool build() {
        // Grips come before the lines, which may lie on each other: every one stands at a place of its own.
        if (has("center")) {
            const Glyph* const shape = center_glyph(glyph_name("center"));
            if (!shape) {
                V_error(level_error, "Unknown center widget type %s", glyph_name("center"));
                return false;
            }
            cross_ = addGlyphToRegion(*shape, middle);
        }
        if (has("size_xy")) corner_ = addGlyphToRegion(fancy_corner, xy);
        for (int i = 0; i < n_rays; ++i)
            if (has(rays[i].part)) ray_grips_[i] = addGlyphToRegion(double_arrow, first_ray + i);
        for (int i = 0; i < n_colors; ++i)
            if (has(colors[i].part)) color_grips_[i] = addGlyphToRegion(box, first_color + i);
        size_grip_ = addGlyphToRegion(box, whole);
        for (int i = 0; i < n_rays; ++i)
            if (ray_grips_[i]) ray_lines_[i] = addGlyphToRegion(single_line, ray_line_id(i));
        for (int i = 0; i < n_colors; ++i)
            if (color_grips_[i]) color_rings_[i] = addGlyphToRegion(*colors[i].ring, ring_id(i));
        size_ring_ = addGlyphToRegion(single_circle, whole_ring);
        return true;
    }

    void startDrag(int, float x, float y) override {
        const Point pen = {x, y};
        grip_ = pen - at_;
        press_ = frame().in(pen);
        size_at_press_ = size_;
        for (int i = 0; i < n_shares; ++i) share_at_press_[i] = share_[i];
        for (int i = 0; i < 2; ++i) xy_at_press_[i] = xy_[i];
    }

    // The centre takes all along; the size keeps the shares; a share keeps the size. Each is changed by how far the pen
    // goes outwards along the ray, or from the centre.
    void drag(int region, float x, float y) override {
        const Point pen = {x, y};
        const Point local = frame().in(pen);
        const float unit = std::max(size_, 0.001f);
        moved_ = region;
        if (region == middle) at_ = pen - grip_;
        if (region == whole || region == whole_ring)
            size_ = std::max(0.0f, size_at_press_ + length(local) - length(press_));
        if (region == xy)
            for (int i = 0; i < 2; ++i) {
                const float way = i ? local.y - press_.y : local.x - press_.x;
                xy_[i] = std::max(0.0f, xy_at_press_[i] + way / (unit * std::max(share_[i], 0.001f)));
            }
        const int ray = region >= first_line ? region - first_line : region - first_ray;
        if (ray >= 0 && ray < n_rays && region != whole_ring) {
            const Point d = direction(ray);
            // Taken by its other half, a ray grows the other way.
            const float side = dot(press_, d) < 0 ? -1.0f : 1.0f;
            const float across = ray < 2 ? std::max(xy_[ray], 0.001f) : 1.0f;
            share_[ray] = std::max(0.0f, share_at_press_[ray] + side * dot(local - press_, d) / (unit * across));
        }
        const int color = region >= first_ring ? region - first_ring : region - first_color;
        if (color >= 0 && color < n_colors)
            share_[n_rays + color] =
                std::max(0.0f, share_at_press_[n_rays + color] + (length(local) - length(press_)) / unit);
    }

    void getValuesFromParams() override {
        at_ = get_place(frame_middle());
        size_ = 1;
        maybe_set_val("size", &size_, 1, Quantity::length);
        size_ *= size_factor();
        for (int i = 0; i < n_shares; ++i) {
            share_[i] = 1;
            maybe_set_val(share_part(i), &share_[i]);
        }
        xy_[0] = xy_[1] = 1;
        maybe_set_val("size_xy", xy_, 2);
    }

    void _setValuesIntoParams() override {
        set_place(at_);
        const float size = size_ / size_factor();
        if (moved_ == whole || moved_ == whole_ring) maybe_set_param("size", &size, 1, Quantity::length);
        for (int i = 0; i < n_shares; ++i) maybe_set_param(share_part(i), &share_[i]);
        maybe_set_param("size_xy", xy_, 2);
    }

    bool setGlyphTransforms() override {
        const LocalFrame f = frame();
        const float least = 5 * f.pixels();
        if (cross_) cross_->transform = screen_glyph(at_, center_pixels * 0.5f);
        for (int i = 0; i < n_rays; ++i) {
            if (!ray_grips_[i]) continue;
            const float across = i < 2 ? xy_[i] : 1;
            const Point end = direction(i) * std::max(size_ * share_[i] * across, least);
            ray_lines_[i]->transform = along(at_, f.out(end));
            LocalFrame turned = f;
            turned.turns = rays[i].turns;
            ray_grips_[i]->transform = turned.glyph({length(end), 0}, grip_pixels);
        }
        const auto grip_at = [&](float radius, float turns) {
            const float angle = turns * 2 * std::numbers::pi_v<float>;
            return f.glyph({radius * std::cos(angle), radius * std::sin(angle)}, grip_pixels * 0.5f);
        };
        for (int i = 0; i < n_colors; ++i) {
            if (!color_grips_[i]) continue;
            const float radius = std::max(size_ * share_[n_rays + i], least);
            color_rings_[i]->transform = f.ellipse(radius, radius);
            color_grips_[i]->transform = grip_at(radius, colors[i].grip_turns);
            color_grips_[i]->color = colors[i].ring->color;
        }
        const float radius = std::max(size_, least);
        size_ring_->transform = f.ellipse(radius, radius);
        size_grip_->transform = grip_at(radius, 0.8125f);
        if (corner_) {
            // The corner of the box that the level and the upright ray make.
            Affine& t = corner_->transform;
            t = f.glyph({std::max(size_ * share_[0] * xy_[0], least), std::max(size_ * share_[1] * xy_[1], least)},
                        grip_pixels * 1.3f);
            t.scale(-1, -1);
        }
        return usable(at_) && std::isfinite(size_);
    }

private:
    static constexpr int n_rays = 4, n_colors = 4, n_shares = n_rays + n_colors;
    enum : int {
        middle = 0,
        xy = 1,
        whole = 2,
        first_ray = 10,
        first_color = 20,
        first_line = 30,
        first_ring = 40,
        whole_ring = 50
    };
    static constexpr struct {
        const char* part;
        float turns;
    } rays[n_rays] = {{"size_x", 0}, {"size_y", 0.25f}, {"size_diag1", 0.125f}, {"size_diag2", 0.375f}};
    static constexpr struct {
        const char* part;
        const Glyph* ring;
        float grip_turns;  // between the rays
    } colors[n_colors] = {{"size_red", &ellipse_red, 0.0625f},
                          {"size_green", &ellipse_green, 0.1875f},
                          {"size_blue", &ellipse_blue, 0.3125f},
                          {"size_alpha", &ellipse_white, 0.4375f}};

    static int ray_line_id(int i) { return first_line + i; }
    static int ring_id(int i) { return first_ring + i; }
    static const char* share_part(int i) { return i < n_rays ? rays[i].part : colors[i - n_rays].part; }
    static Point direction(int ray) {
        const float angle = rays[ray].turns * 2 * std::numbers::pi_v<float>;
        return {std::cos(angle), std::sin(angle)};
    }
    // From half frame widths to eighths of a width; pixels are pixels.
    float size_factor() const {
        const Param* const p = part_param("size");
        return p && value_scale(p, 0, Quantity::length).factor == 1 ? 1.0f : 0.25f;
    }
    LocalFrame frame() const { return {at_, 0, part_flatness("size")}; }

    Glyph *cross_ = nullptr, *corner_ = nullptr, *size_ring_ = nullptr, *size_grip_ = nullptr;
    Glyph *ray_lines_[n_rays] = {}, *ray_grips_[n_rays] = {};
    Glyph *color_rings_[n_colors] = {}, *color_grips_[n_colors] = {};
    Point at_ = {0, 0}, grip_ = {0, 0}, press_ = {0, 0};
    float size_ = 1, size_at_press_ = 1;
    float share_[n_shares] = {}, share_at_press_[n_shares] = {};
    float xy_[2] = {1, 1}, xy_at_press_[2] = {1, 1};
    int moved_ = -1;
};

DEFINE_WIDGET_FACTORY(glint, GlintWidget)

}  // namespace velloran::widgets
