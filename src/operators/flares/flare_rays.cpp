// Bursts of rays.
#include "operators/flares/flare_parts.h"
#include "operators/flares/polar_tables.h"
#include "support/memory.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

constexpr double pi = 3.14159265358979;
constexpr int most_rays = 20000;     // of a burst: more than a picture can show apart
constexpr double least_width = 1.5;  // samples to each side; thinner rays flicker, so they are dimmed instead
constexpr float most_color = 7.99f;

// The random numbers of a burst, the same in every drawing.
struct RayRandom {
    uint32_t state;
    double next() {
        state = static_cast<uint32_t>((uint64_t{state} * 4096 + 150889) % 714025);
        return state / 714025.0;
    }
};

struct Burst {
    float color[3];
    double middle;  // 0: colours run from the centre to the tip; else dark at the centre, full at this part of the way
    double y_scale;
    double half_width;
};

void set_stops(RayPart* piece, double from, double to, const float* color, double at_from, double at_to) {
    piece->from = from;
    piece->to = to;
    const double length = to - from, slope = (at_to - at_from) / length;
    for (int c = 0; c < 3; ++c) {
        piece->color[c] = static_cast<float>(static_cast<double>(color[c]) * (at_from - slope * from));
        piece->rise[c] = static_cast<float>(static_cast<double>(color[c]) * slope);
    }
}

// The pieces of one half of a pair of rays.
RayPart* add_half(RayPart* piece, const FlareCanvas& canvas, const PartPlace& place, const Burst& burst, double dx,
                  double dy, double sine) {
    const double major = std::max(std::abs(dx), std::abs(dy));
    if (!(major > 0)) return piece;
    double width = burst.half_width * (burst.y_scale + (1 - burst.y_scale) * sine * sine);
    float color[3];
    const double dimmed = std::min(width / least_width, 1.0) * fix_scale;
    for (int c = 0; c < 3; ++c) color[c] = static_cast<float>(static_cast<double>(burst.color[c]) * dimmed);
    width = std::max(width, least_width);
    const double slope = std::min(std::abs(dx), std::abs(dy)) / major;
    RayPart ray = {};
    ray.dx = dx;
    ray.dy = dy;
    ray.reach = width * std::sqrt(1 + slope * slope);
    const double margin = std::abs(dx) >= std::abs(dy) ? ray.reach : 0;
    const double low = std::min(0.0, dy) - margin + place.y - canvas.bottom;
    const double high = std::max(0.0, dy) + margin + place.y - canvas.bottom;
    if (!(high >= 0) || !(low <= canvas.height - 1)) return piece;
    ray.first_row = static_cast<int>(std::max(std::ceil(low), 0.0));
    ray.last_row = static_cast<int>(std::min(std::floor(high), canvas.height - 1.0));
    *piece = ray;
    if (burst.middle > 0) {
        set_stops(piece++, 0, burst.middle, color, 0.05, 1 - burst.middle);
        *piece = ray;
        set_stops(piece++, burst.middle, 1, color, 1 - burst.middle, 0);
    } else {
        set_stops(piece++, 0, 1, color, 1, 0);
    }
    return piece;
}

}  // namespace

