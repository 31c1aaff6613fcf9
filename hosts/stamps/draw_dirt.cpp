#include "hosts/stamps/draw_dirt.h"

#include <cmath>
#include <cstdint>
#include <random>

namespace stamp_maker {

namespace {

constexpr float tau = 6.2831853f;

float smooth(float from, float to, float v) {
    const float t = std::clamp((v - from) / (to - from), 0.0f, 1.0f);
    return t * t * (3 - 2 * t);
}
float mix(float a, float b, float t) { return a + (b - a) * t; }

// Value noise over a plane, 0 to 1, mean 0.5.
class Noise {
public:
    explicit Noise(uint32_t seed) : seed_(seed) {}
    float at(float x, float y) const {
        const float fx = std::floor(x), fy = std::floor(y);
        const float tx = smooth(0, 1, x - fx), ty = smooth(0, 1, y - fy);
        const int ix = static_cast<int>(fx), iy = static_cast<int>(fy);
        return mix(mix(value(ix, iy), value(ix + 1, iy), tx), mix(value(ix, iy + 1), value(ix + 1, iy + 1), tx), ty);
    }
    float layers(float x, float y, int n, float fade = 0.5f) const {
        float sum = 0, whole = 0, weight = 1;
        for (int i = 0; i < n; ++i, weight *= fade) {
            sum += weight * at(x + 17.3f * static_cast<float>(i), y - 9.1f * static_cast<float>(i));
            whole += weight;
            x *= 2;
            y *= 2;
        }
        return sum / whole;
    }

private:
    float value(int x, int y) const {
        uint32_t h = seed_ ^ static_cast<uint32_t>(x) * 0x9E3779B1u ^ static_cast<uint32_t>(y) * 0x85EBCA77u;
        h = (h ^ h >> 15) * 0x2C1B3C6Du;
        h = (h ^ h >> 12) * 0x297A2D39u;
        return static_cast<float>((h ^ h >> 15) >> 8) / 16777216.0f;
    }
    uint32_t seed_;
};

struct Random {
    std::mt19937 engine;
    // Written out, for the library's own distributions differ from machine to machine.
    float unit() { return static_cast<float>(engine() >> 8) / 16777216.0f; }
    float between(float lo, float hi) { return lo + (hi - lo) * unit(); }
    int whole(int lo, int hi) { return lo + static_cast<int>(engine() % static_cast<unsigned>(hi - lo + 1)); }
    bool chance(float share) { return unit() < share; }
};

void cover(StampPicture& picture, int x, int y, float v) {
    if (x < 0 || y < 0 || x >= picture.width || y >= picture.height) return;
    picture.at(x, y) = std::max(picture.at(x, y), v);
}

// ---- Curves

struct Point {
    float x, y, half_width, strength;
};

void draw_curve(StampPicture& picture, const std::vector<Point>& curve) {
    for (size_t i = 0; i + 1 < curve.size(); ++i) {
        const Point &a = curve[i], &b = curve[i + 1];
        const float dx = b.x - a.x, dy = b.y - a.y, square = dx * dx + dy * dy;
        const float reach = std::max(a.half_width, b.half_width) + 1.5f;
        const int x0 = static_cast<int>(std::min(a.x, b.x) - reach),
                  x1 = static_cast<int>(std::max(a.x, b.x) + reach) + 1;
        const int y0 = static_cast<int>(std::min(a.y, b.y) - reach),
                  y1 = static_cast<int>(std::max(a.y, b.y) + reach) + 1;
        for (int y = y0; y <= y1; ++y)
            for (int x = x0; x <= x1; ++x) {
                const float px = static_cast<float>(x) - a.x, py = static_cast<float>(y) - a.y;
                const float t = square > 0 ? std::clamp((px * dx + py * dy) / square, 0.0f, 1.0f) : 0.0f;
                const float away = std::hypot(px - dx * t, py - dy * t), half = mix(a.half_width, b.half_width, t);
                // A little softer than sharp: dirt does not lie in the plane of focus.
                cover(picture, x, y, smooth(half + 0.9f, half - 0.7f, away) * mix(a.strength, b.strength, t));
            }
    }
}

// A line that bends by noise, from a place on in a direction.
std::vector<Point> bent_line(Random& random, float x, float y, float angle, float length, float bend, float curl,
                             float half_width) {
    const Noise noise(random.engine());
    const float step = 1.5f, own_curl = curl * random.between(-1, 1), phase = random.between(0, 100);
    std::vector<Point> curve;
    for (float s = 0; s <= length; s += step) {
        const float t = s / length;
        const float swing = noise.layers(phase + s * 0.012f, 0.5f, 3) - 0.5f;
        angle += step * (own_curl + bend * swing);
        x += step * std::cos(angle);
        y += step * std::sin(angle);
        const float ends = std::min(smooth(0, 0.06f, t), smooth(1, 0.85f, t));
        const float uneven = 0.82f + 0.36f * noise.layers(s * 0.05f, 7, 2);
        curve.push_back({x, y, half_width * uneven * mix(0.35f, 1, ends),
                         std::min(1.0f, 0.75f + 0.5f * noise.layers(s * 0.02f, 31, 2))});
    }
    return curve;
}

std::vector<Point> moved_inside(std::vector<Point> curve, int* width, int* height) {
    float left = 1e9f, right = -1e9f, top = 1e9f, bottom = -1e9f;
    for (const Point& p : curve) {
        left = std::min(left, p.x - p.half_width);
        right = std::max(right, p.x + p.half_width);
        top = std::min(top, p.y - p.half_width);
        bottom = std::max(bottom, p.y + p.half_width);
    }
    for (Point& p : curve) {
        p.x += 4 - left;
        p.y += 4 - top;
    }
    *width = static_cast<int>(right - left) + 9;
    *height = static_cast<int>(bottom - top) + 9;
    return curve;
}

StampPicture draw_hair(Random& random, int i) {
    // Long hairs that swing, curled ones, short stiff ones, and threads of lint.
    const int sort = i % 4;
    const float length = sort == 0   ? random.between(320, 620)
                         : sort == 1 ? random.between(260, 520)
                         : sort == 2 ? random.between(60, 170)
                                     : random.between(140, 300);
    const float bend = sort == 0 ? 0.035f : sort == 1 ? 0.12f : sort == 2 ? 0.03f : 0.16f;
    const float curl = sort == 1 ? 0.035f : sort == 3 ? 0.02f : 0.006f;
    const float half = sort == 2   ? random.between(1.6f, 2.6f)
                       : sort == 3 ? random.between(0.9f, 1.5f)
                                   : random.between(1.2f, 2.1f);
    int width, height;
    const std::vector<Point> curve =
        moved_inside(bent_line(random, 0, 0, random.between(0, tau), length, bend, curl, half), &width, &height);
    StampPicture picture(width, height);
    draw_curve(picture, curve);
    if (sort == 3)  // lint is a tangle: fibres leave the thread
        for (int k = random.whole(2, 5); k > 0; --k) {
            const Point& from = curve[static_cast<size_t>(random.whole(0, static_cast<int>(curve.size()) - 1))];
            draw_curve(picture, bent_line(random, from.x, from.y, random.between(0, tau), random.between(20, 70), 0.12f,
                                          0.03f, half * 0.7f));
        }
    return picture;
}

// ---- Blobs

// A shape with a ragged rim: how far inside its rim a place is, in samples; below 0 outside.
struct Blob {
    float x, y, radius, aspect, turn, ragged;
    Noise noise;
    float frequency;
    float inside(float px, float py) const {
        const float dx = px - x, dy = py - y, c = std::cos(turn), s = std::sin(turn);
        const float u = (dx * c + dy * s) / aspect, v = (dy * c - dx * s) * aspect;
        const float n = noise.layers(50 + frequency * u / radius, 50 + frequency * v / radius, 4) - 0.5f;
        return radius * (1 + 2 * ragged * n) - std::hypot(u, v);
    }
};

Blob random_blob(Random& random, float x, float y, float radius, float ragged) {
    return {x,
            y,
            radius,
            std::exp(random.between(-0.4f, 0.4f)),
            random.between(0, tau),
            ragged,
            Noise(random.engine()),
            random.between(1.2f, 2.6f)};
}

// body(x, y) over a picture.
template <class Body>
StampPicture picture_of(int size, Body body) {
    StampPicture picture(size, size);
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x)
            picture.at(x, y) = std::clamp(body(static_cast<float>(x), static_cast<float>(y)), 0.0f, 1.0f);
    return picture;
}

constexpr int dust_resolution = 200;

StampPicture draw_speck(Random& random, int i) {
    // Grains, flakes that light goes through, crumbs, and the ends of fibres. Most are small.
    const int sort = i % 5;
    const float radius = 4 + 17 * std::pow(random.unit(), 2.2f);
    const int size = static_cast<int>(radius * 5.5f) + 12;
    const float middle = static_cast<float>(size) / 2;
    StampPicture picture;
    if (sort == 4) {
        int width, height;
        const std::vector<Point> curve =
            moved_inside(bent_line(random, 0, 0, random.between(0, tau), random.between(24, 70), 0.12f, 0.05f,
                                   random.between(0.9f, 2.0f)),
                         &width, &height);
        picture = StampPicture(width, height);
        draw_curve(picture, curve);
    } else if (sort == 3) {
        picture = StampPicture(size, size);
        for (int k = random.whole(2, 6); k > 0; --k) {
            const float away = radius * 1.6f * std::sqrt(random.unit()), angle = random.between(0, tau);
            const Blob crumb = random_blob(random, middle + away * std::cos(angle), middle + away * std::sin(angle),
                                           radius * random.between(0.2f, 0.6f), 0.7f);
            const StampPicture one =
                picture_of(size, [&](float x, float y) { return smooth(-0.9f, 1.1f, crumb.inside(x, y)); });
            for (size_t p = 0; p < picture.samples.size(); ++p)
                picture.samples[p] = std::max(picture.samples[p], one.samples[p]);
        }
    } else {
        const Blob blob = random_blob(random, middle, middle, radius, random.between(0.45f, 0.95f));
        const Noise inner(random.engine());
        const float least = sort == 2 ? 0.35f : 0.8f, thin = radius * (sort == 2 ? 0.5f : 0.15f);
        picture = picture_of(size, [&](float x, float y) {
            const float in = blob.inside(x, y), grain = inner.layers(x * 0.11f, y * 0.11f, 4, 0.6f);
            const float rim = 1 - smooth(0, thin + 1, in);
            return smooth(-1.0f, 1.2f, in) * std::min(1.0f, least + (1 - least) * (0.9f * rim + 0.9f * grain));
        });
    }
    picture.resolution = dust_resolution;
    return picture;
}

// A drop that dried: hardly anything inside, a rim where its dirt went, and rims within.
float dried(const Blob& blob, const Noise& noise, float x, float y, float rim_width) {
    const float wander = 6 * (noise.layers(x * 0.02f, y * 0.02f, 4) - 0.5f), in = blob.inside(x, y) + wander;
    if (in < -2) return 0;
    const float mottle = noise.layers(x * 0.045f, y * 0.045f, 5, 0.62f);
    const float rim = std::exp(-std::max(in, 0.0f) / rim_width) * smooth(-1.5f, 1.0f, in);
    const float second = 0.35f * std::exp(-std::abs(in - 0.33f * blob.radius) / (rim_width * 1.6f));
    const float body = 0.10f + 0.30f * smooth(0.35f, 0.8f, mottle);
    return smooth(-1.5f, 1.5f, in) * (0.75f * rim * (0.45f + 1.1f * mottle) + second * mottle + body);
}

// Spots of mould: threads that branch from a middle.
void grow(StampPicture& picture, Random& random, float x, float y, float angle, float length, float half, int depth) {
    const std::vector<Point> thread = bent_line(random, x, y, angle, length, 0.10f, 0.01f, half);
    draw_curve(picture, thread);
    if (depth == 0 || thread.empty()) return;
    for (int k = random.whole(2, 4); k > 0; --k) {
        const auto i = static_cast<size_t>(random.between(0.3f, 0.95f) * static_cast<float>(thread.size() - 1));
        grow(picture, random, thread[i].x, thread[i].y, angle + random.between(-1.0f, 1.0f),
             length * random.between(0.35f, 0.65f), half * 0.75f, depth - 1);
    }
}

StampPicture draw_stain(Random& random, int i) {
    const int sort = i % 6, size = random.whole(230, 340);
    const float middle = static_cast<float>(size) / 2;
    const Noise noise(random.engine());
    if (sort == 4) {
        StampPicture picture(size, size);
        const float share = middle * random.between(0.45f, 0.62f);
        for (int k = random.whole(9, 14); k > 0; --k)
            grow(picture, random, middle + random.between(-9, 9), middle + random.between(-9, 9),
                 random.between(0, tau), share * random.between(0.6f, 1), 0.9f, 3);
        for (int y = 0; y < size; ++y)
            for (int x = 0; x < size; ++x) {
                const float fx = static_cast<float>(x), fy = static_cast<float>(y);
                const float away = std::hypot(fx - middle, fy - middle) / middle;
                const float haze = 0.3f * smooth(0.75f, 0.0f, away) * noise.layers(fx * 0.05f, fy * 0.05f, 4);
                picture.at(x, y) =
                    std::min(1.0f, 0.7f * picture.at(x, y) * noise.layers(fx * 0.03f, fy * 0.03f, 3) * 1.6f + haze) *
                    smooth(0.98f, 0.8f, away);
            }
        return picture;
    }
    if (sort == 5) {  // wiped: streaks of one direction
        const float turn = random.between(-0.5f, 0.5f), c = std::cos(turn), s = std::sin(turn);
        Blob blob = random_blob(random, middle, middle, middle * 0.5f, 0.5f);
        blob.aspect = random.between(1.3f, 1.7f);
        blob.turn = turn;
        return picture_of(size, [&](float x, float y) {
            const float along = x * c + y * s, across = y * c - x * s;
            const float streak = noise.layers(along * 0.008f, across * 0.16f, 4, 0.7f);
            const float in = blob.inside(x, y) + 90 * (streak - 0.5f);
            return 0.75f * smooth(-4, 26, in) * smooth(0.38f, 0.8f, streak);
        });
    }
    std::vector<Blob> blobs;
    const bool splash = sort == 3;
    blobs.push_back(random_blob(random, middle, middle, middle * (splash ? 0.22f : random.between(0.5f, 0.62f)),
                                random.between(0.25f, 0.5f)));
    for (int k = splash ? random.whole(14, 30) : random.whole(0, 3); k > 0; --k) {
        const float away = middle * random.between(splash ? 0.25f : 0.55f, 0.85f), angle = random.between(0, tau);
        const float radius = middle * 0.02f + middle * 0.10f * std::pow(random.unit(), 3.0f);
        blobs.push_back(
            random_blob(random, middle + away * std::cos(angle), middle + away * std::sin(angle), radius, 0.4f));
    }
    const float rim = random.between(2.0f, 5.0f);
    const bool blotch = sort == 2;  // soaked in, without a rim
    return picture_of(size, [&](float x, float y) {
        float v = 0;
        for (const Blob& blob : blobs) {
            if (blotch) {
                const float in = blob.inside(x, y) + 40 * (noise.layers(x * 0.02f, y * 0.02f, 5, 0.6f) - 0.5f);
                v = std::max(
                    v, 0.8f * smooth(-6, 34, in) * smooth(0.25f, 0.75f, noise.layers(x * 0.05f, y * 0.05f, 5, 0.65f)));
            } else {
                v = std::max(v, dried(blob, noise, x, y, rim));
            }
        }
        const float edge =
            std::min(std::min(x, y), std::min(static_cast<float>(size) - 1 - x, static_cast<float>(size) - 1 - y));
        return v * smooth(0, 12, edge);
    });
}

}  // namespace

std::vector<StampPicture> draw_dirt(const std::string& kind, int count, unsigned seed) {
    StampPicture (*const draw)(Random&, int) = kind == "hairs"         ? draw_hair
                                               : kind == "dust"        ? draw_speck
                                               : kind == "film-stains" ? draw_stain
                                                                       : nullptr;
    std::vector<StampPicture> stamps;
    for (int i = 0; draw && i < count; ++i) {
        // Each has a seed of its own, so that the look of one can be worked on while the others stand.
        Random random = {std::mt19937(seed * 1000 + static_cast<unsigned>(i))};
        stamps.push_back(trimmed(draw(random, i)));
    }
    return stamps;
}

}  // namespace stamp_maker
