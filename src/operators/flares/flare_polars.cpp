// Polar flares.
#include "operators/flares/flare_parts.h"
#include "operators/flares/polar_tables.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

constexpr double tau = 6.283185307179586;

double turns_of(double radians) {
    const double t = radians / tau;
    return t - std::floor(t);
}

// Radii within which there is light.
void set_reach(const LensFlarePolar& polar, const PolarTables& tables, PolarPart* part) {
    const double first = static_cast<double>(polar.radii[0]), last = static_cast<double>(polar.radii[polar.number - 1]);
    part->least = std::max(first * static_cast<double>(tables.min_factor), 0.0);
    part->most = last * static_cast<double>(tables.max_factor);
}

void set_wedge(double start, double width, PolarPart* part) {
    part->narrow = width < tau / 2 - 0.01;
    part->start_x = std::cos(start);
    part->start_y = std::sin(start);
    part->end_x = std::cos(start + width);
    part->end_y = std::sin(start + width);
}

// Narrows from .. to, places along a row at height v, to the side of the line from the centre through (x, y) that lies
// to its left (side 1) or right (-1).
void cut_to_side(double x, double y, double v, double side, double* from, double* to) {
    // side * (x * v - y * u) >= 0
    const double a = side * y, b = side * x * v;
    if (std::abs(a) < 1e-12) {
        if (b < 0) *to = *from - 1;
    } else if (a > 0) {
        *to = std::min(*to, b / a);
    } else {
        *from = std::max(*from, b / a);
    }
}

}  // namespace

bool prepare_polar(const FlareScene& scene, LensFlarePolar* polar, PolarPart* part) {
    if (polar->number < 2) return false;
    const FlareSettings& s = *scene.settings;
    const FlareCanvas& canvas = *scene.canvas;
    const bool as_rays = polar->rays_p != 0, shifted = polar->shift_edge != 0;
    const double across = s.hotspot[0] - s.pivot[0],
                 up = (s.hotspot[1] - s.pivot[1]) * static_cast<double>(canvas.aspect);
    const double distance = 4 * std::sqrt(across * across + up * up) / static_cast<double>(canvas.whole_width);
    double scale = static_cast<double>(as_rays ? s.scale_rays_length : s.scale_other_width);
    if (polar->scale_width_by_dist > 0) scale *= static_cast<double>(polar->scale_width_by_dist) * distance;
    const double size_x = scene.size[0] * scale,
                 size_y = scene.size[1] * scale * static_cast<double>(polar->rel_height);
    if (!(std::abs(size_x) > 1e-3) || !(std::abs(size_y) > 1e-3) || !(std::abs(size_x) < 1e7)) return false;

    PolarRow& row = part->row;
    float brightness = static_cast<float>(fix_scale);
    if (polar->scale_brightness_by_dist != 0)
        brightness *= polar->scale_brightness_by_dist * static_cast<float>(distance);
    if (as_rays)
        rays_tint(scene, *polar, row.color);
    else
        std::copy(s.other_color, s.other_color + 3, row.color);
    for (float& c : row.color) c = std::clamp(c * brightness, -1e9f, 1e9f);
    if (row.color[0] == 0.0f && row.color[1] == 0.0f && row.color[2] == 0.0f) return false;

    const auto rotate = static_cast<float>(static_cast<double>(s.rotate) * tau / 360);
    const PolarInputs inputs = {scene.gamma,
                                as_rays ? s.scale_rays_number : 1.0f,
                                shifted ? rotate : 0.0f,
                                as_rays ? s.scale_rays_width : 1.0f,
                                s.saturation,
                                canvas.whole_width};
    const PolarTables& tables = prepare_polar_tables(polar, inputs);
    set_reach(*polar, tables, part);
    if (!(part->most > 0) || !(part->most > part->least)) return false;
    double start = static_cast<double>(tables.arc_start) + (shifted ? 0.0 : static_cast<double>(rotate));
    if (polar->rotate_to_pivot) start += static_cast<double>(scene.line_angle);
    set_wedge(start, static_cast<double>(tables.arc_width), part);

    row.angular = tables.pairs;
    row.radial = tables.radial.entries;
    row.angular_scale = tables.angular.scale;
    row.radial_scale = tables.radial.scale;
    row.radial_start = tables.radial.start;
    row.angular_size = tables.angular.size;
    row.angular_levels = tables.angular.n_levels;
    row.angular_wrap = tables.angular.wrap;
    row.radial_size = tables.radial.size;
    row.radial_levels = tables.radial.n_levels;
    row.is_round = tables.min_factor == 1.0f && tables.max_factor == 1.0f;
    row.x_step = static_cast<float>(1 / std::abs(size_x));
    row.arc_start = static_cast<float>(turns_of(start));
    row.arc_turns = static_cast<float>(static_cast<double>(tables.arc_width) / tau);
    row.first_radius = polar->radii[0];
    row.last_radius = polar->radii[polar->number - 1];
    part->y_step = static_cast<double>(canvas.aspect) / size_y;
    const double rows = part->most / std::abs(part->y_step);
    part->place = place_part(scene, *polar, rows, rows);
    return part->place.first_row <= part->place.last_row;
}

void draw_polar_row(const FlareCanvas& canvas, const FlareRows& rows, const PolarPart& part, int y) {
    const double v = (canvas.bottom + y - part.place.y) * part.y_step;
    if (std::abs(v) > part.most) return;
    PolarRow row = part.row;
    row.v = static_cast<float>(v);
    const double unit = static_cast<double>(row.x_step);
    const auto draw = [&](double from, double to) {
        // A sample more on either side: what lies outside is found dark.
        FlareSpan span;
        if (to >= from && span_of_row(canvas, part.place, y, from / unit - 1, to / unit + 1, &span))
            rows.polar(span, row);
    };
    const double edge = std::sqrt(part.most * part.most - v * v);
    double from = -edge, to = edge;
    if (part.narrow) {
        cut_to_side(part.start_x, part.start_y, v, 1, &from, &to);
        cut_to_side(part.end_x, part.end_y, v, -1, &from, &to);
    }
    const double hole = part.least > std::abs(v) ? std::sqrt(part.least * part.least - v * v) - 2 * unit : 0;
    if (hole <= 2 * unit) return draw(from, to);
    draw(from, std::min(to, -hole - 2 * unit));
    draw(std::max(from, hole), to);
}

}  // namespace velloran