bool prepare_rays(const FlareScene& scene, const LensFlareRays& rays, RaysPart* part) {
    const FlareSettings& s = *scene.settings;
    const double asked = static_cast<double>(rays.ray_number) * static_cast<double>(s.scale_rays_number);
    const int n = static_cast<int>(std::clamp(asked, 0.0, static_cast<double>(most_rays))) & ~1;
    if (n < 2) return false;
    const double length = scene.size[0] * static_cast<double>(s.scale_rays_length);
    const double r0 = std::clamp(static_cast<double>(rays.radius_range[0]) * length, -1e6, 1e6),
                 r1 = std::clamp(static_cast<double>(rays.radius_range[1]) * length, -1e6, 1e6);
    Burst burst = {};
    float tint[3];
    rays_tint(scene, rays, tint);
    flare_light(rays.color, scene.gamma, tint, s.saturation, burst.color);
    for (float& c : burst.color) c = std::clamp(c, -most_color, most_color);
    if (burst.color[0] == 0.0f && burst.color[1] == 0.0f && burst.color[2] == 0.0f) return false;
    burst.half_width = std::min(
        0.5 * static_cast<double>(rays.ray_width) * scene.size[0] * static_cast<double>(s.scale_rays_width), 1e6);
    if (!(burst.half_width > 0)) return false;
    // So that a burst is as round as a ring.
    burst.y_scale = scene.size[1] / scene.size[0] / static_cast<double>(scene.canvas->aspect);
    if (s.two_stage_rays && n >= 7) burst.middle = std::min(3 * burst.half_width / std::max(0.1, r0), 0.5);
    const double up = std::max(std::abs(r0), std::abs(r1)) * burst.y_scale +
                      2 * std::max(burst.half_width * std::max(burst.y_scale, 1.0), least_width);
    part->place = place_part(scene, rays, up, up);
    if (part->place.first_row > part->place.last_row) return false;

    part->rays = frame_array<RayPart>(static_cast<size_t>(n) * 2);
    RayPart* piece = part->rays;
    RayRandom random = {static_cast<uint32_t>(rays.rand_seed)};
    const double step = 2 * pi / n,
                 base = (static_cast<double>(rays.start_angle) + static_cast<double>(s.rotate)) * pi / 180,
                 jitter = 0.5 * step * static_cast<double>(rays.jitter_angles);
    for (int i = 0; i < n / 2; ++i) {
        const double u1 = random.next(), u2 = random.next();
        const double angle = i * step + base - jitter + 2 * jitter * u1, reach = r0 + (r1 - r0) * u2;
        const double sine = std::sin(angle), dx = std::cos(angle) * reach, dy = sine * reach * burst.y_scale;
        piece = add_half(piece, *scene.canvas, part->place, burst, dx, dy, sine);
        piece = add_half(piece, *scene.canvas, part->place, burst, -dx, -dy, sine);
    }
    part->n_rays = static_cast<int>(piece - part->rays);
    return part->n_rays > 0;
}

void draw_ray_row(const FlareCanvas& canvas, const FlareRows& rows, const PartPlace& place, const RayPart& ray, int y) {
    const double up = canvas.bottom + y - place.y;
    double from, to;
    FlareLine line;
    if (std::abs(ray.dx) >= std::abs(ray.dy)) {
        const double slope = ray.dy / ray.dx;
        from = std::min(ray.dx * ray.from, ray.dx * ray.to);
        to = std::max(ray.dx * ray.from, ray.dx * ray.to);
        if (std::abs(slope) > 1e-9) {
            const double a = (up - ray.reach) / slope, b = (up + ray.reach) / slope;
            from = std::max(from, std::min(a, b));
            to = std::min(to, std::max(a, b));
        } else if (std::abs(up) >= ray.reach) {
            return;
        }
        line.offset = static_cast<float>(up / ray.reach);
        line.slope = static_cast<float>(-slope / ray.reach);
        line.along = 0;
        line.along_step = static_cast<float>(1 / ray.dx);
    } else {
        const double t = up / ray.dy, middle = up * ray.dx / ray.dy;
        if (t < ray.from || t > ray.to) return;
        // The middle of a burst, and where two pieces meet, belong to one of them.
        if (t == ray.from && (ray.from > 0 || ray.dy < 0)) return;
        from = middle - ray.reach;
        to = middle + ray.reach;
        line.offset = static_cast<float>(-middle / ray.reach);
        line.slope = static_cast<float>(1 / ray.reach);
        line.along = static_cast<float>(t);
        line.along_step = 0;
    }
    if (std::abs(ray.dx) >= std::abs(ray.dy)) {
        if (ray.dx < 0 || ray.from > 0) {
            // As above: without the end that is nearer to the centre.
            const double start = ray.dx * ray.from;
            if (ray.dx > 0 && from <= start) from = std::nextafter(start, start + 1);
            if (ray.dx < 0 && to >= start) to = std::nextafter(start, start - 1);
        }
    }
    std::copy(ray.color, ray.color + 3, line.color);
    std::copy(ray.rise, ray.rise + 3, line.rise);
    FlareSpan span;
    if (span_of_row(canvas, place, y, from, to, &span)) rows.line(span, line);
}

}  // namespace velloran
