// Rings, hexagons and soft discs.
#include "operators/flares/flare_parts.h"
#include "operators/flares/polar_tables.h"
#include "support/errors.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

// Beyond its first and last radius a spot fades to black over so many samples.
constexpr double fade = 1.5;
constexpr double hexagon_slope = 0.8660254037844386;

void report_order_once() {
    static bool reported;
    if (reported) return;
    reported = true;
    V_error(level_warning, "Flare radii are not in order!");
}

void spot_color(const FlareScene& scene, const LensFlareSpot& spot, int i, const float* tint, float* color) {
    flare_light(spot.colors[i], scene.gamma, tint, scene.settings->saturation, color);
    for (int c = 0; c < 3; ++c) color[c] = std::min(color[c] * static_cast<float>(fix_scale), 1e6f);
}

void add_band(SpotPart* part, double from, double to, const float* color, const float* next) {
    if (!(to > from)) return;
    FlareBand& band = part->bands[part->n_bands++];
    band.radius = static_cast<float>(from);
    band.inverse_width = static_cast<float>(1.0 / (to - from));
    for (int c = 0; c < 3; ++c) {
        band.color[c] = color[c];
        band.rise[c] = next[c] - color[c];
    }
}

// Where a band of a spot ends on a row, as a distance from the centre; -1 if the row does not reach into it.
double edge_on_row(bool hexagon, double radius, double height) {
    if (radius <= 0) return -1;
    if (hexagon) {
        const double slanting = 2 * (radius - hexagon_slope * height);
        return slanting < 0 ? -1 : std::min(radius, slanting);
    }
    return radius < height ? -1 : std::sqrt(radius * radius - height * height);
}

bool is_zero(const float* v) { return v[0] == 0.0f && v[1] == 0.0f && v[2] == 0.0f; }

void draw_band(const FlareRows& rows, const SpotPart& part, const FlareBand& band, const FlareSpan& span,
               float height) {
    if (is_zero(band.rise))
        rows.flat(span, band.color);
    else if (part.is_hexagon)
        rows.hexagon(span, band, height);
    else
        rows.ring(span, band, height);
}

}  // namespace

bool prepare_spot(const FlareScene& scene, const LensFlareSpot& spot, SpotPart* part) {
    const double scale = spot.on_hotspot() ? 1.0 : static_cast<double>(scene.settings->scale_other_width);
    const double size_x = scene.size[0] * scale;
    part->is_hexagon = spot.is_hexagon;
    part->is_disc = spot.number == 1 && !spot.is_hexagon;
    part->stretch = static_cast<float>(static_cast<double>(scene.canvas->aspect) * scene.size[0] / scene.size[1]);
    part->n_bands = 0;
    if (spot.number < 2 && !part->is_disc) {
        V_error(level_error, "lens_flare color_number should be >= 2.");
        return false;
    }
    float tint[3], colors[SPOT_MAX_COLORS][3];
    spot_tint(scene, spot, tint);
    for (int i = 0; i < spot.number; ++i) spot_color(scene, spot, i, tint, colors[i]);
    double radii[SPOT_MAX_COLORS];
    for (int i = 0; i < spot.number; ++i) {
        radii[i] = std::clamp(size_x * static_cast<double>(spot.radii[i]), -1e7, 1e7);
        if (i > 0 && radii[i] < radii[i - 1]) report_order_once();
    }
    const double last = radii[spot.number - 1];
    if (part->is_disc) {
        part->radius = last;
        std::copy(colors[0], colors[0] + 3, part->color);
        if (!(last > 0) || is_zero(part->color)) return false;
    } else {
        constexpr float black[3] = {};
        add_band(part, std::max(radii[0] - fade, 0.0), radii[0], black, colors[0]);
        for (int i = 1; i < spot.number; ++i) add_band(part, radii[i - 1], radii[i], colors[i - 1], colors[i]);
        add_band(part, last, last + fade, colors[spot.number - 1], black);
        part->radius = 0;
        for (int i = 0; i < spot.number; ++i) part->radius = std::max(part->radius, radii[i] + fade);
    }
    const double rows = (part->radius / (part->is_hexagon ? hexagon_slope : 1.0)) / static_cast<double>(part->stretch);
    part->place = place_part(scene, spot, rows, rows);
    return part->place.first_row <= part->place.last_row;
}

void draw_spot_row(const FlareCanvas& canvas, const FlareRows& rows, const SpotPart& part, int y) {
    const auto height =
        static_cast<float>(std::abs(canvas.bottom + y - part.place.y) * static_cast<double>(part.stretch));
    const double up = static_cast<double>(height);
    FlareSpan span;
    if (part.is_disc) {
        const double edge = edge_on_row(false, part.radius, up);
        if (edge >= 0 && span_of_row(canvas, part.place, y, -edge, edge, &span))
            rows.disc(span, part.color, static_cast<float>(part.radius), height);
        return;
    }
    for (int i = 0; i < part.n_bands; ++i) {
        const FlareBand& band = part.bands[i];
        if (is_zero(band.color) && is_zero(band.rise)) continue;
        const double from = static_cast<double>(band.radius), to = from + 1.0 / static_cast<double>(band.inverse_width);
        const double inner = edge_on_row(part.is_hexagon, from, up), outer = edge_on_row(part.is_hexagon, to, up);
        if (outer < 0) continue;
        // A sample on the edge between two bands belongs to the outer one.
        const double before = std::nextafter(outer, -1.0);
        if (inner < 0) {
            if (span_of_row(canvas, part.place, y, -before, before, &span)) draw_band(rows, part, band, span, height);
            continue;
        }
        if (span_of_row(canvas, part.place, y, inner, before, &span)) draw_band(rows, part, band, span, height);
        // On both sides of a centre that lies on a sample, that one counts once.
        if (span_of_row(canvas, part.place, y, -before, inner == 0 ? -1e-9 : -inner, &span))
            draw_band(rows, part, band, span, height);
    }
}

}  // namespace velloran
