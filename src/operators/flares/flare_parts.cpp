#include "operators/flares/flare_parts.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace velloran {

PartPlace place_part(const FlareScene& scene, const FlareElement& element, double up, double down) {
    const FlareSettings& s = *scene.settings;
    const double t = static_cast<double>(element.center);
    const double x = s.pivot[0] + (s.hotspot[0] - s.pivot[0]) * t, y = s.pivot[1] + (s.hotspot[1] - s.pivot[1]) * t;
    const double height = scene.canvas->height, bottom = scene.canvas->bottom;
    const double first = std::clamp(std::floor(y - down) - bottom, 0.0, height);
    const double last = std::clamp(std::ceil(y + up) - bottom, -1.0, height - 1);
    return {x, y, static_cast<int>(first), static_cast<int>(last)};
}

void spot_tint(const FlareScene& scene, const FlareElement& element, float* tint) {
    const FlareSettings& s = *scene.settings;
    for (int c = 0; c < 3; ++c) tint[c] = element.on_hotspot() ? s.hotspot_color[c] : s.other_color[c];
}

void rays_tint(const FlareScene& scene, const FlareElement& element, float* tint) {
    spot_tint(scene, element, tint);
    for (int c = 0; c < 3; ++c) tint[c] *= scene.settings->rays_color[c];
}

bool span_of_row(const FlareCanvas& canvas, const PartPlace& place, int y, double from, double to, FlareSpan* span) {
    const double whole = std::floor(place.x), fraction = place.x - whole;
    // The first and last sample whose place is within, counted from the centre's whole part.
    const double first = std::max(std::ceil(from + fraction), canvas.left - whole);
    const double last = std::min(std::floor(to + fraction), canvas.left + canvas.width - 1 - whole);
    if (!(first <= last)) return false;
    const ptrdiff_t at = ptrdiff_t{y} * canvas.width + static_cast<ptrdiff_t>(first + whole) - canvas.left;
    for (int c = 0; c < 3; ++c) span->planes[c] = canvas.planes[c] + at;
    span->first = static_cast<int32_t>(first);
    span->n = static_cast<int32_t>(last - first) + 1;
    span->fraction = static_cast<float>(fraction);
    return true;
}

}  // namespace velloran
