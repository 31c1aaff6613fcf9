#include "widgets/placement.h"

#include "support/errors.h"
#include "widgets/glyph_shapes.h"
#include "widgets/view.h"

#include <algorithm>
#include <cstring>

namespace velloran::widgets {

const Glyph* center_glyph(const char* name) {
    // The first where nothing is said.
    static constexpr struct {
        const char* name;
        const Glyph* glyph;
    } rows[] = {
        {"cross_circle", &circle_cross},
        {"cross_circle_red", &circle_cross_red},
        {"cross_circle_green", &circle_cross_green},
        {"cross_circle_blue", &circle_cross_blue},
        {"cross", &cross},
        {"simple_cross", &simple_cross},
        {"single_circle", &single_circle},
        {"single_hline", &single_line},
        {"star8", &star8},
    };
    for (const auto& row : rows)
        if (!*name || std::strcmp(row.name, name) == 0) return row.glyph;
    return nullptr;
}

Point frame_middle() {
    const FrameSize f = frame_size();
    return {f.width / 2, f.height / 2};
}

Point mirrored(Point p) {
    const FrameSize f = frame_size();
    return {f.width - p.x, f.height - p.y};
}

Affine LocalFrame::map() const {
    Affine m;
    m.translate(origin.x, origin.y);
    m.scale(1, flat);
    m.rotate(turns);
    return m;
}

Point LocalFrame::in(Point p) const { return way_in(p - origin); }

Point LocalFrame::way_in(Point way) const {
    Affine back;
    back.rotate(-turns);
    return back({way.x, way.y / flat});
}

float LocalFrame::turns_of(Point p) const {
    const Point way = p - origin;
    return std::atan2(way.y / flat, way.x) / (2 * std::numbers::pi_v<float>);
}

float LocalFrame::pixels() const { return view_scale_x; }

Affine LocalFrame::glyph(Point local, float size) const {
    // Round on the screen whatever the effect takes for round, but pointing its way.
    const Affine m = map();
    const Point way = {m.m[0] / view_scale_x, m.m[1] / view_scale_y};
    const float drawn = std::atan2(way.y, way.x) / (2 * std::numbers::pi_v<float>);
    return screen_glyph(out(local), size, drawn);
}

Affine LocalFrame::line(Point from, Point to) const { return along(out(from), out(to)); }

Affine LocalFrame::ellipse(float radius_x, float radius_y) const {
    Affine m = map();
    // A flat one could not be hit.
    const float least = 0.01f * pixels();
    m.scale(std::max(radius_x, least), std::max(radius_y, least));
    return m;
}

void TurnGrip::start(float pen_turns, float value) {
    last_ = pen_turns;
    value_ = value;
}

float TurnGrip::move(float pen_turns) {
    const float way = pen_turns - last_;
    value_ += way - std::round(way);
    last_ = pen_turns;
    return value_;
}

void RimGrip::start(Point local, float radius_x, float radius_y, float smallest) {
    radius_x_ = radius_x;
    radius_y_ = radius_y;
    distance_ = length(local);
    small_ = !(std::min(radius_x, radius_y) >= smallest);
    reach_ = small_ ? distance_ : std::hypot(local.x / radius_x, local.y / radius_y);
}

void RimGrip::move(Point local, float* radius_x, float* radius_y) const {
    if (small_) {
        const float more = length(local) - distance_;
        *radius_x = std::max(0.0f, radius_x_ + more);
        *radius_y = std::max(0.0f, radius_y_ + more);
        return;
    }
    const float factor = reach_ > 0 ? std::hypot(local.x / radius_x_, local.y / radius_y_) / reach_ : 1;
    *radius_x = radius_x_ * factor;
    *radius_y = radius_y_ * factor;
}

bool PlacedWidget::negated() {
    float negate = 0;
    maybe_set_val("negate", &negate);
    return negate != 0;
}

Point PlacedWidget::get_offset() {
    Point offset = {0, 0};
    maybe_set_val_screen("offset", &offset, Quantity::offset);
    return offset;
}

Point PlacedWidget::get_center(Point otherwise) {
    Point center = otherwise;
    maybe_set_val_screen("center", &center);
    return negated() ? mirrored(center) : center;
}

void PlacedWidget::set_center(Point at) { maybe_set_param_screen("center", negated() ? mirrored(at) : at); }

bool AnchoredWidget::build_anchor(const char* named) {
    if (has("offset")) box_ = addGlyphToRegion(box, offset_region);
    if (has("center")) {
        const Glyph* const shape = center_glyph(named);
        if (!shape) {
            V_error(level_error, "Unknown center widget type %s", named);
            return false;
        }
        cross_ = addGlyphToRegion(*shape, center_region);
    }
    if (has("negate")) x_ = addGlyphToRegion(X, negate_region);
    return true;
}

void AnchoredWidget::start_anchor(Point pen) {
    press_ = pen;
    center_at_press_ = center_;
    offset_at_press_ = offset_;
    unmirrored_ = negate_ != 0 ? mirrored(center_) : center_;
}

void AnchoredWidget::drag_anchor(int region, Point pen) {
    // The centre takes the offset along; the offset is dragged against a centre that stands.
    if (region == center_region) center_ = center_at_press_ + pen - press_;
    if (region == offset_region) offset_ = offset_at_press_ + pen - press_;
    if (region != negate_region) return;
    // The value of the centre stays, whichever side it is taken for.
    const bool there = length(pen - mirrored(unmirrored_)) < length(pen - unmirrored_);
    negate_ = there ? 1.0f : 0.0f;
    center_ = there ? mirrored(unmirrored_) : unmirrored_;
}

void AnchoredWidget::get_anchor() {
    negate_ = negated() ? 1.0f : 0.0f;
    offset_ = get_offset();
    center_ = get_center(frame_middle());
}

void AnchoredWidget::set_anchor() {
    maybe_set_param("negate", &negate_);
    set_center(center_);
    maybe_set_param_screen("offset", offset_, Quantity::offset);
}

void AnchoredWidget::lay_anchor_out() {
    if (cross_) cross_->transform = screen_glyph(center_, center_pixels);
    if (box_) box_->transform = screen_glyph(middle(), grip_pixels * 0.6f);
    if (x_) x_->transform = screen_glyph(mirrored(center_), grip_pixels);
}

}  // namespace velloran::widgets
